# SPDX-License-Identifier: Apache-2.0
# Who has come over the network gets no device, not even an ordinary one.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
remote_session bob
start_device device /vm/descriptors/numbered.hid
start route in_session "$session" wlhid route --json "$(device_id 'Numbered Device')"
wait_for 60 "a refusal" is_refused route
tell device "report 0000000000000001"
finish device
expect_failure "routing that was refused" finish route
expect_equal "reports" 0 "$(reports_routed route | wc -l)"
