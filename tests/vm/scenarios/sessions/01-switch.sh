# SPDX-License-Identifier: Apache-2.0
# Who is no longer in front receives nothing, and has to ask again when back.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session bob 2
other="$session"
active_session alice 1
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "the first report" has_routed route 1

mark "bob in front"
bring_to_front "$other"
wait_for 30 "the routing to stop" has_stopped route
tell device "report 0000000000000002"

mark "alice in front"
bring_to_front "$session"
start_routing again "Numbered Device"
tell device "report 0000000000000003"
wait_for 30 "the third report" has_routed again 1
expect_equal "what alice received before" "0000000000000001" "$(reports_routed route | xargs)"
expect_equal "what alice received afterwards" "0000000000000003" "$(reports_routed again | xargs)"
