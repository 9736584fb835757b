# SPDX-License-Identifier: Apache-2.0
# The verbs that look at a device work with USB devices and with one of a driver's, while they are used.
# needs: packages
# seconds: 420
source /vm/lib.sh
source /vm/product.sh

use() { # use DEVICE
  case "$1" in
    *Tablet) inject "pointer Tablet" "point 100 200" "point 300 400" "click left" ;;
    *Mouse) inject "pointer Mouse" "move 5 3" "click left" ;;
    *Keyboard) inject "key a" "key b" ;;
    *) tell device "numbered 5 5" ;;
  esac
}
# Runs a verb as the user, and uses the device until it ends; what it prints is its output.
look() { # look NAME DEVICE VERB WORD…
  start "$1" in_session "$session" wlhid "${@:3}"
  until has_ended "$1"; do use "$2"; done
  finish "$1"
}

have_packages
active_session alice
decide route-sensitive alice yes
start_device device /vm/descriptors/numbered.hid
directory="$(mktemp -d /run/alice.XXXXXX)"
chown alice "$directory"
at_end rm -rf "$directory"

number=0
for name in "QEMU QEMU USB Tablet" "QEMU QEMU USB Mouse" "QEMU QEMU USB Keyboard" "Numbered Device"; do
  id="$(device_id "$name")" recording="$directory/$((++number)).hid"
  expect "a descriptor of $name" grep -q "^Class: " <(product descriptor "$id")

  look "measure-$number" "$name" measure "$id" --seconds 8 --json
  expect "reports and their latency, of $name" \
    jq -e '.reports > 0 and .latency.reports > 0 and .latency.p50 <= .latency.p99' "$(output "measure-$number")"
  mark "$name: $(jq -c '[.verdict, .latency]' "$(output "measure-$number")")"

  look "record-$number" "$name" record "$id" "$recording" --sensitive --seconds 5
  product route --recording "$recording" --json >"$scratch/played"
  expect_same "what was recorded and what is played from it" \
    <(sed -n 's/^E: [0-9.]* [0-9]* //p' "$recording" | tr -d ' ') \
    <(sed -n 's/.*"report":{[^}]*"data":"\([0-9a-f]*\)".*/\1/p' "$scratch/played")
  product picture "$recording" -o "$directory/$number.html"
  expect "a page about $name" grep -q "$name" "$directory/$number.html"

  look "monitor-$number" "$name" monitor "$id" --svg "$directory/$number.svg" --after 4
  # Its blanks are wide ones, which do not break.
  expect "a picture of the monitor with $name" grep -q "${name// /.*}" "$directory/$number.svg"

  case "$name" in
    Numbered*) expect_failure "a test of what has no name" product test "$id" --seconds 5 ;;
    *)
      look "test-$number" "$name" test "$id" --seconds 5 || true # not all of it is used
      expect "something of $name that has answered" says "test-$number" '^ *1/[0-9]+  '
      ;;
  esac
done

product report "$directory/report.zip" --json >"$scratch/manifest"
expect "a report that begins with its summary" jq -e '.files[0].name == "summary.html"' "$scratch/manifest"

start test in_session "$session" wlhid test "$(device_id "QEMU QEMU USB Mouse")"
until says test '  Button 1$'; do use Mouse; done
kill -INT "$(process_of test)"
wait_for 30 "the test to end" has_ended test
