# SPDX-License-Identifier: Apache-2.0
# The packages are upgraded and downgraded while a device is routed: the application goes on, or is told to start again. An Input
# goes on by itself.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

# Through the same program, which starts again if it was stopped. It may have gone on by itself too, and a report that comes
# between the two is nobody's, so the device repeats it.
report_arrives() { # report_arrives NUMBER
  tell probe stop
  tell probe start
  wait_for 60 "report $1 to be routed" is_routed "000000000000000$1"
}
is_routed() { # is_routed REPORT
  tell device "report $1"
  says probe "^1 report 0 $1$"
}

# Without being told anything.
input_receives() { # input_receives REPORT
  tell device "report $1"
  says input "^report $1$"
}

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
bring_router
start probe in_session "$session" /vm/programs/delegate-probe "$(device_id 'Numbered Device')"
start input in_session "$session" /vm/programs/input-probe input 1209 0001
number=0
report_arrives 0
wait_for 60 "input" input_receives 0000000000000000

for version in newer packages; do
  mark "to the version in $version"
  use_packages_of packages newer
  install_version "$(version_in "$version")"
  expect_equal "the installed version" "$(version_in "$version")" \
    "$(dpkg-query -W -f '${Version}' "$(package_names | head -n 1)")"
  wait_for 30 "the router's socket" test -S "/run/wlhid/$LABEL.sock"
  report_arrives "$((++number))"
  wait_for 60 "input to go on by itself" input_receives "000000000000000$number"
done
expect_failure "an input that has given up" says input '^(ended|stopped): '
finish input
