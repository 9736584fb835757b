# SPDX-License-Identifier: Apache-2.0
# The log is there for those who may read it, is rotated, and holds none of what was typed.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
decide route-sensitive alice yes
start_routing route "QEMU QEMU USB Keyboard"
inject "key a"
wait_for 30 "what was typed" has_routed route 2
stop_routing route
expect_equal "owner, group and mode of the log" "wlhid-router adm 640" "$(stat -c '%U %G %a' /var/log/system.log)"
expect "the router's lines" grep -q "$LABEL" /var/log/system.log
expect "the router's lines by the command" grep -q "$LABEL" <(wlhid log)
expect_failure "the log for somebody who may not read it" in_session "$session" wlhid log
expect_failure "what was typed, in the log" grep -q 0000040000000000 /var/log/system.log
expect_failure "what was typed, in the journal" grep -q 0000040000000000 <(journalctl -q --no-pager -o export)

logrotate --force /etc/logrotate.d/*wlhid*
wait_for 30 "the rotated log" test -e /var/log/system.log.1
expect_equal "mode of the new log" "wlhid-router adm 640" "$(stat -c '%U %G %a' /var/log/system.log)"
