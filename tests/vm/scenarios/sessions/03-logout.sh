# SPDX-License-Identifier: Apache-2.0
# A process that outlives its session receives nothing more.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "the first report" has_routed route 1

# Out of the session's scope, as a program that stays would go.
mkdir -p /sys/fs/cgroup/outside
process_of route >/sys/fs/cgroup/outside/cgroup.procs
log_out "$session"
tell device "report 0000000000000002"
wait_for 30 "the routing to stop" has_stopped route
expect_equal "what was delivered" "0000000000000001" "$(reports_routed route | xargs)"
