# SPDX-License-Identifier: Apache-2.0
# The daemon is killed while somebody is asked: nothing is installed, and the next request is served.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_held install "$session" wlhid install
start_agent agent "$(held_process install)"
let_go install
wait_until_says agent 'Password:' 60
kill -KILL "$(daemon_process)"
kill "$(process_of agent)" # it does not notice that its question is no more, so it cannot be asked another one
expect_failure "an install by a daemon that is gone" finish install
expect "that nothing is installed" test ! -e "$BLESSED"

decide install alice yes
decide remove alice yes
product install
expect "the installed helper" test -f "$BLESSED"
product uninstall
