# SPDX-License-Identifier: Apache-2.0
# Nothing is installed if the administrator's password is wrong, or a rule says no.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_held install "$session" wlhid install
start_agent agent "$(held_process install)"
let_go install
answer agent wrong
expect_failure "an install with a wrong password" finish install
expect "that nothing is installed" test ! -e "$BLESSED"

mark "a rule"
decide install alice no
expect_failure "an install that a rule forbids" product install
expect "that nothing is installed" test ! -e "$BLESSED"
