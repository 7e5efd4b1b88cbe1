# The rules for the entries of an identity file (see ApplicationIdentity.cmake). As a script it checks one:
#   cmake -DAPPLICATION_IDENTITY=FILE -P CheckIdentity.cmake

set(identity_entries
  IDENTITY_EXECUTABLE IDENTITY_APPLICATION_ID IDENTITY_BASE_NAME IDENTITY_ERROR_TITLE IDENTITY_ERROR_HEADING
  IDENTITY_DESCRIPTION IDENTITY_COMPANY IDENTITY_UPDATER IDENTITY_RELEASE_TOOL IDENTITY_CLIENT_LIBRARY
  IDENTITY_LOCAL_DIRECTORY
)

# A staging directory's name is the base name, a hyphen and 38 characters, and has at most 100.
set(identity_longest_base 61)

# refuse_identity(ENTRY RULE): ends the configuration.
function(refuse_identity entry rule)
  message(FATAL_ERROR "${entry} in ${identity_file}: ${rule}. It is \"${${entry}}\".")
endfunction()

# Digits are those of bytes, two for each.
function(check_encoding entry)
  string(HEX "${${entry}}" digits)
  set(next "[89ab][0-9a-f]")
  string(CONCAT form "^([0-7][0-9a-f]|c[2-9a-f]${next}|d[0-9a-f]${next}|e0[ab][0-9a-f]${next}"
                     "|e[1-9abcef]${next}${next}|ed[89][0-9a-f]${next}|f0[9ab][0-9a-f]${next}${next}"
                     "|f[1-3]${next}${next}${next}|f48[0-9a-f]${next}${next})*$")
  if(NOT digits MATCHES "${form}")
    refuse_identity(${entry} "the text is not UTF-8")
  endif()
  # C0 and C1 controls, the byte-order mark, and the separators of lines and paragraphs.
  string(REGEX REPLACE "(..)" "\\1 " bytes "${digits}")
  if(bytes MATCHES "(^| )([01][0-9a-f]|7f|c2 [89][0-9a-f]|ef bb bf|e2 80 a[89]) ")
    refuse_identity(${entry} "control characters, line breaks and a byte-order mark are not allowed")
  endif()
endfunction()

# Windows counts UTF-16 units: one for each character, two for one that takes four bytes.
function(check_length entry longest)
  string(HEX "${${entry}}" digits)
  string(REGEX REPLACE "(..)" "\\1 " bytes "${digits}")
  string(REGEX REPLACE "[89ab][0-9a-f] " "" starts "${bytes}")
  string(REGEX REPLACE "f[0-9a-f] " "0000" units "${starts}")
  string(REGEX REPLACE "[0-9a-f][0-9a-f] " "00" units "${units}")
  string(LENGTH "${units}" length)
  math(EXPR length "${length} / 2")
  if(length GREATER longest)
    refuse_identity(${entry} "at most ${longest} characters are allowed, and it has ${length}")
  endif()
endfunction()

function(check_identity_text entry longest)
  if("${${entry}}" STREQUAL "")
    refuse_identity(${entry} "it must not be empty")
  endif()
  check_encoding(${entry})
  if("${${entry}}" MATCHES "^ | $")
    refuse_identity(${entry} "it must not begin or end with a space")
  endif()
  check_length(${entry} ${longest})
endfunction()

function(check_file_name entry longest)
  check_identity_text(${entry} ${longest})
  if("${${entry}}" MATCHES "[/\\]")
    refuse_identity(${entry} "a name is wanted, not a path: / and \\ are not allowed")
  endif()
  if("${${entry}}" MATCHES "[<>:\"|?*]")
    refuse_identity(${entry} "< > : \" | ? * are not allowed in a file name")
  endif()
  # What the build, the command interpreter or the setup program takes for something else.
  string(REGEX MATCH "[]{}$%;[]" special "${${entry}}")
  if(special)
    refuse_identity(${entry} "{ } [ ] $ % and the semicolon are not allowed")
  endif()
  if("${${entry}}" MATCHES "\\.$")
    refuse_identity(${entry} "a file name must not end with a dot")
  endif()
  string(TOUPPER "${${entry}}" upper)
  if(upper MATCHES "^(CON|PRN|AUX|NUL|CONIN\\$|CONOUT\\$|(COM|LPT)([0-9]|¹|²|³)) *(\\.|$)")
    refuse_identity(${entry} "Windows keeps this name for a device")
  endif()
endfunction()

# check_module_name(ENTRY KIND EXTENSION): the extension in small letters.
function(check_module_name entry kind extension)
  check_file_name(${entry} 100)
  string(TOLOWER "${${entry}}" lower)
  if(NOT lower MATCHES "[^ .].*\\.${extension}$")
    refuse_identity(${entry} "the name of a ${kind} that ends with \".${extension}\" is wanted")
  endif()
endfunction()

function(check_application_id entry)
  check_identity_text(${entry} 127)
  if("${${entry}}" MATCHES "[\\\"]")
    refuse_identity(${entry} "no backslash and no quotation mark are allowed in the name of a registry key")
  endif()
  if("${${entry}}" MATCHES "[{}]" AND NOT "${${entry}}" MATCHES "^{[^{}]+}$")
    refuse_identity(${entry} "braces are allowed as the first and the last character only, one of each")
  endif()
endfunction()

function(check_different one other)
  string(TOLOWER "${${one}}" first)
  string(TOLOWER "${${other}}" second)
  if(first STREQUAL second)
    refuse_identity(${one} "it must be another name than ${other}")
  endif()
endfunction()

# read_identity(FILE): sets the entries in the caller's scope. Ends the configuration with the entry and
# the rule when one is missing or breaks its rule.
macro(read_identity file)
  set(identity_file "${file}")
  foreach(identity_entry IN LISTS identity_entries)
    unset(${identity_entry})
    unset(${identity_entry} CACHE)
  endforeach()
  if(NOT EXISTS "${identity_file}" OR IS_DIRECTORY "${identity_file}")
    message(FATAL_ERROR "APPLICATION_IDENTITY: there is no file ${identity_file}")
  endif()
  include("${identity_file}")
  foreach(identity_entry IN LISTS identity_entries)
    if(NOT DEFINED ${identity_entry})
      message(FATAL_ERROR "${identity_entry} is missing in ${identity_file}; see cmake/ApplicationIdentity.cmake")
    endif()
  endforeach()
  check_module_name(IDENTITY_EXECUTABLE program exe)
  check_application_id(IDENTITY_APPLICATION_ID)
  check_file_name(IDENTITY_BASE_NAME ${identity_longest_base})
  check_identity_text(IDENTITY_ERROR_TITLE 200)
  check_identity_text(IDENTITY_ERROR_HEADING 500)
  check_identity_text(IDENTITY_DESCRIPTION 200)
  check_identity_text(IDENTITY_COMPANY 200)
  check_module_name(IDENTITY_UPDATER program exe)
  check_module_name(IDENTITY_RELEASE_TOOL program exe)
  check_module_name(IDENTITY_CLIENT_LIBRARY library dll)
  check_file_name(IDENTITY_LOCAL_DIRECTORY 100)
  check_different(IDENTITY_UPDATER IDENTITY_EXECUTABLE)
  check_different(IDENTITY_RELEASE_TOOL IDENTITY_EXECUTABLE)
  check_different(IDENTITY_RELEASE_TOOL IDENTITY_UPDATER)
endmacro()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  cmake_minimum_required(VERSION 3.25)
  read_identity("${APPLICATION_IDENTITY}")
endif()
