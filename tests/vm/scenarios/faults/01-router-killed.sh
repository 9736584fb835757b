# SPDX-License-Identifier: Apache-2.0
# The router is killed while it routes: the application is told, and the next start is served.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
kill -KILL "$(router_process)"
expect_failure "routing through a router that is gone" finish route
start_routing again "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "a report" has_routed again 1
stop_routing again
