# The same target with clang, which takes the C++ library, the Windows headers and the linker of the
# cross compiler.

include("${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake")

# clang looks for that compiler's library only under names without the thread model.
execute_process(
  COMMAND "${CMAKE_CXX_COMPILER}" -print-libgcc-file-name
  OUTPUT_VARIABLE gcc_library OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY
)
cmake_path(GET gcc_library PARENT_PATH gcc_directory)
set(cpp_library "${gcc_directory}/include/c++")

set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
  "${cpp_library}" "${cpp_library}/x86_64-w64-mingw32" "${cpp_library}/backward"
)
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-nostdinc++>")
# The library has the posix thread model.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-L${gcc_directory} -pthread")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
