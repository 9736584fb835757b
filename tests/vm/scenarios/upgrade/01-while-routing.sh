# SPDX-License-Identifier: Apache-2.0
# The packages are upgraded and downgraded while a device is routed: the application goes on, or is told to start again.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

# Through the same program, which starts again if it was stopped.
report_arrives() { # report_arrives NUMBER
  tell probe stop
  tell probe start
  wait_for 60 "routing after $1" has_said probe '^1 status 4$' "$(($1 + 1))"
  tell device "report 000000000000000$1"
  wait_until_says probe "^1 report 0 000000000000000$1$"
}

have_packages
active_session alice
start_device device /vm/descriptors/numbered.hid
bring_router
start probe in_session "$session" /vm/programs/delegate-probe "$(device_id 'Numbered Device')"
number=0
report_arrives 0

for version in newer packages; do
  mark "to the version in $version"
  use_packages_of packages newer
  install_version "$(version_in "$version")"
  expect_equal "the installed version" "$(version_in "$version")" \
    "$(dpkg-query -W -f '${Version}' "$(package_names | head -n 1)")"
  wait_for 30 "the router's socket" test -S "/run/wlhid/$LABEL.sock"
  report_arrives "$((++number))"
done
