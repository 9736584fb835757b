# SPDX-License-Identifier: Apache-2.0
# The classes of the report descriptors that the unit tests know are those that a system's devices get, and of a device that
# mixes both only the harmless reports are delivered.
# needs: packages
# seconds: 400
source /vm/lib.sh
source /vm/product.sh

# One recording a line of the expectation: those entries about which nothing else is known than their descriptor.
make_corpus() { # make_corpus DIRECTORY
  awk -v directory="$1" '
    function finish(   file, words, count) {
      if (name == "" || isMore || descriptor == "") return
      number += 1
      file = sprintf("%s/%03d.hid", directory, number)
      count = split(descriptor, words, " ")
      printf "N: Corpus %03d\nI: 3 1209 0002\nR: %d %s\n", number, count, descriptor >file
      close(file)
      printf "Corpus %03d\t%s\t%s\t%s\n", number, class, reports, name >(directory "/expected")
    }
    /^= / { finish(); name = substr($0, 3); isMore = 0; descriptor = reports = "" }
    /^! / { isMore = 1 }
    /^> / { class = $2; if (match($0, /reports: /)) { reports = substr($0, RSTART + 9); gsub(/[ ,]+/, ",", reports) } }
    /^[0-9a-f][0-9a-f] / { sub(/ *#.*/, ""); descriptor = descriptor (descriptor == "" ? "" : " ") $0 }
    END { finish() }' /vm/descriptors/device-classes.txt
}
# What the kernel does not understand does not become a device, which it says in its log only.
refusals() { dmesg | grep -c 'probe of 0003:1209:0002.* failed' || true; }
start_if_possible() { # start_if_possible RECORDING
  local name before
  name="$(basename "$1" .hid)"
  before="$(refusals)"
  start "$name" uhid-device "$1"
  wait_for 30 "$1 to be taken or refused" is_taken_or_refused "$name" "$before"
  if says "$name" '^started$'; then started+=("Corpus $name"); fi
}
is_taken_or_refused() { says "$1" '^started$' || [[ $(refusals) -gt $2 ]]; } # is_taken_or_refused NAME REFUSALS-BEFORE
all_are_listed() {
  product devices --json >"$scratch/devices"
  [[ $(jq '[.[] | select(.name | startswith("Corpus "))] | length' "$scratch/devices") -eq ${#started[@]} ]]
}
told() { # what was said of each, as in the expectation
  jq -r '.[] | select(.name | startswith("Corpus ")) |
    [.name, .class, (if .class == "sensitive" then .ordinaryReports | map(tostring) | join(",") else "" end)] | @tsv' \
    "$scratch/devices" | sort
}

have_packages
active_session alice
corpus="$scratch/corpus"
mkdir "$corpus"
make_corpus "$corpus"
started=()
for recording in "$corpus"/*.hid; do start_if_possible "$recording"; done
mark "${#started[@]} of $(wc -l <"$corpus/expected") descriptors became devices"
expect "that most descriptors became devices" test "${#started[@]}" -ge 60
wait_for 120 "all devices to be listed" all_are_listed
printf '%s\n' "${started[@]}" | sort | join -t "$(printf '\t')" - <(cut -f 1-3 "$corpus/expected" | sort) >"$scratch/expected"
told >"$scratch/told"
expect_same "the classes that are expected and those that the system gives" "$scratch/expected" "$scratch/told"

mark "a device that mixes both"
mixed="$(awk -F '\t' '$4 == "keyboard, mouse and consumer control in one" { print $1 }' "$corpus/expected")"
expect "that it is among them" test -n "$mixed"
start_routing route "$mixed"
for report in 01ff 020505 03e900 0100 030000; do tell "${mixed#Corpus }" "report $report"; done
wait_for 30 "two reports" has_routed route 2
stop_routing route
expect_equal "what was delivered" "03e900 030000" "$(reports_routed route | xargs)"
