# SPDX-License-Identifier: Apache-2.0
# A USB mouse is plugged in while the machine runs, used, and unplugged.
source /vm/lib.sh

wait_for 60 "three hidraw nodes" nodes_are 3
inject "plug usb-mouse second"
at_end "inject 'unplug second' 2>/dev/null"
wait_for 30 "a fourth node" nodes_are 4
start_reader reader "$(node_of 'QEMU QEMU USB Mouse')"
inject "pointer Mouse" "move 7 7" "click left" # either mouse may be the one that the machine moves
inject "unplug second"
finish reader
expect "the error of a device that is gone" says reader '^gone Input/output error$'
wait_for 30 "three nodes again" nodes_are 3
