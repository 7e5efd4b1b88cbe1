# shellcheck shell=bash
# The Windows run-time environment of the project's scripts: a Wine prefix of this clone's own
# (build/wine-prefix), a Wine server and a virtual display. A script that needs Windows programs
# sources this file and does
#
#   trap stop_windows EXIT
#   trap 'exit 130' INT   # a Windows program interrupted by Ctrl-C does not end the script
#   start_windows
#
# and runs them with scripts/wine-run. Nothing of the user's own Wine set-up, desktop or home
# directory is read or changed. One script at a time holds the environment of a clone; the scripts
# that it starts share it.

project_root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
# shellcheck disable=SC2034  # for the scripts that source this file
log_directory="$project_root/build/logs"

windows_prefix="$project_root/build/wine-prefix"
windows_display=""

# For how many seconds start_windows waits for another script's end.
windows_patience=0

fail() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# True when this process was started by a script that holds this clone's environment.
windows_is_running() {
  [[ ${CORVELLAN_WINDOWS:-} == "$windows_prefix" && ${WINEPREFIX:-} == "$windows_prefix" ]]
}

# Returns when Windows programs can be run. Does nothing in a script that another one started; while
# a script that did not start this one runs Windows programs, that is an error.
start_windows() {
  if windows_is_running; then
    return 0
  fi
  require_windows_tools
  prepare_directories
  export_windows_variables
  start_display
  # Programs and a server that a killed script left behind; nobody else may use them now.
  end_windows_programs
  if ! prefix_is_complete; then
    create_prefix
  fi
  start_wine_server
  export CORVELLAN_WINDOWS="$windows_prefix"
}

# Ends what start_windows started, and every Windows program that still runs.
stop_windows() {
  if [[ -z $windows_display ]]; then
    return 0
  fi
  unset CORVELLAN_WINDOWS
  end_windows_programs
  kill "$windows_display" 2>/dev/null || true
  wait "$windows_display" 2>/dev/null || true
  windows_display=""
}

require_windows_tools() {
  local tool
  for tool in wine wineserver Xvfb; do
    command -v "$tool" >/dev/null || fail "$tool is missing; scripts/setup installs it"
  done
}

prepare_directories() {
  if [[ -e $windows_prefix && ! -O $windows_prefix ]]; then
    fail "$windows_prefix belongs to another user; delete it, or run as that user"
  fi
  mkdir -p "$log_directory"
}

export_windows_variables() {
  export WINEPREFIX="$windows_prefix"
  export WINEARCH=win64
  export WINEDEBUG=-all
  # Neither the offers to download a .NET or an HTML engine, nor entries in the user's menus.
  export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
  # Font caches would otherwise be written to the user's home directory.
  export XDG_CACHE_HOME="$windows_prefix.cache"
  # File names that are not ASCII reach Windows programs only through a UTF-8 locale.
  export LC_ALL=C.UTF-8
  unset WINELOADER WINESERVER WINEDLLPATH DISPLAY WAYLAND_DISPLAY
}

# Starts a display with the first free number. The display's process holds the lock on the clone's
# environment, and ends with this shell even when that is killed.
start_display() {
  local busy=75 number="" output process status=0
  exec {output}< <(
    exec setpriv --pdeathsig TERM \
      flock --no-fork --conflict-exit-code "$busy" --timeout "$windows_patience" "$windows_prefix.lock" \
      Xvfb -displayfd 1 -screen 0 1024x768x24 -nolisten tcp 2>"$log_directory/display.log"
  )
  process=$!
  read -r -t "$((windows_patience + 30))" -u "$output" number || true
  exec {output}<&-
  if [[ -n $number ]]; then
    windows_display=$process
    export DISPLAY=":$number"
    return 0
  fi
  kill "$process" 2>/dev/null || true
  wait "$process" || status=$?
  if ((status == busy)); then
    fail "another script of this clone is running Windows programs; try again when it has ended"
  fi
  fail "the virtual display did not start; see $log_directory/display.log"
}

end_windows_programs() {
  if [[ -d $windows_prefix ]]; then
    timeout 30 wineserver -k 2>/dev/null || timeout 10 wineserver -k9 2>/dev/null || true
  fi
}

# What the prefix is made from; a prefix with another stamp, or with none because its making was
# interrupted, is made anew.
prefix_stamp() {
  wine --version
  prefix_settings
}

# No crash dialog that waits for somebody to close it, no sound, and no menu entries even for a
# program that is started with WINEDLLOVERRIDES of its own. Managed windows wait for a window manager,
# and there is none: each would take two seconds to close.
prefix_settings() {
  cat <<'SETTINGS'
REGEDIT4

[HKEY_CURRENT_USER\Software\Wine\WineDbg]
"ShowCrashDialog"=dword:00000000

[HKEY_CURRENT_USER\Software\Wine\Drivers]
"Audio"=""

[HKEY_CURRENT_USER\Software\Wine\X11 Driver]
"Managed"="N"

[HKEY_CURRENT_USER\Software\Wine\DllOverrides]
"mscoree"=""
"mshtml"=""
"winemenubuilder.exe"=""
SETTINGS
}

prefix_is_complete() {
  [[ -f $windows_prefix/complete && $(<"$windows_prefix/complete") == "$(prefix_stamp)" ]]
}

create_prefix() {
  local settings="$windows_prefix/settings.reg"
  echo "Creating the Wine prefix build/wine-prefix (about 15 s)"
  rm -rf -- "$windows_prefix"
  mkdir -p "$windows_prefix"
  run_quietly wineserver -p
  run_quietly timeout 300 wineboot --init || fail "Wine could not create $windows_prefix"
  run_quietly wine 'C:\windows\syswow64\cmd.exe' /c exit ||
    fail "Wine does not run 32-bit programs; scripts/setup installs what that takes"
  prefix_settings >"$settings"
  run_quietly wine regedit /S "Z:${settings//\//\\}" || fail "Wine refused the prefix's settings"
  replace_links_to_home
  # The server writes the registry to its files when it ends.
  end_windows_programs
  prefix_stamp >"$windows_prefix/complete"
}

# Wine makes "Documents", "Desktop" and so on links to the user's home directory.
replace_links_to_home() {
  local link
  while IFS= read -r -d '' link; do
    rm -- "$link"
    mkdir -- "$link"
  done < <(find "$windows_prefix/drive_c/users" -type l -print0)
}

# Wine's services keep the pipes of whoever starts them, and a caller that waits for the end of such
# a pipe would wait for the services. So they are started here, without pipes. The desktop's process
# is one of them, and ends a second after the last window; the window of "winver" keeps it alive.
start_wine_server() {
  run_quietly wineserver -p || fail "Wine's server did not start"
  run_quietly wine cmd /c exit || fail "Wine does not start programs in $windows_prefix"
  wine winver </dev/null >/dev/null 2>&1 &
  disown
  for _ in {1..100}; do
    if wine winedbg --command "info proc" </dev/null 2>&1 | grep -q explorer.exe; then
      return 0
    fi
    sleep 0.1
  done
  fail "Wine's desktop did not start in $windows_prefix"
}

run_quietly() {
  "$@" </dev/null >/dev/null 2>&1
}
