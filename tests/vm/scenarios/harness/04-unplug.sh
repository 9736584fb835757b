# SPDX-License-Identifier: Apache-2.0
# A reader of a device that is unplugged is told so.
source /vm/lib.sh

start_device device /vm/descriptors/numbered.hid
node="$(node_of 'Numbered Device')"
start_reader reader "$node"
tell device "report 0102030405060708"
wait_until_says reader ' 0102030405060708$'
finish device
finish reader
expect "the error of a device that is gone" says reader '^gone Input/output error$'
wait_for 30 "the node to disappear" test ! -e "$node"
