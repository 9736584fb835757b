# SPDX-License-Identifier: Apache-2.0
# What is typed and moved on the machine arrives as reports of the device that was meant, and of no other.
source /vm/lib.sh

start_reader keyboard "$(node_of 'QEMU QEMU USB Keyboard')" 4
start_reader tablet "$(node_of 'QEMU QEMU USB Tablet')"
start_reader mouse "$(node_of 'QEMU QEMU USB Mouse')"

mark "keyboard"
inject "key a" "key b"
finish keyboard
expect_equal "what was typed" "0000040000000000 0000000000000000 0000050000000000 0000000000000000" \
  "$(reports_read keyboard | xargs)"

mark "tablet"
inject "pointer Tablet" "point 100 200"
wait_until_says tablet '^[0-9.]+ 006400c8'

mark "mouse"
inject "pointer Mouse" "move 5 -3"
wait_until_says mouse '^[0-9.]+ 0005fd'
stop_reader mouse
stop_reader tablet
expect_equal "reports of the mouse" 1 "$(reports_read mouse | wc -l)"
