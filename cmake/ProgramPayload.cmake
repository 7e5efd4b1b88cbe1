# Run as a script: puts a version of the program together as its setup program will install it.
#
#   cmake -DPAYLOAD=DIRECTORY -DTREE=DIRECTORY -DTREE_FILES=PATH;... -DFILES=FILE;...
#         [-DTAMPERED=PATH] -P ProgramPayload.cmake
#
# PAYLOAD is made anew from TREE_FILES, which lie in TREE, from FILES, and from the inventory of all of
# that, program-files.tsv. TAMPERED is a file in it that changes after the inventory was made, as it
# happens when a release is put together in the wrong order.

function(write_inventory directory)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${directory}" "${directory}/*")
  list(SORT files)
  set(inventory "")
  foreach(path IN LISTS files)
    file(SHA256 "${directory}/${path}" digest)
    string(REPLACE "/" "\\" path "${path}")
    string(APPEND inventory "${path}\t${digest}\n")
  endforeach()
  file(CONFIGURE OUTPUT "${directory}/program-files.tsv" CONTENT "${inventory}" @ONLY NEWLINE_STYLE LF)
endfunction()

file(REMOVE_RECURSE "${PAYLOAD}")
file(MAKE_DIRECTORY "${PAYLOAD}")
foreach(path IN LISTS TREE_FILES)
  cmake_path(GET path PARENT_PATH directory)
  file(COPY "${TREE}/${path}" DESTINATION "${PAYLOAD}/${directory}")
endforeach()
file(COPY ${FILES} DESTINATION "${PAYLOAD}")
write_inventory("${PAYLOAD}")
if(DEFINED TAMPERED)
  file(APPEND "${PAYLOAD}/${TAMPERED}" "Changed after the list was made.\n")
endif()
