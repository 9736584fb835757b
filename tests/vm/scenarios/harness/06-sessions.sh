# SPDX-License-Identifier: Apache-2.0
# alice sits at the machine, bob has come over the network, and processes can be put into either session.
source /vm/lib.sh

active_session alice
alice="$session"
expect_equal "seat of alice's session" seat0 "$(session_property "$alice" Seat)"
expect_equal "whether it is remote" no "$(session_property "$alice" Remote)"
expect_equal "whether it is active" yes "$(session_property "$alice" Active)"

remote_session bob
bob="$session"
expect_equal "seat of bob's session" "" "$(session_property "$bob" Seat)"
expect_equal "whether it is remote" yes "$(session_property "$bob" Remote)"

mark "a process in each"
expect_equal "user in alice's session" alice "$(in_session "$alice" id -un)"
# shellcheck disable=SC2016  # the variable is the inner shell's
expect_equal "session of a process in it" "$alice" \
  "$(in_session "$alice" bash -c 'sed -n "s|^0::.*/session-\([^/]*\)\.scope.*|\1|p" /proc/$$/cgroup')"
expect_equal "user in a unit of alice's" alice "$(in_user_unit alice id -un)"
expect_equal "user in bob's session" bob "$(in_session "$bob" id -un)"
expect_equal "user outside any session" bob "$(run_as bob id -un)"
