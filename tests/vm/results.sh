# SPDX-License-Identifier: Apache-2.0

# What the guests say of their scenarios, as test results; sourced after lib.sh. Several machines may run at a time, each
# followed by a process of its own, so the results are counted in the directory $work.
#
# The guest writes lines: "run NAME", "| " and a line of the scenario's output, "ok MILLISECONDS",
# "failed MILLISECONDS REASON", and at the end "finished".

count_one() { printf '%s\n' "${*:2}" >>"$work/$1"; } # count_one passed|failed|left-out NAME
counted() { cat "$work/$1" 2>/dev/null || true; }      # counted passed|failed|left-out

not_run() { # not_run NAME REASON
  printf '[  SKIPPED ] %s (not run: %s)\n' "$1" "$2"
  count_one left-out "$1"
}

scenario_failed() { # scenario_failed NAME REASON LOG
  # With one call, so that another machine's lines do not come between.
  printf '%s[  FAILED  ] %s (%s)\n' "$(sed 's/^/    /' "$3")"$'\n' "$1" "$2"
  count_one failed "$1"
}

report_results() { # report_results DIRECTORY NAME…: reads the guest's lines
  local directory="$1" line name="" log=/dev/null remaining=("${@:2}")
  while IFS= read -r line; do
    case "$line" in
      "run "*)
        name="${line#run }" log="$directory/$(basename "$name").log"
        : >"$log"
        remaining=("${remaining[@]:1}")
        printf '[ RUN      ] %s\n' "$name"
        ;;
      "| "*) printf '%s\n' "${line#| }" >>"$log" ;;
      "ok "*)
        printf '[       OK ] %s (%s ms)\n' "$name" "${line#ok }"
        count_one passed "$name"
        name=""
        ;;
      "failed "*)
        scenario_failed "$name" "${line#failed }" "$log"
        name=""
        ;;
    esac
  done
  [[ -z $name ]] || scenario_failed "$name" "did not end" "$log"
  for name in ${remaining[@]+"${remaining[@]}"}; do scenario_failed "$name" "did not begin" /dev/null; done
}

machine_failed() { # machine_failed DIRECTORY REASON
  printf '%s: %s; the last lines of its console:\n%s\n' "$(basename "$1")" "$2" \
    "$(tail -n 25 "$1/console" 2>/dev/null | sed 's/^/    /')"
  count_one failed "$(basename "$1"): the machine"
}

print_summary() { # the script's exit status
  say
  say "$(counted passed | wc -l) passed, $(counted failed | wc -l) failed, $(counted left-out | wc -l) not run"
  counted failed | sed 's/^/  FAILED: /'
  [[ -z $(counted failed) ]]
}
