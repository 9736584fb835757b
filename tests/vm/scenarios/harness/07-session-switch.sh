# SPDX-License-Identifier: Apache-2.0
# Of two sessions at the machine the one in front is active; a session can be locked, and ends with its logout.
source /vm/lib.sh

active_session alice 1
alice="$session"
active_session bob 2
bob="$session"
expect "that alice's session is in the background" is_state "$alice" online
bring_to_front "$alice"
expect "that bob's session is in the background" is_state "$bob" online

mark "lock"
expect_equal "locked before" no "$(session_property "$alice" LockedHint)"
set_locked "$alice" true
expect_equal "locked" yes "$(session_property "$alice" LockedHint)"
set_locked "$alice" false

mark "logout"
log_out "$bob"
expect "that alice's session stays" is_state "$alice" active
