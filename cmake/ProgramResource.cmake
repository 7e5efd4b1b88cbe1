# Gives a program the manifest and the version that all of the project's programs share.
#
#   add_program_resource(TARGET DESCRIPTION)
function(add_program_resource target description)
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
  configure_file("${CMAKE_SOURCE_DIR}/cmake/program.rc.in" "${resource}" @ONLY)
  # The resource compiler does not report the manifest that it embeds.
  set_property(SOURCE "${resource}" PROPERTY OBJECT_DEPENDS "${CMAKE_SOURCE_DIR}/src/app/program.manifest")
  target_sources(${target} PRIVATE "${resource}")
endfunction()
