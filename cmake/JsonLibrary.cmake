# nlohmann/json, a header-only library of the build machine: the target nlohmann-json. Its directory
# itself would bring that machine's own system headers with it, so the headers are copied to one of
# their own.

find_path(NLOHMANN_JSON_DIRECTORY nlohmann/json.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
set(json_headers "${NLOHMANN_JSON_DIRECTORY}/nlohmann")
set(json_include "${CMAKE_BINARY_DIR}/include")
# The copies have the times of what they were made from: nothing is compiled again unless a header has
# changed. Another version configures anew; then nothing of the old one stays.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${json_headers}/json.hpp")
file(REMOVE_RECURSE "${json_include}/nlohmann")
file(COPY "${json_headers}" DESTINATION "${json_include}")
add_library(nlohmann-json INTERFACE)
target_include_directories(nlohmann-json SYSTEM INTERFACE "${json_include}")
