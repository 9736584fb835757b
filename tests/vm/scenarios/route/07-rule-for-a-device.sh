# SPDX-License-Identifier: Apache-2.0
# An administrator's rule can decide by what a question says of the device and of the program, which is what the program
# calls itself: the router may not look at other users' processes.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes 'action.lookup("name") == "QEMU QEMU USB Tablet" && action.lookup("vendor") == "0627" &&
  action.lookup("product") == "0001" && action.lookup("class") == "sensitive" && action.lookup("program") == "wlhid"'
start_routing route "QEMU QEMU USB Tablet"
inject "pointer Tablet"
inject_routed route "point 100 200"
stop_routing route

start refused in_session "$session" wlhid route --json "$(device_id 'QEMU QEMU USB Mouse')"
wait_for 60 "a refusal of another device" is_refused refused
expect_failure "routing that was refused" finish refused
