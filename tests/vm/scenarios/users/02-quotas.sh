# SPDX-License-Identifier: Apache-2.0
# A thousand connections of one user leave another served.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

are_refused() { journalctl -q -u wlhid-router.service -o cat | grep -q "^refused: user $(id -u bob) has more than"; }

have_packages
start_device device /vm/descriptors/numbered.hid
active_session bob 2
bring_router
id="$(device_id 'Numbered Device')"
# shellcheck disable=SC2016  # the variable is the inner shell's
start crowd in_session "$session" bash -c 'ulimit -n 4096; exec delegate-probe "$1" 1000' crowd "$id"
tell crowd start
wait_for 100 "connections beyond one user's share to be refused" are_refused

mark "alice comes"
active_session alice 1
start_routing route "Numbered Device"
tell device "report 0000000000000001"
wait_for 60 "a report for alice" has_routed route 1
