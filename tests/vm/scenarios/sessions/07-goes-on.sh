# SPDX-License-Identifier: Apache-2.0
# An application's input ends when its session leaves the front, says why, and goes on by itself when the session is back.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session bob 2
other="$session"
active_session alice 1
bring_router
start_device device /vm/descriptors/numbered.hid
start input in_session "$session" /vm/programs/input-probe input 1209 0001
wait_for 60 "input" has_said input '^routing: ' 1
tell device "report 0000000000000001"
wait_until_says input '^report 0000000000000001$'

mark "bob in front"
bring_to_front "$other"
wait_until_says input '^not allowed: ' 60
tell device "report 0000000000000002"

mark "alice in front"
bring_to_front "$session"
wait_for 60 "input again" has_said input '^routing: ' 2
tell device "report 0000000000000003"
wait_until_says input '^report 0000000000000003$'
expect_failure "a report that came while bob was in front" says input '^report 0000000000000002$'
expect_failure "an input that has given up" says input '^(ended|stopped): '
finish input
