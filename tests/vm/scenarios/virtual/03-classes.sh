# SPDX-License-Identifier: Apache-2.0
# A device that can type is sensitive however it is connected; one of the vendor's own is not.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

two_keyboards_are_listed() {
  product devices --json | jq -e '[.[] | select(.name | test("Keyboard"))] | length == 2'
}

have_packages
active_session alice
start_device numbered /vm/descriptors/numbered.hid
start_device keyboard /vm/recordings/qemu-usb-kbd.hid
wait_for 30 "the numbered device" is_listed "Numbered Device"
wait_for 30 "two keyboards" two_keyboards_are_listed
product devices --json >"$scratch/devices"
expect_equal "class of the numbered device" '["ordinary"]' \
  "$(jq -c '[.[] | select(.name == "Numbered Device") | .class]' "$scratch/devices")"
expect_equal "whether alice may route it" '["yes"]' \
  "$(jq -c '[.[] | select(.name == "Numbered Device") | .permission]' "$scratch/devices")"
expect_equal "class of the keyboards" '["sensitive","sensitive"]' \
  "$(jq -c '[.[] | select(.name | test("Keyboard")) | .class]' "$scratch/devices")"
