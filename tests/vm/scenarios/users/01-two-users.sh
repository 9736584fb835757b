# SPDX-License-Identifier: Apache-2.0
# Two users, each at the machine in turn: each is shown what is their own, root everything.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

sessions_listed() { product sessions --json | jq length; }

have_packages
active_session bob 2
bob="$session"
active_session alice 1
alice="$session"
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
expect_equal "sessions that alice is shown" 1 "$(sessions_listed)"
expect_equal "sessions that root is shown" 1 "$(wlhid sessions --json | jq length)"
number="$(wlhid sessions --json | jq '.[0].session')"
session="$bob"
expect_equal "sessions that bob is shown" 0 "$(sessions_listed)"
expect_failure "bob ending alice's session" product sessions end "$number"
session="$alice"
tell device "report 0000000000000001"
wait_for 30 "a report for alice" has_routed route 1
