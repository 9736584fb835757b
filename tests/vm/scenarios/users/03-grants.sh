# SPDX-License-Identifier: Apache-2.0
# An administrator's lasting word for one user and one device, and its end.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
keyboard="$(device_id 'QEMU QEMU USB Keyboard')"
wlhid grant "$keyboard" --user alice
at_end "wlhid revoke 1 2>/dev/null"
expect_equal "the grants" '["QEMU QEMU USB Keyboard"]' "$(wlhid grants --json | jq -c 'map(.name)')"
start_routing route "QEMU QEMU USB Keyboard"
inject "key a"
wait_for 30 "what was typed" has_routed route 2
stop_routing route

mark "revoked"
wlhid revoke 1
expect_equal "the grants" "[]" "$(wlhid grants --json | jq -c .)"
start again in_session "$session" wlhid route --json "$keyboard"
wait_for 60 "a refusal" is_refused again
inject "key b"
expect_equal "reports after the end of the grant" 0 "$(reports_routed again | wc -l)"
