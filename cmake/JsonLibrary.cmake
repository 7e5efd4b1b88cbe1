# nlohmann/json, a header-only library of the build machine: the target nlohmann-json. Its directory
# itself would bring that machine's own system headers with it, so the headers get one of their own.

find_path(NLOHMANN_JSON_DIRECTORY nlohmann/json.hpp REQUIRED NO_CMAKE_FIND_ROOT_PATH)
set(json_include "${CMAKE_BINARY_DIR}/include")
file(MAKE_DIRECTORY "${json_include}")
file(CREATE_LINK "${NLOHMANN_JSON_DIRECTORY}/nlohmann" "${json_include}/nlohmann"
  COPY_ON_ERROR SYMBOLIC
)
add_library(nlohmann-json INTERFACE)
target_include_directories(nlohmann-json SYSTEM INTERFACE "${json_include}")
