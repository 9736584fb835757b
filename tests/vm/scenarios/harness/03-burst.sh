# SPDX-License-Identifier: Apache-2.0
# 1,000 reports in 50 ms from a virtual device are read whole.
# alone
source /vm/lib.sh

start_device device /vm/descriptors/numbered.hid
start_reader reader "$(node_of 'Numbered Device')"
wait_until_says device '^opened$'
tell device "numbered 1000 50"
wait_until_says device '^sent 1000$'
happens_within 10 has_said reader '^[0-9.]+ ' 1000 || mark "fewer reports than were sent"
stop_reader reader
reports_read reader >"$scratch/read"
expect_same "what was sent and what was read" "$scratch/device.sent" "$scratch/read"
