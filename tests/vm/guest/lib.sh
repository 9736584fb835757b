# SPDX-License-Identifier: Apache-2.0

# What scenarios are written with; sourced by each. A scenario passes if it reaches its end: any failing command, unless
# its failure is handled, ends it, and so does anything that does not happen in time.
# shellcheck disable=SC2154  # patience is in /vm/limits

set -eEuo pipefail
PATH="/vm/programs:$PATH"
source /vm/limits
scratch="$(mktemp -d /run/scenario.XXXXXX)"
chmod 755 "$scratch"

cleanups=()
at_end() { cleanups+=("$*"); } # at_end COMMAND…: the last first
clean_up() {
  local status=$? index
  [[ $status -eq 0 ]] || last_words
  for ((index = ${#cleanups[@]} - 1; index >= 0; --index)); do eval "${cleanups[index]}" || true; done
  rm -rf "$scratch"
}
last_words() { # of the programs that were started
  local name
  for name in "${!pids[@]}"; do
    [[ -s $(output "$name") ]] || continue
    printf -- '--- the last lines of %s\n' "$name"
    tail -n 5 "$(output "$name")" | cut -c 1-300
  done
}
trap clean_up EXIT
trap 'printf "%s:%s: failed: %s\n" "${BASH_SOURCE[0]##*/}" "$LINENO" "$BASH_COMMAND" >&2' ERR

mark() { printf -- '--- %s (%s s)\n' "$*" "$(cut -d' ' -f1 /proc/uptime)"; } # mark TEXT…: where in a scenario this is
fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

expect() { # expect WHAT COMMAND…
  local what="$1"
  shift
  "$@" || fail "$what ($*: status $?)"
}
# A command that could not be run at all, or was killed, has not said no.
expect_failure() { # expect_failure WHAT COMMAND…
  local what="$1" status=0
  shift
  "$@" || status=$?
  [[ $status -ne 0 ]] || fail "$what ($* should have failed)"
  [[ $status -lt 125 ]] || fail "$what ($* did not run to its end: status $status)"
}
expect_equal() { # expect_equal WHAT EXPECTED ACTUAL
  [[ $2 == "$3" ]] || fail "$1: expected \"$2\", not \"$3\""
}
expect_same() { # expect_same WHAT FILE FILE
  diff "$2" "$3" >"$scratch/difference" && return
  grep -m 20 '^<' "$scratch/difference" || true # of both sides, however much differs
  grep -m 20 '^>' "$scratch/difference" || true
  fail "$1: $2 and $3 differ as above"
}

# For what has no event to wait for in a shell.
happens_within() { # happens_within SECONDS COMMAND…: whether the command succeeds in time
  local end=$((SECONDS + $1 * patience + 1))
  shift
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < end)) || return 1
    sleep 0.1
  done
}
wait_for() { # wait_for SECONDS WHAT COMMAND…: until the command succeeds
  happens_within "$1" "${@:3}" || fail "not in time: $2"
}

# --- Programs that are told what to do while they run. Their output is in "$(output NAME)".

declare -A inputs=() pids=()
output() { printf '%s/%s.out' "$scratch" "$1"; }

start() { # start NAME COMMAND…: in the background; tell and finish are its input
  local name="$1" input
  shift
  rm -f "$scratch/$name.in"
  mkfifo "$scratch/$name.in"
  (
    for input in "${inputs[@]}"; do exec {input}>&-; done
    "$@" <"$scratch/$name.in" >"$(output "$name")" 2>&1
  ) &
  pids[$name]=$!
  exec {input}>"$scratch/$name.in"
  inputs[$name]=$input
}
tell() { printf '%s\n' "$2" >&"${inputs[$1]}"; } # tell NAME LINE
end_input() { # end_input NAME
  local input="${inputs[$1]}"
  exec {input}>&-
  unset "inputs[$1]"
}
says() { grep -qE "$2" "$(output "$1")"; } # says NAME REGEX: a line of its output
has_said() { [[ $(grep -cE "$2" "$(output "$1")") -ge $3 ]]; } # has_said NAME REGEX TIMES
wait_until_says() { # wait_until_says NAME REGEX [SECONDS]
  happens_within "${3:-30}" says "$1" "$2" && return
  tail -n 20 "$(output "$1")"
  fail "not in time: $1 to say \"$2\"; its last words are above"
}
process_of() { # process_of NAME: of the program itself, below the shells of this scenario that started it
  local pid="${pids[$1]}"
  while cmp -s "/proc/$pid/cmdline" "/proc/$$/cmdline"; do pid="$(pgrep -o -P "$pid")"; done
  printf '%s\n' "$pid"
}
has_ended() { ! kill -0 "${pids[$1]}" 2>/dev/null; }
finish() { # finish NAME: its status
  [[ -z ${inputs[$1]:-} ]] || end_input "$1"
  wait_for 30 "$1 to end" has_ended "$1"
  wait "${pids[$1]}"
}

# --- Devices

# The hidraw node of the newest device with this name: the kernel numbers devices in order, nodes not.
node_now() { # node_now NAME
  local entry device
  for entry in /sys/class/hidraw/hidraw*; do
    grep -qxF "HID_NAME=$1" "$entry/device/uevent" 2>/dev/null || continue
    device="$(readlink -f "$entry/device")"
    printf '%s /dev/%s\n' "${device##*.}" "${entry##*/}"
  done | sort | tail -n 1 | cut -d' ' -f2 | grep .
}
node_of() { # node_of NAME: waits for it
  wait_for 30 "a device $1" node_now "$1"
  node_now "$1"
}
node_count() { find /dev -maxdepth 1 -name 'hidraw*' | wc -l; }
nodes_are() { [[ $(node_count) -eq $1 ]]; } # nodes_are NUMBER

# The reports in what node-reader printed, one a line.
reports_read() { awk '$1 ~ /^[0-9]+\.[0-9]+$/ {print $2}' "$(output "$1")"; } # reports_read NAME

# A virtual device that obeys tell NAME; what it has sent is in $scratch/NAME.sent. Devices and readers share a processor:
# the kernel keeps 64 reports for a reader, and the host may let one of the guest's processors wait while another runs.
start_device() { # start_device NAME RECORDING
  start "$1" taskset -c 0 uhid-device "$2" "$scratch/$1.sent"
  wait_until_says "$1" '^started$'
}
start_reader() { # start_reader NAME NODE [COUNT]
  start "$1" taskset -c 0 node-reader "${@:2}"
  wait_until_says "$1" '^open$'
}
stop_reader() { # stop_reader NAME
  kill -TERM "$(process_of "$1")"
  finish "$1"
}

# --- Users and sessions

environment_of() { # environment_of USER: the words for env
  printf '%s\n' "HOME=/home/$1" "USER=$1" "LOGNAME=$1" "PATH=/vm/programs:/usr/local/bin:/usr/bin:/bin" LC_ALL=C.UTF-8 \
    ${WLHID_ROOT:+"WLHID_ROOT=$WLHID_ROOT"}
}
# Outside any session, as a service or a job of cron would be.
run_as() { # run_as USER COMMAND…
  local user="$1" environment
  shift
  mapfile -t environment < <(environment_of "$user")
  setpriv --reuid "$user" --regid "$user" --init-groups env -i "${environment[@]}" "$@"
}

session_of() { sed -n 's|^0::.*/session-\([^/]*\)\.scope.*|\1|p' "/proc/$1/cgroup"; } # session_of PID
session_property() { loginctl show-session "$1" --property "$2" --value; }            # session_property SESSION NAME
has_session() { [[ -n $(session_of "$1") ]]; }                                        # has_session PID

# A session at a terminal of the seat, which stays for further scenarios: a login takes an emulator seconds. The session in
# front is the active one.
local_session() { # local_session USER TERMINAL: sets $session
  local unit="$1-at-tty$2" process
  if ! systemctl -q is-active "$unit"; then
    systemctl reset-failed "$unit" 2>/dev/null || true
    systemd-run -q --unit="$unit" -p PAMName=login -p User="$1" -p TTYPath="/dev/tty$2" -p StandardInput=tty \
      -p StandardOutput=tty -p UtmpIdentifier="tty$2" -p UtmpMode=user sleep infinity
  fi
  process="$(systemctl show --property MainPID --value "$unit")"
  wait_for 60 "a session of $1" has_session "$process"
  session="$(session_of "$process")"
}
active_session() { # active_session USER [TERMINAL]: sets $session
  local_session "$1" "${2:-1}"
  bring_to_front "$session"
}
bring_to_front() { # bring_to_front SESSION
  loginctl activate "$1"
  wait_for 30 "session $1 to be active" is_state "$1" active
}
is_state() { [[ $(session_property "$1" State) == "$2" ]]; } # is_state SESSION STATE

# A session without a seat, that came over the network.
remote_session() { # remote_session USER: sets $session
  start "login-$1" script -qfec "login -h 192.0.2.7 -f $1" /dev/null
  at_end "loginctl terminate-session \$(session_of_user $1) 2>/dev/null"
  wait_for 60 "a remote session of $1" session_of_user "$1"
  session="$(session_of_user "$1")"
}
session_of_user() { # session_of_user USER: of its shell
  local pid
  for pid in $(pgrep -u "$1" -x bash); do
    if has_session "$pid"; then
      session_of "$pid"
      return 0
    fi
  done
  return 1
}

login_manager() { # login_manager OBJECT INTERFACE WORD…: a call, as busctl takes it
  busctl call org.freedesktop.login1 "/org/freedesktop/login1$1" "org.freedesktop.login1.$2" "${@:3}"
}
set_locked() { # set_locked SESSION true|false: what a screen locker says
  local object
  object="$(login_manager "" Manager GetSession s "$1" | sed -n 's|^o "/org/freedesktop/login1\(.*\)"$|\1|p')"
  login_manager "$object" Session SetLockedHint b "$2"
}
is_gone() { ! loginctl show-session "$1"; } # is_gone SESSION
log_out() { # log_out SESSION
  loginctl terminate-session "$1"
  wait_for 30 "session $1 to end" is_gone "$1"
}

# As the session's user, and as one of its processes.
in_session() ( # in_session SESSION COMMAND…
  user="$(session_property "$1" Name)"
  become "$user" "user-$(id -u "$user").slice/session-$1.scope" env "XDG_SESSION_ID=$1" "${@:2}"
)
# As a desktop starts applications: as units of the user's own manager, outside the session's scope.
in_user_unit() ( # in_user_unit USER COMMAND…
  become "$1" "user-$(id -u "$1").slice/user@$(id -u "$1").service/app.slice/app-probe.scope" "${@:2}"
)
become() { # become USER GROUP COMMAND…: this process becomes the user's command in that control group
  local user="$1" group="/sys/fs/cgroup/user.slice/$2" environment
  shift 2
  mapfile -t environment < <(environment_of "$user")
  mkdir -p "$group" && echo "$BASHPID" >"$group/cgroup.procs" || exit 125
  exec setpriv --reuid "$user" --regid "$user" --init-groups env -i "${environment[@]}" \
    "XDG_RUNTIME_DIR=/run/user/$(id -u "$user")" "$@"
}
