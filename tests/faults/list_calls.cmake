# Writes down every call that the objects make to Windows or to the file system:
#   cmake -D NM=... -D OBJECTS=A;B -D CALLS=FILE -D RENAMINGS=FILE -P list_calls.cmake
# CALLS gets a line "SWEPT_CALL(CopyFileW)" for each function, RENAMINGS what objcopy has to rename
# for the calls to reach the functions that swept_calls.cpp makes of these lines.

# The language's own runtime, and the compiler's; none of it asks anything of the system.
set(language_runtime "^(_Z|_Unwind_|__cxa_|__gxx_|__gcov_|___chkstk|__stack_chk_|w?mem|strlen|wcslen|iswspace)")

foreach(object IN LISTS OBJECTS)
  execute_process(COMMAND "${NM}" --undefined-only --format=just-symbols "${object}"
    OUTPUT_VARIABLE listing ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY
  )
  string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_.]*[^\n:]*" symbols "${listing}")
  list(APPEND undefined ${symbols})
endforeach()

list(FILTER undefined EXCLUDE REGEX "[^A-Za-z0-9_]")

# The library's own operations on files make their calls where nobody sweeps them. A path is text.
set(unswept ${undefined})
list(FILTER unswept INCLUDE REGEX "^_ZNK?St10filesystem")
list(FILTER unswept EXCLUDE REGEX "^_ZNK?St10filesystem7__cxx11(4path|16filesystem_error)")
if(unswept)
  message(FATAL_ERROR "The updater uses operations of the library that the sweep does not reach: ${unswept}")
endif()

list(FILTER undefined EXCLUDE REGEX "${language_runtime}")
list(TRANSFORM undefined REPLACE "^__imp_" "")
list(REMOVE_DUPLICATES undefined)
list(SORT undefined)

foreach(function IN LISTS undefined)
  string(APPEND calls "SWEPT_CALL(${function})\n")
  string(APPEND renamings "__imp_${function} swept_imp_${function}\n${function} swept_${function}\n")
endforeach()
file(WRITE "${CALLS}" "${calls}")
file(WRITE "${RENAMINGS}" "${renamings}")
