# SPDX-License-Identifier: Apache-2.0
# An application's input goes on by itself after the router was killed, and after its device was unplugged and plugged in.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

number=0
report_arrives() {
  tell device "report 000000000000000$((++number))"
  wait_until_says input "^report 000000000000000$number$"
}

have_packages
active_session alice
bring_router
start_device device /vm/descriptors/numbered.hid
start input in_session "$session" /vm/programs/input-probe input 1209 0001
wait_for 60 "input" has_said input '^routing: ' 1
report_arrives

mark "the router is killed"
kill -KILL "$(router_process)"
wait_for 60 "input again" has_said input '^routing: ' 2
report_arrives

mark "the device is unplugged"
finish device
wait_until_says input '^waiting for the device: ' 60
start_device device /vm/descriptors/numbered.hid
wait_for 60 "input once more" has_said input '^routing: ' 3
report_arrives
expect_failure "an input that has given up" says input '^(ended|stopped): '
finish input
