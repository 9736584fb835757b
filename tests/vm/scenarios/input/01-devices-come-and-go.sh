# SPDX-License-Identifier: Apache-2.0
# An ordinary user's application is told of a device that comes, can open it at once, and is told that it has gone, twice.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

# What the application was told from the last arrival until input could come.
opening() { tac "$(output watch)" | sed -n '/^routing: /,$ {p; /^arrived /q}' | tac | cut -d: -f1; }

have_packages
active_session alice
bring_router
start watch in_session "$session" /vm/programs/input-probe watch 1209 0001
wait_until_says watch '^listed$'
for round in 1 2; do
  mark "round $round"
  start_device device /vm/descriptors/numbered.hid
  wait_for 30 "the device's arrival" has_said watch '^arrived 0x' "$round"
  wait_for 60 "its input" has_said watch '^routing: ' "$round"
  id="$(sed -n 's/^arrived //p' "$(output watch)" | tail -n 1)"
  expect_equal "opening it" "arrived $id connecting routing" "$(opening | tr '\n' ' ' | sed 's/ $//')"
  expect_failure "an identifier that was used before" test "$id" == "${before:-}"
  before="$id"
  tell device "report 000000000000000$round"
  wait_until_says watch "^report 000000000000000$round$"
  finish device
  wait_until_says watch "^departed $id$"
done
expect_equal "arrivals" 2 "$(grep -c '^arrived ' "$(output watch)")"
expect_equal "departures" 2 "$(grep -c '^departed ' "$(output watch)")"
finish watch
