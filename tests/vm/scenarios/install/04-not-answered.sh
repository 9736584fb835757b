# SPDX-License-Identifier: Apache-2.0
# A question that nobody answers installs nothing: not when nobody can be asked, and not when the one who asks has gone.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
mark "nobody to ask"
expect_failure "an install without anybody to ask" product install
expect "that nothing is installed" test ! -e "$BLESSED"

mark "the one who asks has gone"
start_held install "$session" wlhid install
start_agent agent "$(held_process install)"
let_go install
wait_until_says agent 'Password:' 60
kill -KILL "$(held_process install)"
finish install || true
tell agent alice
expect "that nothing is installed" test ! -e "$BLESSED"
product status --json | jq -e .installed # and the daemon answers others
