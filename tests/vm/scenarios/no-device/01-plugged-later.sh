# SPDX-License-Identifier: Apache-2.0
# The first device of the machine is plugged in long after the router's socket was there.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

expect "that there is no device" nodes_are 0
have_packages
active_session alice
expect_equal "devices listed" "[]" "$(product devices --json | jq -c .)"
product doctor || true # it may well complain
decide route-sensitive alice yes
inject "plug usb-tablet first"
at_end "inject 'unplug first' 2>/dev/null"
start_reader reader "$(node_of 'QEMU QEMU USB Tablet')"
start_routing route "QEMU QEMU USB Tablet"
inject_routed route "point 100 200" "point 200 300"
stop_reader reader
expect_routed_as_read route reader
