# shellcheck shell=bash
# The Windows run-time environment of the project's scripts: a virtual display and one or more
# machines. A machine is a Wine prefix with a server, registry, processes and disk C: of its own,
# build/windows/NUMBER. A script that needs Windows programs sources this file and does
#
#   trap stop_windows EXIT
#   trap 'exit 130' INT   # a Windows program interrupted by Ctrl-C does not end the script
#   start_windows         # after windows_machines=NUMBER, if programs are to run side by side
#
# and runs them with scripts/wine-run, each on a machine that nobody else uses meanwhile. Nothing of
# the user's own Wine set-up, desktop or home directory is read or changed. One script at a time holds
# the environment of a clone; the scripts that it starts share it.

project_root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
# shellcheck disable=SC2034  # for the scripts that source this file
log_directory="$project_root/build/logs"

windows_directory="$project_root/build/windows"
# What the machines are copied from; no program runs in it.
windows_original="$windows_directory/original"
windows_display=""

# How many machines start_windows starts.
windows_machines=1
# For how many seconds start_windows waits for another script's end.
windows_patience=0

fail() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# True when this process was started by a script that holds this clone's environment.
windows_is_running() {
  [[ ${CORVELLAN_WINDOWS:-} == "$windows_directory" ]]
}

# Returns when Windows programs can be run, on as many machines as wanted. Does nothing in a script
# that another one started; while a script that did not start this one runs Windows programs, that is
# an error.
start_windows() {
  local number starts=() start
  if windows_is_running; then
    return 0
  fi
  require_windows_tools
  prepare_directories
  export_windows_variables
  start_display
  fix_addresses
  # Programs and servers that a killed script left behind; nobody else may use them now.
  end_windows_programs
  if ! is_complete "$windows_original"; then
    create_original
  fi
  for ((number = 1; number <= windows_machines; ++number)); do
    start_machine "$number" &
    starts+=("$!")
  done
  for start in "${starts[@]}"; do
    wait "$start" || exit 1
  done
  export WINEPREFIX="$windows_directory/1"
  export CORVELLAN_WINDOWS="$windows_directory" CORVELLAN_MACHINES="$windows_machines"
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

# Runs a command, and with it all Windows programs that it starts, on a machine that nobody else uses
# meanwhile; waits until one is free. A command that runs on a machine already stays there.
with_machine() {
  local lock number=0 status=0
  if [[ -n ${CORVELLAN_MACHINE:-} ]]; then
    "$@"
    return
  fi
  until exec {lock}>>"$windows_directory/$((number + 1)).user" && flock --nonblock "$lock"; do
    exec {lock}>&-
    number=$(((number + 1) % CORVELLAN_MACHINES))
    ((number > 0)) || sleep 0.1
  done
  number=$((number + 1))
  # The programs do not inherit the lock: one that goes on running must not keep the machine.
  run_alone "$number" "$@" {lock}>&- || status=$?
  exec {lock}>&-
  return "$status"
}

# The file names the machine's user, and is empty when it has none. The name of one that was killed, or
# that left programs running, is still there: then the machine starts anew.
run_alone() {
  local number=$1 user="$windows_directory/$1.user" status=0
  shift
  if [[ -s $user ]]; then
    end_programs_of "$windows_directory/$number"
    start_machine "$number"
  fi
  echo "$$" >"$user"
  WINEPREFIX="$windows_directory/$number" CORVELLAN_MACHINE="$number" "$@" || status=$?
  if has_left_programs; then
    end_programs_of "$windows_directory/$number"
  else
    : >"$user"
  fi
  return "$status"
}

# Whoever reads what this script prints, as ctest does, would wait for the end of programs that were
# left running: they have the same pipe. So may Wine's server, for a program that was killed before it
# had begun. It closes the pipes of ordinary ones a moment after their end.
has_left_programs() {
  local pipe
  pipe=$(readlink "/proc/$$/fd/1")
  [[ $pipe == pipe:* ]] || return 1
  for _ in {1..50}; do
    is_open_in_wine "$pipe" || return 1
    sleep 0.1
  done
  return 0
}

is_open_in_wine() {
  local pattern=$1 file
  pattern=${pattern//[/\\[}
  pattern=${pattern//]/\\]}
  while IFS= read -r file; do
    if [[ $(readlink "${file%/fd/*}/exe" 2>/dev/null) == */wine* ]]; then
      return 0
    fi
  done < <(find /proc/[0-9]*/fd -maxdepth 1 -lname "$pattern" 2>/dev/null)
  return 1
}

require_windows_tools() {
  local tool
  for tool in wine wineserver Xvfb; do
    command -v "$tool" >/dev/null || fail "$tool is missing; scripts/setup installs it"
  done
}

prepare_directories() {
  if [[ -e $windows_directory && ! -O $windows_directory ]]; then
    fail "$windows_directory belongs to another user; delete it, or run as that user"
  fi
  mkdir -p "$windows_directory" "$log_directory"
}

export_windows_variables() {
  export WINEARCH=win64
  export WINEDEBUG=-all
  # Neither the offers to download a .NET or an HTML engine, nor entries in the user's menus.
  export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
  # Font caches would otherwise be written to the user's home directory.
  export XDG_CACHE_HOME="$windows_directory/cache"
  # File names that are not ASCII reach Windows programs only through a UTF-8 locale.
  export LC_ALL=C.UTF-8
  unset CORVELLAN_MACHINE WINELOADER WINESERVER WINEDLLPATH DISPLAY WAYLAND_DISPLAY
}

# Starts a display with the first free number. The display's process holds the lock on the clone's
# environment, and ends with this shell even when that is killed.
start_display() {
  local busy=75 number="" output process status=0
  exec {output}< <(
    exec setpriv --pdeathsig TERM \
      flock --no-fork --conflict-exit-code "$busy" --timeout "$windows_patience" "$windows_directory/lock" \
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

# The loader of Wine 8 has a fixed address, and Linux begins the heap of such a program at a random one
# within the next gigabyte. One start in some two thousand failed with error 1359 because the heap lay
# where the data is that Windows shares with every process. So "wine" is found first here and starts
# without random addresses, where the system lets it.
fix_addresses() {
  local directory="$windows_directory/bin"
  if ! setarch --addr-no-randomize true 2>/dev/null; then
    return 0
  fi
  mkdir -p "$directory"
  printf '#!/bin/sh\nexec setarch --addr-no-randomize %q "$@"\n' "$(command -v wine)" >"$directory/wine"
  chmod +x "$directory/wine"
  export PATH="$directory:$PATH"
}

# On all machines, also on those of a script that wanted more of them.
end_windows_programs() {
  local prefix
  for prefix in "$windows_directory"/*/; do
    if [[ -f $prefix/complete ]]; then
      end_programs_of "$prefix"
    fi
  done
  rm -f -- "$windows_directory"/*.user
}

end_programs_of() {
  local -x WINEPREFIX=$1
  timeout 30 wineserver -k 2>/dev/null || timeout 10 wineserver -k9 2>/dev/null || true
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

is_complete() {
  [[ -f $1/complete && $(<"$1/complete") == "$(prefix_stamp)" ]]
}

create_original() {
  local -x WINEPREFIX="$windows_original"
  local settings="$windows_original/settings.reg"
  echo "Creating the Wine prefix build/windows/original (about 15 s)"
  rm -rf -- "$windows_original"
  mkdir -p "$windows_original"
  run_quietly wineserver -p
  run_quietly timeout 300 wineboot --init || fail "Wine could not create $windows_original"
  run_quietly wine 'C:\windows\syswow64\cmd.exe' /c exit ||
    fail "Wine does not run 32-bit programs; scripts/setup installs what that takes"
  prefix_settings >"$settings"
  run_quietly wine regedit /S "Z:${settings//\//\\}" || fail "Wine refused the prefix's settings"
  replace_links_to_home
  # The server writes the registry to its files when it ends.
  end_programs_of "$windows_original"
  prefix_stamp >"$windows_original/complete"
}

start_machine() {
  local -x WINEPREFIX="$windows_directory/$1"
  if ! is_complete "$WINEPREFIX"; then
    create_machine "$WINEPREFIX"
  fi
  start_wine_server
}

# The machines share the programs and libraries of Windows itself, a gigabyte, which nobody changes.
create_machine() {
  local windows="./drive_c/windows"
  rm -rf -- "$1"
  mkdir -p "$1/$windows"
  cp --archive --link -- "$windows_original/$windows"/{system32,syswow64} "$1/$windows/"
  tar --create --directory "$windows_original" --exclude ./wineserver --exclude ./complete \
    --exclude "$windows/system32" --exclude "$windows/syswow64" . | tar --extract --directory "$1"
  cp -- "$windows_original/complete" "$1/"
}

# Wine makes "Documents", "Desktop" and so on links to the user's home directory.
replace_links_to_home() {
  local link
  while IFS= read -r -d '' link; do
    rm -- "$link"
    mkdir -- "$link"
  done < <(find "$WINEPREFIX/drive_c/users" -type l -print0)
}

# Wine's services keep the pipes of whoever starts them, and a caller that waits for the end of such
# a pipe would wait for the services. So they are started here, without pipes. The desktop's process
# is one of them, and ends a second after the last window; the window of "winver" keeps it alive.
start_wine_server() {
  run_quietly wineserver -p || fail "Wine's server did not start"
  run_quietly wine cmd /c exit || fail "Wine does not start programs in $WINEPREFIX"
  wine winver </dev/null >/dev/null 2>&1 &
  disown
  for _ in {1..100}; do
    if wine winedbg --command "info proc" </dev/null 2>&1 | grep -q explorer.exe; then
      return 0
    fi
    sleep 0.1
  done
  fail "Wine's desktop did not start in $WINEPREFIX"
}

run_quietly() {
  "$@" </dev/null >/dev/null 2>&1
}
