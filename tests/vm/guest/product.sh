# SPDX-License-Identifier: Apache-2.0

# What scenarios of the installed packages are written with; sourced after lib.sh.
# shellcheck disable=SC2154  # lib.sh sets scratch and session

export WLHID_ROOT=/ # not a directory of the user's, as it is without packages
LABEL=com.quillmar.hideventrouter
# shellcheck disable=SC2034  # for scenarios
BLESSED="/var/lib/wlhid/helpers/$LABEL"
ACTION="$LABEL" # the prefix of the polkit actions

# --- Packages

apt_get() { DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0 "$@"; }
package_names() { sed -n 's/^Package: //p' /vm/packages/Packages | sort -u; }
version_in() { sed -n 's/^Version: //p' "/vm/$1/Packages" | head -n 1; } # version_in packages|newer

use_packages_of() { # use_packages_of packages|newer…: what apt sees
  local directory
  for directory in "$@"; do echo "deb [trusted=yes] file:/vm/$directory ./"; done >/etc/apt/sources.list
  apt_get update
}
install_version() { # install_version VERSION: of every package
  local names
  mapfile -t names < <(package_names)
  apt_get install --allow-downgrades "${names[@]/%/=$1}"
}
# For scenarios that have nothing to do with installing: once a machine.
have_packages() {
  [[ ! -S /run/wlhid/$LABEL.sock ]] || return 0
  use_packages_of packages
  install_version "$(version_in packages)"
  wait_for 30 "the router's socket" test -S "/run/wlhid/$LABEL.sock"
}
purge_packages() {
  local names
  mapfile -t names < <(package_names)
  apt_get purge "${names[@]}"
}

# --- Decisions of an administrator, and questions to one

# By a rule, which is in force when this returns.
decide() { # decide ACTION USER yes|no [CONDITION]: an expression of a polkit rule
  local file="/etc/polkit-1/rules.d/10-$1-$2.rules"
  cat >"$file.new" <<RULE
polkit.addRule(function(action, subject) {
  if (action.id == "$ACTION.$1" && subject.user == "$2" && (${4:-true})) return polkit.Result.${3^^};
});
RULE
  change_rules mv "$file.new" "$file"
  at_end change_rules rm -f "$file"
}
change_rules() { # change_rules COMMAND…: and waits until polkit has read them
  local before
  before="$(times_rules_were_read)"
  "$@"
  happens_within 30 rules_were_read_since "$before" || fail "not in time: polkit to read its rules after $*"
}
times_rules_were_read() { journalctl -q --no-pager -u polkit.service -o cat | grep -c 'Finished loading' || true; }
rules_were_read_since() { [[ $(times_rules_were_read) -gt $1 ]]; } # rules_were_read_since TIMES

# Runs a command that waits to be let go, so that its process is known before it asks for anything.
start_held() { # start_held NAME SESSION COMMAND…: begins with let_go NAME
  # shellcheck disable=SC2016  # the variables are the inner shell's
  start "$1" in_session "$2" bash -c 'echo "process $$"; read -r _; exec "$@"' held "${@:3}"
  wait_until_says "$1" '^process [0-9]+$'
}
held_process() { sed -n 's/^process //p' "$(output "$1")"; } # held_process NAME
let_go() { tell "$1" go; }

# Somebody at a terminal who will be asked what the process wants, once registered.
start_agent() { # start_agent NAME PID
  mkfifo "$scratch/$1.registered"
  start "$1" script -qfec "exec 9>$scratch/$1.registered; exec pkttyagent --process $2 --notify-fd 9" /dev/null
  timeout "$((30 * patience))" cat "$scratch/$1.registered" || fail "the agent has not registered"
}
answer() { # answer NAME PASSWORD
  wait_until_says "$1" 'Password:' 60
  tell "$1" "$2"
}

# --- Devices and routing

product() { in_session "$session" wlhid "$@"; } # product WORD…: the command, in the scenario's session
is_listed() { product devices --json | jq -e --arg name "$1" 'any(.[]; .name == $name)'; } # is_listed NAME
device_id() { # device_id NAME: waits for the device
  wait_for 30 "$1 to be listed" is_listed "$1"
  product devices --json | jq -r --arg name "$1" 'map(select(.name == $name)) | last | .registryEntryID'
}
start_routing() { # start_routing NAME DEVICE: in the scenario's session, until input arrives
  start "$1" in_session "$session" wlhid route --json "$(device_id "$2")"
  wait_until_says "$1" '"status":4'
}
reports_routed() { sed -n 's/.*"report":{[^}]*"data":"\([0-9a-f]*\)".*/\1/p' "$(output "$1")"; } # reports_routed NAME
has_routed() { [[ $(reports_routed "$1" | wc -l) -ge $2 ]]; }                                     # has_routed NAME NUMBER
# One action after the other: what has not been handed over is merged with the movement after it.
inject_routed() { # inject_routed NAME ACTION…: until all that each action makes has been routed
  local name="$1" action reports
  shift
  for action; do
    reports="$(reports_routed "$name" | wc -l)"
    case "$action" in click* | key*) ((reports += 2)) ;; *) ((reports += 1)) ;; esac
    inject "$action"
    wait_for 30 "$action to be routed" has_routed "$name" "$reports"
  done
}
stop_routing() { # stop_routing NAME
  kill -INT "$(process_of "$1")"
  finish "$1"
}
is_refused() { says "$1" '"error"|"status":3'; } # is_refused NAME
# It has been told that no more input comes, or has ended.
has_stopped() { # has_stopped NAME
  has_ended "$1" || [[ $(grep -E '"(status|error|ended)"' "$(output "$1")" | tail -n 1) != *'"status":4'* ]]
}

# What a second reader of the node has read is what was routed, report by report.
expect_routed_as_read() { # expect_routed_as_read ROUTING READER
  wait_for 60 "everything that was read to be routed" has_routed "$1" "$(reports_read "$2" | wc -l)"
  reports_read "$2" >"$scratch/read"
  reports_routed "$1" >"$scratch/routed"
  expect "that anything was read" test -s "$scratch/read"
  expect_same "what was read and what was routed" "$scratch/read" "$scratch/routed"
}

# An application sees the router as installed if it is the one that the application brings itself.
bring_router() { # where delegate-probe looks for its copy
  install -D -m 644 "/usr/lib/wlhid/helpers/$LABEL" "/vm/programs/Contents/Library/LaunchServices/$LABEL"
}

# The emulator stops one processor of the guest for milliseconds while the other runs on, which no real machine does, and the
# kernel keeps a reader's last 64 reports only: on the device's processor, reader and device are stopped together.
keep_router_beside_device() { taskset -a -c -p 0 "$(router_process)"; } # once it routes
router_process() { systemctl show --property MainPID --value wlhid-router.service; }
daemon_process() { systemctl show --property MainPID --value wlhid-jobd.service; }
