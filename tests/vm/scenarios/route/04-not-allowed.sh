# SPDX-License-Identifier: Apache-2.0
# Without an administrator's word nobody reads a key: not the user at the machine, not the one over the network.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
for user in alice bob; do
  mark "$user"
  if [[ $user == bob ]]; then remote_session bob; fi
  keyboard="$(device_id 'QEMU QEMU USB Keyboard')"
  start "route-$user" in_session "$session" wlhid route --json "$keyboard"
  wait_for 60 "a refusal" is_refused "route-$user"
  inject "key a"
  expect_failure "routing that was refused" finish "route-$user"
  expect_equal "reports for $user" 0 "$(reports_routed "route-$user" | wc -l)"
  expect_failure "reading the node itself" \
    in_session "$session" head -c 1 "$(node_of 'QEMU QEMU USB Keyboard')"
done
