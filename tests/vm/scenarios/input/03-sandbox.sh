# SPDX-License-Identifier: Apache-2.0
# An application in a sandbox that has the router's endpoints and nothing else of it (no udev, no device nodes, no /usr/lib/wlhid)
# learns which devices there are; one that also sees what is installed receives their input.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

# As the session's user, who is the only one in the sandbox; everybody else is outside, the superuser included.
# shellcheck disable=SC2016  # expanded in the sandbox
SANDBOX='set -e
mkdir /tmp/sandbox.$$ && cd /tmp/sandbox.$$
mount -t tmpfs tmpfs .
for socket in /run/wlhid/*.sock; do
  touch "$(basename "$socket")"
  mount --bind "$socket" "$(basename "$socket")"
done
mount -t tmpfs -o mode=755 tmpfs /run
mkdir /run/wlhid
for socket in *.sock; do
  touch "/run/wlhid/$socket"
  mount --bind "$socket" "/run/wlhid/$socket"
done
for directory in $HIDDEN /etc/wlhid /sys /dev; do mount -t tmpfs -o mode=755 tmpfs "$directory"; done
exec "$@"'
start_in_sandbox() { # start_in_sandbox NAME HIDDEN WORD…: input-probe, with those directories hidden too
  start "$1" in_session "$session" unshare --user --map-current-user --keep-caps --mount \
    env HIDDEN="$2" sh -c "$SANDBOX" sandbox /vm/programs/input-probe "${@:3}"
}

have_packages
active_session alice
start_in_sandbox probe "/usr/lib/wlhid /var/lib/wlhid" watch 1209 0001
wait_until_says probe '^listed$'
start_device device /vm/descriptors/numbered.hid
wait_until_says probe '^arrived 0x'
finish device
wait_until_says probe '^departed 0x'
finish probe

mark "with what is installed"
bring_router
start_device device /vm/descriptors/numbered.hid
start_in_sandbox input "" input 1209 0001
wait_until_says input '^routing: ' 60
tell device "report 0000000000000001"
wait_until_says input '^report 0000000000000001$'
finish input
