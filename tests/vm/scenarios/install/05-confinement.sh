# SPDX-License-Identifier: Apache-2.0
# The system rates the confinement of both privileged programs as docs/linux.md says: an exposure of at most 1.0.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
for unit in wlhid-router wlhid-jobd; do
  expect "the confinement of $unit" \
    systemd-analyze security --no-pager --offline=true --threshold=10 "/lib/systemd/system/$unit.service"
done
