# SPDX-License-Identifier: Apache-2.0
# After a purge the system is as it was before: files, users, units, and who may read which device.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

# Caches, logs of others and what apt and a login keep for themselves are not the packages'.
PASSED_OVER=(/proc /sys /run /dev /tmp /vm /root /home /etc/apt /var/lib/apt /var/lib/dpkg /var/lib/systemd /var/cache /var/log
  /var/backups)

files() {
  local path expression=()
  for path in "${PASSED_OVER[@]}"; do expression+=(-path "$path" -o); done
  find / -xdev \( "${expression[@]}" -false \) -prune -o -type d -printf '%p %M %u %g\n' -o -printf '%p %M %u %g %s\n' |
    grep -vE '^/etc/((passwd|group|shadow|gshadow)-?|ld.so.cache|.pwd.lock) '
  find /var/log /run -name '*wlhid*' -o -name 'system.log*' 2>/dev/null || true
}
access() { # one line a node
  local node
  for node in /dev/hidraw* /dev/input/event*; do printf '%s %s\n' "$node" "$(getfacl -cp "$node" | xargs)"; done
}
census() { # census FILE
  {
    files
    access
    cut -d: -f1 /etc/passwd /etc/group
    systemctl list-unit-files --no-legend --no-pager | awk '$2 != "transient" {print "unit", $1, $2}'
    dpkg-query -W -f 'package ${Package} ${Status}\n'
  } | sort >"$1"
}

three_nodes_are_readable() { [[ $(access | grep -c '^/dev/hidraw.* user:wlhid-router:r-- ') -eq 3 ]]; }

wait_for 60 "three hidraw nodes" nodes_are 3
access >"$scratch/access-before"
census "$scratch/before"
have_packages
wait_for 30 "three nodes that the router's user may read" three_nodes_are_readable
# An entry of a user's own brings a mask with it (getfacl says so where that takes something away); all else is as it was.
access | sed -E 's/ (user:wlhid-router:r--|mask::[rwx-]+)//g' >"$scratch/access-with"
expect_same "what everybody else may do with the nodes" "$scratch/access-before" "$scratch/access-with"

expect_equal "the groups of the router's user" wlhid-router "$(id -Gn wlhid-router)"
expect_equal "the members of its group" "" "$(getent group wlhid-router | cut -d: -f4)"

mark "used"
active_session alice
decide route-sensitive alice yes
decide install alice yes
product install
start_routing route "QEMU QEMU USB Tablet"
stop_routing route
for cleanup in "${cleanups[@]}"; do eval "$cleanup"; done
cleanups=()

mark "purged"
purge_packages
systemctl daemon-reload
census "$scratch/after"
expect_same "the system before and after" "$scratch/before" "$scratch/after"
