# SPDX-License-Identifier: Apache-2.0
# An application that the desktop started as a unit of the user's manager belongs to the session at the machine.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
start route in_user_unit alice wlhid route --json "$(device_id 'Numbered Device')"
wait_until_says route '"status":4'
tell device "report 0000000000000001"
wait_for 30 "a report" has_routed route 1
stop_routing route
