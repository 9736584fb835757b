# SPDX-License-Identifier: Apache-2.0
# Nothing that is typed or moved on a locked screen is delivered.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
# shellcheck disable=SC2016  # expanded at the end
at_end 'set_locked "$session" false'
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "the first report" has_routed route 1

set_locked "$session" true
wait_for 30 "the routing to stop" has_stopped route
tell device "numbered 100 500"
wait_until_says device '^sent 100$'
set_locked "$session" false
start_routing again "Numbered Device"
tell device "report 0000000000000003"
wait_for 30 "the last report" has_routed again 1
expect_equal "what was delivered" "0000000000000001 0000000000000003" \
  "$({ reports_routed route; reports_routed again; } | xargs)"
