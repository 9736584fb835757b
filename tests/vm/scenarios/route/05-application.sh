# SPDX-License-Identifier: Apache-2.0
# An application starts and stops the same client several times, and each start is served.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
bring_router
start probe in_session "$session" /vm/programs/delegate-probe "$(device_id 'Numbered Device')"
for round in 1 2 3; do
  tell probe start
  wait_for 30 "round $round to begin" has_said probe '^1 status 4$' "$round"
  tell device "report 000000000000000$round"
  wait_until_says probe "^1 report 0 000000000000000$round$"
  tell probe stop
  wait_for 30 "round $round to end" has_said device '^closed$' "$round" # the application is not told of its own stop
done
tell device "report 00000000000000ff"
finish device
finish probe
expect_failure "a report after the stop" says probe '00ff$'
