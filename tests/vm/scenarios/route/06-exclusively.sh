# SPDX-License-Identifier: Apache-2.0
# A device that one client has taken for itself reaches no other: not a second client, not the system's own input.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

EXCLUSIVE_ACCESS=-536870203
input_nodes_of() { # input_nodes_of NODE: the event nodes of the same device
  find "/sys/class/hidraw/$(basename "$1")/device/input" -maxdepth 2 -name 'event*' -printf '/dev/input/%f\n'
}

have_packages
active_session alice
decide route-sensitive alice yes
decide take-exclusively alice yes
node="$(node_of 'QEMU QEMU USB Tablet')"
id="$(device_id 'QEMU QEMU USB Tablet')"
start owner in_session "$session" wlhid route --json --mode 1 "$id"
wait_until_says owner '"status":4'
start second in_session "$session" wlhid route --json --mode 1 "$id"
wait_until_says second "\"code\":$EXCLUSIVE_ACCESS"
start system cat "$(input_nodes_of "$node" | head -n 1)"

inject "pointer Tablet"
inject_routed owner "point 100 200" "point 300 400"
expect_equal "reports for the second client" 0 "$(reports_routed second | wc -l)"
expect_failure "input for the system" test -s "$(output system)"

mark "given back"
stop_routing owner
inject "pointer Tablet" "point 500 600"
wait_for 30 "input for the system" test -s "$(output system)"
