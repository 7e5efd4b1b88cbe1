# shellcheck shell=bash
# Whose updater a build is; see cmake/ApplicationIdentity.cmake. For the scripts that source this file.

# Prints an entry of the identity that a build directory was configured with, for example UPDATER or
# UPDATER_STEM, its name without ".exe".
identity_entry() {
  local file="$1/identity/identity.txt" value
  value=$(sed -n "s/^IDENTITY_$2=//p" "$file") || return 1
  if [[ -z $value ]]; then
    printf 'there is no %s in %s\n' "$2" "$file" >&2
    return 1
  fi
  printf '%s\n' "$value"
}

# Reads "[--identity FILE]" and sets `build` to the preset's build directory, or for an identity of the
# caller's own to one that nobody else uses, and `configuration` to what cmake needs to make it. The
# result is false for other arguments.
#   read_identity_option PRESET [ARGUMENT...]
# shellcheck disable=SC2034  # for the scripts that source this file
read_identity_option() {
  local preset=$1 file
  shift
  build="build/$preset"
  configuration=(--preset "$preset")
  if (($# == 0)); then
    return 0
  fi
  [[ $# == 2 && $1 == --identity && -f $2 ]] || return 1
  file=$(realpath -- "$2")
  build+="-$(printf '%s' "$file" | sha256sum | cut -c 1-8)"
  configuration+=(-B "$build" "-DAPPLICATION_IDENTITY=$file")
}
