# SPDX-License-Identifier: Apache-2.0
# From the lock of a screen it takes less than 100 ms until a device's input is no longer delivered.
# needs: packages
# shellcheck disable=SC2154  # patience is in /vm/limits
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
# shellcheck disable=SC2016  # expanded at the end
at_end 'set_locked "$session" false'
start_device device /vm/descriptors/numbered.hid
start_reader reader "$(node_of 'Numbered Device')"
start_routing route "Numbered Device"
tell device "numbered 3000 6000" # one every 2 ms, from before the lock until long after it
wait_for 30 "a hundred reports" has_routed route 100
locked="$(lock-session "$session")"
wait_for 30 "the routing to stop" has_stopped route
wait_until_says device '^sent 3000$' 60
stop_reader reader

last="$(reports_routed route | tail -n 1)"
# What a second reader of the node got is when the router could have got it.
milliseconds="$(awk -v last="$last" -v locked="$locked" '$2 == last { printf "%.0f", ($1 - locked) * 1000 }' \
  "$(output reader)")"
mark "the last report that was delivered came $milliseconds ms after the lock"
expect "a time of the last report" test -n "$milliseconds"
expect "that reports came after the last delivered one" test "$last" != "$(reports_read reader | tail -n 1)"
expect "that delivery ended within $((100 * patience)) ms" test "$milliseconds" -le "$((100 * patience))"
