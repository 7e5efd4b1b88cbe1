# Gives a program the manifest and the version that all of an application's programs share, with the
# company and the product of the identity in the caller's scope.
#
#   add_program_resource(TARGET FILE_NAME DESCRIPTION)
function(add_program_resource target file_name description)
  write_version_resource(${target} "${file_name}" "${description}" VFT_APP
    "1 24 \"${CMAKE_SOURCE_DIR}/src/app/program.manifest\""
  )
  # The resource compiler does not report the manifest that it embeds.
  set_property(SOURCE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" PROPERTY
    OBJECT_DEPENDS "${CMAKE_SOURCE_DIR}/src/app/program.manifest"
  )
endfunction()

# The same for a library, which needs no manifest.
function(add_library_resource target file_name description)
  write_version_resource(${target} "${file_name}" "${description}" VFT_DLL "")
endfunction()

function(write_version_resource target file_name description file_type manifest)
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
  program_stem("${file_name}" internal_name)
  set(company "${IDENTITY_COMPANY}")
  set(product "${IDENTITY_DESCRIPTION}")
  foreach(text IN ITEMS file_name description internal_name company product)
    string(REPLACE "\\" "\\\\" ${text} "${${text}}")
    string(REPLACE "\"" "\"\"" ${text} "${${text}}")
  endforeach()
  configure_file("${CMAKE_SOURCE_DIR}/cmake/program.rc.in" "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
endfunction()
