# SPDX-License-Identifier: Apache-2.0
# The end of an administrator's grant is the end of what is routed by it, and of nothing else.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
keyboard="$(device_id 'QEMU QEMU USB Keyboard')"
wlhid grant "$keyboard" --user alice
at_end "wlhid revoke 1 2>/dev/null"
start_device device /vm/descriptors/numbered.hid
start_routing granted "QEMU QEMU USB Keyboard"
start_routing ordinary "Numbered Device"
inject "key a"
wait_for 30 "what was typed" has_routed granted 2

mark "revoked"
wlhid revoke 1
wait_for 30 "the routing to stop" has_stopped granted
inject "key b"
tell device "report 0000000000000001"
wait_for 30 "the ordinary device's report" has_routed ordinary 1
expect_equal "reports of the keyboard" 2 "$(reports_routed granted | wc -l)"
expect_failure "an end of the other routing" has_stopped ordinary
stop_routing ordinary
