# SPDX-License-Identifier: Apache-2.0
# A keyboard reaches the application of a user whom the administrator allows it, report by report.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes
start_reader reader "$(node_of 'QEMU QEMU USB Keyboard')" 8
start_routing route "QEMU QEMU USB Keyboard"
inject "key a" "down shift" "key b" "up shift" "key ret"
finish reader
expect_routed_as_read route reader
stop_routing route
