# SPDX-License-Identifier: Apache-2.0
# The journal says who was allowed or refused which device, from when until when, in fields; and nothing of what was sent.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
# Not after a cursor: with a filter, this journalctl leaves out the first entry too.
began="$(date +%s)"
router_entries() { # router_entries WORD…: since the beginning, as journalctl takes it
  journalctl -q --no-pager --since="@$began" _SYSTEMD_UNIT=wlhid-router.service "$@"
}
is_noted() { [[ -n $(router_entries -o cat WLHID_EVENT="$1") ]]; } # is_noted EVENT
field() { router_entries -o json WLHID_EVENT="$1" | tail -n 1 | jq -r --arg name "$2" '.[$name]'; } # field EVENT NAME

start_device device /vm/descriptors/numbered.hid
start_routing route "Numbered Device"
tell device "report 7777777777777777"
wait_for 30 "the report" has_routed route 1
stop_routing route
start refused in_session "$session" wlhid route --json "$(device_id 'QEMU QEMU USB Keyboard')"
wait_for 60 "a refusal" is_refused refused

for event in granted begun ended denied; do
  mark "$event"
  wait_for 30 "an entry for $event" is_noted "$event"
  expect_equal "its writer" "$LABEL" "$(field "$event" SYSLOG_IDENTIFIER)"
  expect_equal "its writer's user" "$(id -u wlhid-router)" "$(field "$event" _UID)"
  expect_equal "the user" "$(id -u alice)" "$(field "$event" WLHID_USER)"
  expect_equal "the program" wlhid "$(field "$event" WLHID_PROGRAM)"
  expect_equal "the unit" "session-$session.scope" "$(field "$event" WLHID_UNIT)"
  expect "an identifier of the device" test -n "$(field "$event" WLHID_VENDOR)$(field "$event" WLHID_PRODUCT)"
done
for event in granted begun ended; do
  expect_equal "the device" "Numbered Device" "$(field "$event" WLHID_DEVICE)"
  expect_equal "its class" ordinary "$(field "$event" WLHID_CLASS)"
  expect_equal "entries for $event" 1 "$(router_entries -o cat WLHID_EVENT="$event" | wc -l)"
done
expect_equal "the device that was refused" "QEMU QEMU USB Keyboard" "$(field denied WLHID_DEVICE)"
expect_equal "its class" sensitive "$(field denied WLHID_CLASS)"
expect_failure "what was sent, in the journal" grep -q 7777777777777777 <(router_entries -o export)
