# shellcheck shell=bash
# What the checks of finished programs and libraries share, for the scripts that source this file. They set
# `own_directory`, `executable`, the file that is looked at, and `work_directory`, which has what
# llvm-readobj says of its headers in the file headers.
# shellcheck disable=SC2154  # the scripts that source this file set them

failures=0

complain() {
  echo "$executable: $1"
  failures=$((failures + 1))
}

check_address_layout() {
  local characteristic
  for characteristic in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
    grep -q "IMAGE_DLL_CHARACTERISTICS_$characteristic " "$work_directory/headers" ||
      complain "$characteristic is not set"
  done
  # Without relocations the system can only load it where the linker wanted it.
  if grep -q IMAGE_FILE_RELOCS_STRIPPED "$work_directory/headers" ||
    ! grep -qE 'BaseRelocationTableSize: 0x[1-9A-F]' "$work_directory/headers"; then
    complain "it cannot be relocated"
  fi
}

check_sections() {
  awk '
    /^  Section \{/ { name = ""; writable = executable = 0; sections++ }
    /^    Name: / && name == "" { name = $2 }
    /IMAGE_SCN_MEM_WRITE/ { writable = 1 }
    /IMAGE_SCN_MEM_EXECUTE/ { executable = 1; code++ }
    /^  \}/ && writable && executable { print name " is writable and executable" }
    END { if (!sections || !code) print "no section with code" }
  ' "$work_directory/headers" >"$work_directory/sections"
  while IFS= read -r line; do
    complain "$line"
  done <"$work_directory/sections"
}

# Reads a list of imports. What the runtime libraries import depends on their version, and so on the compiler's.
expected_imports() {
  local version
  version=$("$own_directory/compiler_version" "$1")
  sed -n -e '/^#/d' -e '/ with GCC /!p' -e "s/ with GCC $version\$//p" \
    "$own_directory/$2"
}

check_size() {
  local size
  size=$(stat --format %s "$executable")
  ((size <= $1)) || complain "it has $size bytes, more than $1"
}
