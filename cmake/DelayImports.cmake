# Links the target's imports from the system's libraries so that each library is loaded at the first
# call instead of at the start of the process. What is loaded at the start is searched in the
# executable's own directory before any of its code runs; later the program has restricted the
# search to the system's directory.
#
#   link_delayed(TARGET DIRECTORY)
#
# DIRECTORY holds one module-definition file for each library, with the functions that the program
# uses.
#
# Microsoft's linker makes the tables of delayed imports itself. For GCC they are assembled from the
# list of functions, not made by dlltool: its tables stand among the ordinary imports, which some
# linkers make read-only, while the first call of a delayed function writes. Which section each table
# is in is decided in delayed_imports.s and nowhere else.
if(NOT MSVC)
  enable_language(ASM)
endif()

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

  set(macros "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/delayed_imports.s")
  set(list ".include \"${macros}\"\n")
  foreach(definition IN LISTS definitions)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${definition}")
    get_filename_component(library "${definition}" NAME_WE)
    file(STRINGS "${definition}" functions REGEX "^[A-Za-z0-9_]+$")
    list(REMOVE_ITEM functions EXPORTS)
    string(APPEND list "begin_library ${library}\n")
    foreach(function IN LISTS functions)
      string(APPEND list "import ${library}, ${function}\n")
    endforeach()
    string(APPEND list "end_library\n")
  endforeach()
  string(APPEND list "end_libraries\n")
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}-delayed-imports.s")
  file(CONFIGURE OUTPUT "${source}" CONTENT "${list}" @ONLY)
  set_property(SOURCE "${source}" PROPERTY OBJECT_DEPENDS "${macros}")
  target_sources(${target} PRIVATE "${source}")
  target_link_libraries(${target} PRIVATE delayimp)
endfunction()
