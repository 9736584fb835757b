# SPDX-License-Identifier: Apache-2.0
# A router that crashes again and again neither spins nor leaves its socket dead.
# needs: packages
# seconds: 300
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
id="$(device_id 'Numbered Device')"
mkdir -p /run/systemd/system/wlhid-router.service.d
# shellcheck disable=SC2016  # systemd makes two signs of four, the shell its own number of two
printf '%s\n' '[Service]' ExecStart= 'ExecStart=/bin/sh -c "kill -SEGV $$$$"' >/run/systemd/system/wlhid-router.service.d/crash.conf
at_end 'rm -rf /run/systemd/system/wlhid-router.service.d; systemctl daemon-reload'
systemctl daemon-reload
systemctl stop wlhid-router.service

for _ in {1..30}; do
  expect_failure "routing through a router that crashes" product route --json --seconds 5 "$id"
done
mark "thirty attempts"

rm -rf /run/systemd/system/wlhid-router.service.d
systemctl daemon-reload
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "a report" has_routed route 1
