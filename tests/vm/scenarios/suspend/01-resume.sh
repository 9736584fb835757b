# SPDX-License-Identifier: Apache-2.0
# After a suspend and a resume a device's input goes on, by itself or as soon as it is asked for again; an application's Input
# does so by itself.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes
bring_router
start_device device /vm/descriptors/numbered.hid
start_routing virtual "Numbered Device"
start_routing tablet "QEMU QEMU USB Tablet"
tell device "report 0000000000000001"
inject "pointer Tablet"
inject_routed tablet "point 100 200"
start input in_session "$session" /vm/programs/input-probe input 1209 0001
wait_for 60 "input" has_said input '^routing: ' 1
wait_for 30 "the first report" has_routed virtual 1

# All devices sleep, and the machine wakes by itself.
mark "asleep"
[[ -w /sys/power/pm_test ]] || fail "this kernel has no /sys/power/pm_test"
cursor="$(journalctl -q --no-pager -n 1 -o cat --show-cursor | sed -n 's/^-- cursor: //p')"
echo devices >/sys/power/pm_test
at_end "echo none >/sys/power/pm_test"
echo freeze >/sys/power/state
has_slept() { journalctl -q --no-pager -k -o cat --after-cursor="$cursor" | grep -q 'suspend debug: Waiting'; }
wait_for 30 "the kernel's word that its devices slept" has_slept

# A virtual device knows nothing of it. But the kernel's console comes to the front for the suspend, so the login session leaves
# it: the permission ends, and the client asks for another one when it is back.
mark "awake"
goes_on() { tell device "report 0000000000000002" && happens_within 5 has_routed virtual 2; }
wait_for 60 "another report" goes_on
expect_equal "what was delivered" "0000000000000001 0000000000000002" "$(reports_routed virtual | head -n 2 | xargs)"
input_goes_on() { tell device "report 0000000000000003" && happens_within 5 says input '^report 0000000000000003$'; }
wait_for 60 "the application's input to go on" input_goes_on
expect_failure "an input that has given up" says input '^(ended|stopped): '
finish input

# The kernel may have made another device of one that lost its power: then the routing has ended, and none waits for ever.
tablet_moves() { inject "point 300 400" && happens_within 5 has_routed tablet 2; }
inject "pointer Tablet"
if tablet_moves; then
  mark "the tablet goes on"
  stop_routing tablet
else
  mark "the tablet is another device"
  wait_for 30 "the end of the first device's routing" has_stopped tablet
  start_routing again "QEMU QEMU USB Tablet"
  inject_routed again "point 500 600"
fi
expect "that the router has not ended" test "$(router_process)" -gt 0
