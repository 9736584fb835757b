# SPDX-License-Identifier: Apache-2.0
# 1,000 reports in 50 ms are routed whole.
# needs: packages
# alone
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
keep_router_beside_device
tell device "numbered 1000 50"
wait_until_says device '^sent 1000$'
wait_for 60 "1,000 reports" has_routed route 1000
reports_routed route >"$scratch/routed"
expect_same "what was sent and what was routed" "$scratch/device.sent" "$scratch/routed"
stop_routing route
