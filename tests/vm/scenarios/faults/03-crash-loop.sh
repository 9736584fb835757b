# SPDX-License-Identifier: Apache-2.0
# A router that ends at once, again and again, by a crash or in good order, neither spins nor leaves its socket dead.
# needs: packages
# seconds: 300
source /vm/lib.sh
source /vm/product.sh

# The router of the next starts is a shell with that script.
replace_router() {
  mkdir -p /run/systemd/system/wlhid-router.service.d
  printf '%s\n' '[Service]' ExecStart= "ExecStart=/bin/sh -c \"$1\"" >/run/systemd/system/wlhid-router.service.d/ends.conf
  systemctl daemon-reload
  # Refused if a router that ends at once is just being started again, which is then the one with the new script.
  systemctl stop wlhid-router.service || true
}
restore_router() {
  rm -rf /run/systemd/system/wlhid-router.service.d
  systemctl daemon-reload
}
starts_since() { journalctl -q -u wlhid-router.service --since="@$1" -o cat | grep -c '^Started '; }

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
id="$(device_id 'Numbered Device')"
at_end restore_router

# shellcheck disable=SC2016  # systemd makes two signs of four, the shell its own number of two
for ends in 'kill -SEGV $$$$' 'exit 0'; do
  replace_router "$ends"
  begun="$(date +%s)"
  for _ in {1..15}; do
    expect_failure "routing through a router that ends ($ends)" product route --json --seconds 5 "$id"
  done
  starts="$(starts_since "$begun")"
  limit=$((2 * ($(date +%s) - begun + 1) + 1))
  [[ $starts -gt 0 && $starts -le $limit ]] || fail "$starts starts of a router that ends ($ends), $limit allowed"
  mark "fifteen attempts, $starts starts, $limit allowed"
done

restore_router
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 30 "a report" has_routed route 1
