# What every target of the project is compiled and linked with.

add_library(project-options INTERFACE)
target_compile_features(project-options INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(MSVC)
  target_compile_options(project-options INTERFACE /W4 /WX /utf-8 /permissive- /EHsc)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
else()
  # Checks that stay in the released program: a failed one ends the process.
  target_compile_options(project-options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wconversion -Wshadow -Werror>
    $<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong -ffunction-sections -fdata-sections>
  )
  target_compile_definitions(project-options INTERFACE _GLIBCXX_ASSERTIONS)
  # The released program ends silently at a failed check, so the texts of the checks are left out.
  target_compile_definitions(project-options INTERFACE
    $<$<CONFIG:Release>:__PRETTY_FUNCTION__="">
  )
  # One executable without companions: the runtime libraries are linked in.
  target_link_options(project-options INTERFACE
    -static -fstack-protector-strong -Wl,--gc-sections $<$<CONFIG:Release>:-s>
  )
  set(CMAKE_CXX_FLAGS_RELEASE "-Os -DNDEBUG")
endif()
