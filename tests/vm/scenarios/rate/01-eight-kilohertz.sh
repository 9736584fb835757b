# SPDX-License-Identifier: Apache-2.0
# 8,000 reports a second for a minute: each is either routed, in order, or counted as lost.
# needs: packages
# seconds: 300
source /vm/lib.sh
source /vm/product.sh

last_is_routed() { [[ $(tail -n 1 "$scratch/device.sent") == $(reports_routed route | tail -n 1) ]]; }

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
keep_router_beside_device
tell device "numbered 480000 60000"
wait_until_says device '^sent 480000$' 200
wait_for 60 "the last report" last_is_routed
reports_routed route >"$scratch/routed"
lost="$(comm -23 <(sort "$scratch/device.sent") <(sort "$scratch/routed") | wc -l)"
invented="$(comm -13 <(sort "$scratch/device.sent") <(sort "$scratch/routed") | wc -l)"
mark "$lost of 480000 lost"
expect_equal "reports that were never sent" 0 "$invented"
expect_equal "lost reports" 0 "$lost"
expect_same "the order" "$scratch/device.sent" "$scratch/routed"
