# What an identity (see ApplicationIdentity.cmake) becomes in the build.
include(CheckIdentity)

# Sets `result` to the name of a program or library without ".exe" or ".dll".
function(program_stem program result)
  string(REGEX REPLACE "\\.([Ee][Xx][Ee]|[Dd][Ll][Ll])$" "" stem "${program}")
  set(${result} "${stem}" PARENT_SCOPE)
endfunction()

# write_identity(DIRECTORY): writes the identity of the caller's scope into the directory, as a header
# for the sources, application_identity_values.h, and as lines ENTRY=VALUE for scripts, identity.txt.
function(write_identity directory)
  program_stem("${IDENTITY_UPDATER}" IDENTITY_UPDATER_STEM)
  program_stem("${IDENTITY_RELEASE_TOOL}" IDENTITY_RELEASE_TOOL_STEM)
  program_stem("${IDENTITY_CLIENT_LIBRARY}" IDENTITY_CLIENT_LIBRARY_STEM)
  # Stands for the executable in the release tool's help.
  string(MAKE_C_IDENTIFIER "${IDENTITY_EXECUTABLE}" word)
  string(TOUPPER "${word}" IDENTITY_EXECUTABLE_WORD)
  cmake_path(GET identity_file FILENAME IDENTITY_SOURCE)
  set(lines "")
  foreach(entry IN LISTS identity_entries ITEMS IDENTITY_UPDATER_STEM IDENTITY_RELEASE_TOOL_STEM
      IDENTITY_CLIENT_LIBRARY_STEM IDENTITY_EXECUTABLE_WORD)
    string(APPEND lines "${entry}=${${entry}}\n")
    string(REGEX REPLACE "^IDENTITY_" "VALUE_" value "${entry}")
    string(REPLACE "\\" "\\\\" ${value} "${${entry}}")
    string(REPLACE "\"" "\\\"" ${value} "${${value}}")
  endforeach()
  file(MAKE_DIRECTORY "${directory}")
  configure_file("${CMAKE_SOURCE_DIR}/cmake/application_identity_values.h.in"
    "${directory}/application_identity_values.h" @ONLY)
  file(WRITE "${directory}/identity.txt" "${lines}")
endfunction()

# add_identity_objects(TARGET): the product's only source that depends on the identity, compiled with
# that of the caller's scope. A program that links these objects has this identity in place of the one
# of the core library.
function(add_identity_objects target)
  set(directory "${CMAKE_CURRENT_BINARY_DIR}/${target}")
  write_identity("${directory}")
  add_library(${target} OBJECT "${CMAKE_SOURCE_DIR}/src/support/application_identity.cpp")
  target_include_directories(${target} PRIVATE "${directory}" "${CMAKE_SOURCE_DIR}/src")
  target_link_libraries(${target} PRIVATE project-options)
endfunction()

# add_updater_program(TARGET [IDENTITY TARGET]): the updater, under its name in the identity of the
# caller's scope.
function(add_updater_program target)
  cmake_parse_arguments(program "" "IDENTITY" "" ${ARGN})
  add_executable(${target} WIN32 $<TARGET_OBJECTS:updater-entry>)
  add_program_resource(${target} "${IDENTITY_UPDATER}" "${IDENTITY_DESCRIPTION}")
  finish_program(${target} "${IDENTITY_UPDATER}" "${program_IDENTITY}" "${CMAKE_SOURCE_DIR}/src/app/delay_imports")
endfunction()

# add_release_tool(TARGET [IDENTITY TARGET]): the same for the release tool.
function(add_release_tool target)
  cmake_parse_arguments(program "" "IDENTITY" "" ${ARGN})
  add_executable(${target} $<TARGET_OBJECTS:updatectl-entry>)
  add_program_resource(${target} "${IDENTITY_RELEASE_TOOL}"
    "Release and support tool of the ${IDENTITY_DESCRIPTION}")
  target_link_libraries(${target} PRIVATE updatectl-commands)
  finish_program(${target} "${IDENTITY_RELEASE_TOOL}" "${program_IDENTITY}"
    "${CMAKE_SOURCE_DIR}/src/updatectl/delay_imports")
endfunction()

# add_client_library(TARGET [IDENTITY TARGET]): the library that is the application's half of an update,
# under its name in the identity of the caller's scope, and its import library beside it.
function(add_client_library target)
  cmake_parse_arguments(library "" "IDENTITY" "" ${ARGN})
  program_stem("${IDENTITY_CLIENT_LIBRARY}" stem)
  add_library(${target} SHARED
    $<TARGET_OBJECTS:update-client-interface> "${CMAKE_SOURCE_DIR}/src/client/exports.def"
  )
  add_library_resource(${target} "${IDENTITY_CLIENT_LIBRARY}"
    "The application's half of the ${IDENTITY_DESCRIPTION}")
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME "${stem}" PREFIX "" SUFFIX ".dll" IMPORT_PREFIX "" IMPORT_SUFFIX ".lib"
  )
  if(library_IDENTITY)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${library_IDENTITY}>)
  endif()
  target_link_libraries(${target} PRIVATE update-client project-options)
  if(MINGW)
    target_sources(${target} PRIVATE "${CMAKE_SOURCE_DIR}/src/app/gcc_runtime.cpp")
    target_link_options(${target} PRIVATE "-Wl,-Map=${target}.map")
    set_property(TARGET ${target} APPEND PROPERTY ADDITIONAL_CLEAN_FILES "${CMAKE_BINARY_DIR}/${target}.map")
  endif()
endfunction()

function(finish_program target name identity delay_imports)
  program_stem("${name}" stem)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME "${stem}" SUFFIX ".exe")
  if(identity)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${identity}>)
  endif()
  target_link_libraries(${target} PRIVATE updater-core project-options)
  link_delayed(${target} "${delay_imports}")
  if(MINGW)
    # The map tells what of the compiler's libraries is in the program; see scripts/bill-of-materials.
    target_link_options(${target} PRIVATE -municode "-Wl,-Map=${target}.map")
    set_property(TARGET ${target} APPEND PROPERTY ADDITIONAL_CLEAN_FILES "${CMAKE_BINARY_DIR}/${target}.map")
  endif()
endfunction()
