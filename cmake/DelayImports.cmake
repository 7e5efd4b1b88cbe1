# Links the target's imports from the system's libraries so that each library is loaded at the first
# call instead of at the start of the process. What is loaded at the start is searched in the
# executable's own directory before any of its code runs; later the program has restricted the
# search to the system's directory.
#
#   link_delayed(TARGET DIRECTORY)
#
# DIRECTORY holds one module-definition file for each library, with the functions that the program
# uses. The list is complete: a function that is not in it does not link.
function(link_delayed target directory)
  set_property(TARGET ${target} PROPERTY DELAYED_IMPORTS ON)
  file(GLOB definitions CONFIGURE_DEPENDS "${directory}/*.def")
  if(MSVC)
    foreach(definition IN LISTS definitions)
      get_filename_component(library "${definition}" NAME_WE)
      target_link_libraries(${target} PRIVATE ${library})
      target_link_options(${target} PRIVATE "/DELAYLOAD:${library}.dll")
    endforeach()
    target_link_libraries(${target} PRIVATE delayimp)
    target_link_options(${target} PRIVATE /DEPENDENTLOADFLAG:0x800)
    return()
  endif()

  foreach(definition IN LISTS definitions)
    get_filename_component(library "${definition}" NAME_WE)
    set(archive "${CMAKE_CURRENT_BINARY_DIR}/libdelayed-${library}.a")
    add_custom_command(
      OUTPUT "${archive}"
      COMMAND "${CMAKE_DLLTOOL}" --input-def "${definition}" --output-delaylib "${archive}"
      DEPENDS "${definition}"
      COMMENT "Making the delayed import library of ${library}.dll"
      VERBATIM
    )
    list(APPEND archives "${archive}")
  endforeach()
  add_custom_target(${target}-delayed-imports DEPENDS ${archives})
  add_dependencies(${target} ${target}-delayed-imports)
  target_link_libraries(${target} PRIVATE ${archives} delayimp)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${archives})
endfunction()
