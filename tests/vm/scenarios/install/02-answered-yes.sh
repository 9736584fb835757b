# SPDX-License-Identifier: Apache-2.0
# An application's router is installed once an administrator has said so, and taken away again.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_held install "$session" wlhid install --prompt "The editor needs it for your foot switch."
start_agent agent "$(held_process install)"
let_go install
wait_until_says agent 'The editor needs it for your foot switch.' 60
answer agent alice
finish install
expect "the installed helper" test -f "$BLESSED"

mark "removal"
decide remove alice yes
product uninstall
expect "that the helper is gone" test ! -e "$BLESSED"
product status --json | jq -e .installed # the packages' own
