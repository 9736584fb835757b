# SPDX-License-Identifier: Apache-2.0
# From the lock of a screen, a switch or the end of a session it takes less than 100 ms until a device's input is no longer
# delivered.
# needs: packages
# alone
# shellcheck disable=SC2154  # patience is in /vm/limits
source /vm/lib.sh
source /vm/product.sh

is_unplugged() { ! is_listed "Numbered Device"; }
deliver_until() { # deliver_until NAME WORD…: what leave-session is to do to the session
  local name="$1" left last milliseconds
  mark "$name"
  wait_for 30 "the device before to be gone" is_unplugged
  start_device "device-$name" /vm/descriptors/numbered.hid
  start_reader "reader-$name" "$(node_of 'Numbered Device')"
  start_routing "$name" "Numbered Device"
  # Out of the session's scope, else it is the logout that ends it.
  process_of "$name" >/sys/fs/cgroup/outside/cgroup.procs
  tell "device-$name" "numbered 3000 6000" # one every 2 ms, from before the end until long after it
  wait_for 30 "a hundred reports" has_routed "$name" 100
  left="$(leave-session "$session" "${@:2}")"
  wait_for 30 "the routing to stop" has_stopped "$name"
  wait_until_says "device-$name" '^sent 3000$' 60
  stop_reader "reader-$name"

  last="$(reports_routed "$name" | tail -n 1)"
  # What a second reader of the node got is when the router could have got it.
  milliseconds="$(awk -v last="$last" -v left="$left" '$2 == last { printf "%.0f", ($1 - left) * 1000 }' \
    "$(output "reader-$name")")"
  mark "$name: the last report that was delivered came $milliseconds ms afterwards"
  expect "a time of the last report" test -n "$milliseconds"
  expect "that reports came after the last delivered one" \
    test "$last" != "$(reports_read "reader-$name" | tail -n 1)"
  expect "that delivery ended within $((100 * patience)) ms" test "$milliseconds" -le "$((100 * patience))"
  finish "device-$name"
}

have_packages
mkdir -p /sys/fs/cgroup/outside
active_session bob 2
other="$session"
active_session alice 1
# shellcheck disable=SC2016  # expanded at the end
at_end 'set_locked "$session" false || true'
deliver_until lock lock
set_locked "$session" false
deliver_until switch switch "$other"
bring_to_front "$session"
deliver_until logout end
