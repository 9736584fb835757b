# SPDX-License-Identifier: Apache-2.0
# An ordinary device that is plugged in later is routed without a question, and its unplugging ends the routing.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
for round in 1 2; do
  mark "round $round"
  start_device device /vm/descriptors/numbered.hid
  id="$(device_id 'Numbered Device')"
  expect_failure "an identifier that was used before" test "$id" == "${before:-}"
  before="$id"
  start_routing route "Numbered Device"
  tell device "numbered 10 100"
  wait_for 30 "ten reports" has_routed route 10
  finish device
  finish route || true # whatever its status, it ends by itself
done
