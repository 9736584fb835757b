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
      # Of devices of one model that programs feed, one is what another is beside.
      printf "N: Corpus %03d\nI: 3 1209 %04x\nR: %d %s\n", number, 4096 + number, count, descriptor >file
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
refusals() { dmesg | grep -c 'probe of 0003:1209:1.* failed' || true; }
names_that_say() { # names_that_say REGEX NAME…
  local name
  for name in "${@:2}"; do
    if says "$name" "$1"; then printf 'Corpus %s\n' "$name"; fi
  done
}
all_are_decided() { # all_are_decided REFUSALS-BEFORE NAME…
  [[ $(names_that_say '^started$' "${@:2}" | wc -l) -eq $(($# - 1 - $(refusals) + $1)) ]]
}
# Without the router's answer they are listed too, but without their classes.
are_listed() { # are_listed NUMBER: so many of them, and no other
  product devices --json >"$scratch/devices"
  [[ $(jq '[.[] | select(.name | startswith("Corpus ")) | has("class")] | length, all' "$scratch/devices" | xargs) == "$1 true" ]]
}
told() { # what was said of each, as in the expectation
  jq -r '.[] | select(.name | startswith("Corpus ")) |
    [.name, .class, (if .class == "sensitive" then .ordinaryReports | map(tostring) | join(",") else "" end)] | @tsv' \
    "$scratch/devices"
}
# Which of them the kernel has made keys of that udev calls a keyboard's, or just keys: a headset's volume, for example.
keyboards() {
  local event
  for event in /sys/class/input/event*; do
    grep -qE '^E:ID_INPUT_KEY(BOARD)?=1' "/run/udev/data/c$(cat "$event/dev")" || continue
    sed -n 's/^HID_NAME=//p' "$event/device/device/uevent"
  done
}

# Some at a time, since the kernel has 64 hidraw nodes.
# What was said of those that became devices is added to the file "told", and their names to "started".
try_all() { # try_all RECORDING…
  local recording name names=() before
  before="$(refusals)"
  for recording; do
    names+=("$(basename "$recording" .hid)")
    start "${names[-1]}" uhid-device "$recording"
  done
  wait_for 60 "each descriptor to be taken or refused" all_are_decided "$before" "${names[@]}"
  names_that_say '^started$' "${names[@]}" >"$scratch/taken"
  wait_for 60 "all devices to be listed" are_listed "$(wc -l <"$scratch/taken")"
  cat "$scratch/taken" >>"$scratch/started"
  told >>"$scratch/told"
  keyboards >>"$scratch/keyboards"
  for name in "${names[@]}"; do finish "$name"; done
}

have_packages
active_session alice
corpus="$scratch/corpus"
mkdir "$corpus"
make_corpus "$corpus"
recordings=("$corpus"/*.hid)
for ((first = 0; first < ${#recordings[@]}; first += 25)); do try_all "${recordings[@]:first:25}"; done
mark "$(wc -l <"$scratch/started") of ${#recordings[@]} descriptors became devices"
expect "that most descriptors became devices" test "$(wc -l <"$scratch/started")" -ge 60
# Of what the system uses as a keyboard nothing may be ordinary, whatever its descriptor says.
awk -F '\t' -v OFS='\t' 'NR == FNR { used[$0]; next }
  !($1 in used && $2 == "sensitive" && $3 == "") { print $1, $2, $3 }' "$scratch/keyboards" "$scratch/told" |
  sort >"$scratch/by-descriptor"
expect "that most classes are those of the descriptors" test "$(wc -l <"$scratch/by-descriptor")" -ge 60
cut -f 1 "$scratch/by-descriptor" | join -t "$(printf '\t')" - <(cut -f 1-3 "$corpus/expected" | sort) >"$scratch/expected"
expect_same "the classes that are expected and those that the system gives" "$scratch/expected" "$scratch/by-descriptor"

mark "a device that mixes both"
mixed="$(awk -F '\t' '$4 == "keyboard, mouse and consumer control in one" { print $1 }' "$corpus/expected")"
expect "that it is among them" test -n "$mixed"
start_device "${mixed#Corpus }" "$corpus/${mixed#Corpus }.hid"
start_routing route "$mixed"
for report in 01ff 020505 03e900 0100 030000; do tell "${mixed#Corpus }" "report $report"; done
wait_for 30 "two reports" has_routed route 2
stop_routing route
expect_equal "what was delivered" "03e900 030000" "$(reports_routed route | xargs)"
