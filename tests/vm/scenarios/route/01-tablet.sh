# SPDX-License-Identifier: Apache-2.0
# A tablet reaches the application of a user whom the administrator allows it, report by report.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes
start_reader reader "$(node_of 'QEMU QEMU USB Tablet')"
start_routing route "QEMU QEMU USB Tablet"
inject "pointer Tablet"
inject_routed route "point 100 200" "point 300 400" "click left" "point 32767 0"
stop_reader reader
expect_routed_as_read route reader
stop_routing route
