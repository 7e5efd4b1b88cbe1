# Programs and their setup programs, for the example and for the end-to-end tests.

set(CORVELLAN_PAYLOADS "${CMAKE_BINARY_DIR}/examples/payloads")
set(CORVELLAN_SETUPS "${CMAKE_BINARY_DIR}/examples/setups")
set(payload_script "${CMAKE_CURRENT_LIST_DIR}/ProgramPayload.cmake")

find_file(CORVELLAN_ISCC ISCC.exe
  PATHS "${CMAKE_SOURCE_DIR}/node_modules/innosetup/bin"
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
  DOC "Inno Setup's command-line compiler"
)
if(NOT CORVELLAN_ISCC)
  message(FATAL_ERROR "Inno Setup's compiler is missing; scripts/setup (npm ci) installs it. "
                      "-DCORVELLAN_BUILD_EXAMPLES=OFF builds without the examples.")
endif()

# Sets `result` to the path as a Windows program sees it.
function(windows_path path result)
  if(CMAKE_HOST_WIN32)
    file(TO_NATIVE_PATH "${path}" path)
  else()
    string(REPLACE "/" "\\" path "Z:${path}")
  endif()
  set(${result} "${path}" PARENT_SCOPE)
endfunction()

# add_payload(NAME TREE DIRECTORY TARGETS TARGET... [TAMPERED PATH])
# Puts a program together in ${CORVELLAN_PAYLOADS}/NAME: the contents of TREE, the targets' files, and
# the inventory, program-files.tsv. The file TAMPERED is not as the inventory says.
function(add_payload name)
  cmake_parse_arguments(payload "" "TREE;TAMPERED" "TARGETS" ${ARGN})
  set(directory "${CORVELLAN_PAYLOADS}/${name}")
  file(GLOB_RECURSE tree_files CONFIGURE_DEPENDS RELATIVE "${payload_TREE}" "${payload_TREE}/*")
  list(TRANSFORM tree_files PREPEND "${payload_TREE}/" OUTPUT_VARIABLE tree_paths)
  set(target_files ${payload_TARGETS})
  list(TRANSFORM target_files REPLACE "(.+)" "$<TARGET_FILE:\\1>")
  set(tampered "")
  if(payload_TAMPERED)
    set(tampered "-DTAMPERED=${payload_TAMPERED}")
  endif()
  add_custom_command(
    OUTPUT "${directory}/program-files.tsv"
    COMMAND "${CMAKE_COMMAND}" "-DPAYLOAD=${directory}" "-DTREE=${payload_TREE}"
            "-DTREE_FILES=${tree_files}" "-DFILES=${target_files}" ${tampered} -P "${payload_script}"
    DEPENDS ${tree_paths} ${payload_TARGETS} "${payload_script}"
    COMMENT "Putting the program ${name} together"
    VERBATIM
  )
  add_custom_target(payload-${name} DEPENDS "${directory}/program-files.tsv")
endfunction()

# add_setup(NAME SCRIPT FILE VERSION VERSION PAYLOAD NAME [DEFINES NAME=VALUE...] [DEPENDS FILE...])
# Compiles the setup program ${CORVELLAN_SETUPS}/NAME.exe, for the identity in the caller's scope.
function(add_setup name)
  cmake_parse_arguments(setup "" "SCRIPT;VERSION;PAYLOAD" "DEFINES;DEPENDS" ${ARGN})
  set(payload "${CORVELLAN_PAYLOADS}/${setup_PAYLOAD}")
  set(defines "AppVersion=${setup_VERSION}" "OutputName=${name}"
    "Executable=${IDENTITY_EXECUTABLE}" "ReleaseTool=${IDENTITY_RELEASE_TOOL}"
    "Identifier=${IDENTITY_APPLICATION_ID}" "ApplicationName=${IDENTITY_LOCAL_DIRECTORY}"
    "Company=${IDENTITY_COMPANY}" ${setup_DEFINES}
  )
  list(TRANSFORM defines PREPEND "/D")
  windows_path("${payload}" payload_path)
  windows_path("${CORVELLAN_SETUPS}" setups_path)
  windows_path("${setup_SCRIPT}" script_path)
  add_custom_command(
    OUTPUT "${CORVELLAN_SETUPS}/${name}.exe"
    COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} "${CORVELLAN_ISCC}" /Q ${defines}
            "/DPayload=${payload_path}" "/DOutputDir=${setups_path}" "${script_path}"
    DEPENDS "${payload}/program-files.tsv" payload-${setup_PAYLOAD} "${setup_SCRIPT}"
            "${CORVELLAN_ISCC}" ${setup_DEPENDS}
    COMMENT "Compiling the setup program ${name}.exe"
    VERBATIM
  )
  add_custom_target(setup-${name} ALL DEPENDS "${CORVELLAN_SETUPS}/${name}.exe")
endfunction()
