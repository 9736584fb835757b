# SPDX-License-Identifier: Apache-2.0
# A mouse reaches the application of a user whom the administrator allows it, report by report.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes
start_reader reader "$(node_of 'QEMU QEMU USB Mouse')"
start_routing route "QEMU QEMU USB Mouse"
inject "pointer Mouse"
inject_routed route "move 5 -3" "click right" "move -120 80"
stop_reader reader
expect_routed_as_read route reader
stop_routing route
