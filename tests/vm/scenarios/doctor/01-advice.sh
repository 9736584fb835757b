# SPDX-License-Identifier: Apache-2.0
# What doctor suggests mends what it complains about, as it stands.
# needs: packages
# seconds: 300
source /vm/lib.sh
source /vm/product.sh

examined() { wlhid doctor --json || true; } # by the superuser, who needs no sudo and no question
passes() { # passes CHECK
  examined | jq -e --arg name "$1" '[.checks[] | select(.name == $name)] | length > 0 and all(.[]; .state != "failed")'
}
expect_advice_helps() { # expect_advice_helps CHECK
  local command
  command="$(examined | jq -r --arg name "$1" 'first(.checks[] | select(.name == $name and .state == "failed")).command // empty')"
  if [[ -z $command ]]; then
    examined | jq -c '.checks[]'
    fail "no command for $1"
  fi
  mark "$1: $command"
  sh -c "$command"
  wait_for 60 "$1 to be mended" passes "$1"
}

have_packages
for check in "system root" endpoint "job daemon" polkit; do expect "that $check passes" passes "$check"; done

chmod g+w /usr/lib/wlhid
expect_advice_helps "system root"

# All of them: doctor asks the router, which whichever is left would start, and the endpoint with it.
sockets=(wlhid-router.socket wlhid-router-control.socket wlhid-router-devices.socket)
systemctl mask --now "${sockets[@]}"
expect_advice_helps endpoint

systemctl stop "${sockets[@]}"
expect_advice_helps endpoint

systemctl stop wlhid-jobd.socket
expect_advice_helps "job daemon"

# It no longer answers, though it is there.
pkill -STOP -x polkitd
expect_advice_helps polkit

rm /usr/lib/systemd/system/wlhid-router.socket
systemctl stop wlhid-router.socket
systemctl daemon-reload
expect_advice_helps endpoint
