# What every target of the project is compiled and linked with.

add_library(project-options INTERFACE)
target_compile_features(project-options INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(MSVC)
  # The resource compiler takes none of them.
  target_compile_options(project-options INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:/W4;/WX;/utf-8;/permissive-;/EHsc>"
  )
  # The library's own checks stay in the released program: a failed one ends the process.
  target_compile_definitions(project-options INTERFACE _MSVC_STL_HARDENING=1)
  # Programs have their manifest in their resources; a second one would collide with it.
  target_link_options(project-options INTERFACE /MANIFEST:NO)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
  # The library's own checks stay in the released program: a failed one ends the process, silently,
  # and so the texts of the checks are left out.
  target_compile_options(project-options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wconversion -Wshadow -Werror -fstack-protector-strong>
    # Where and when a program was built shows in nothing that it contains.
    "$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>"
  )
  target_compile_definitions(project-options INTERFACE
    _GLIBCXX_ASSERTIONS
    $<$<CONFIG:Release>:__PRETTY_FUNCTION__="">
  )
  # One executable without companions: the runtime libraries are linked in.
  target_link_options(project-options INTERFACE
    -static -fstack-protector-strong -Wl,--no-insert-timestamp $<$<CONFIG:Release>:-Wl,--gc-sections -s>
    # In a program, the runtime libraries' debug information would be most of its size.
    $<$<CONFIG:Debug>:-Wl,--strip-debug>
  )
  set(CMAKE_CXX_FLAGS_RELEASE "-Os -DNDEBUG")
  # Without debug information, which takes time and which the linker drops anyway.
  set(CMAKE_CXX_FLAGS_DEBUG "")
endif()
