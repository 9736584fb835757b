# SPDX-License-Identifier: Apache-2.0
# The machine's three USB devices are there, as hidraw nodes that only root may open.
source /vm/lib.sh

wait_for 60 "three hidraw nodes" nodes_are 3
for name in Tablet Mouse Keyboard; do
  node="$(node_of "QEMU QEMU USB $name")"
  expect_equal "owner and mode of $node" "root 600" "$(stat -c '%U %a' "$node")"
done
