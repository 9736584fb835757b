# SPDX-License-Identifier: Apache-2.0
# A device of 8,000 reports a second is recorded whole, for about a minute: the emulator manages a thousand or two a second, all
# its processors can do, and the device sends as late as it has to.
# needs: packages
# alone
# seconds: 180
source /vm/lib.sh
source /vm/product.sh

REPORTS=60000
reports_recorded() { sed -n 's/^E: [0-9.]* 8 //p' "$directory/recording" | tr -d ' '; }
receives_input() { journalctl -q --no-pager -u wlhid-router.service -o cat | grep -q 'receives the input'; }
has_recorded_last() { [[ $(tail -n 1 "$scratch/device.sent") == $(reports_recorded | tail -n 1) ]]; }

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
id="$(device_id "Numbered Device")"
directory="$(mktemp -d /run/alice.XXXXXX)"
chown alice "$directory"
at_end rm -rf "$directory"
start record in_session "$session" wlhid record "$id" "$directory/recording"
wait_for 30 "the recording to begin" receives_input
keep_router_beside_device
tell device "paced $REPORTS 7500"
wait_until_says device "^sent $REPORTS$" 90
wait_for 60 "the last report" has_recorded_last
kill -INT "$(process_of record)"
finish record
reports_recorded >"$scratch/recorded"
lost="$(comm -23 <(sort "$scratch/device.sent") <(sort "$scratch/recorded") | wc -l)"
mark "$(sed -n 's/^took //p' "$(output device)"); $lost of $REPORTS lost; $(tail -n 1 "$(output record)")"
expect_same "what was sent and what was recorded" "$scratch/device.sent" "$scratch/recorded"
