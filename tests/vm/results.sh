# SPDX-License-Identifier: Apache-2.0

# What the guest says of its scenarios, as test results; sourced after lib.sh.
#
# The guest writes lines: "run NAME", "| " and a line of the scenario's output, "ok MILLISECONDS",
# "failed MILLISECONDS REASON", and at the end "finished".

passed=0 failed=() left_out=()

not_run() { # not_run NAME REASON
  printf '[  SKIPPED ] %s (not run: %s)\n' "$1" "$2"
  left_out+=("$1")
}

scenario_failed() { # scenario_failed NAME REASON LOG
  [[ ! -s $3 ]] || sed 's/^/    /' "$3"
  printf '[  FAILED  ] %s (%s)\n' "$1" "$2"
  failed+=("$1")
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
        passed=$((passed + 1)) name=""
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
  printf '%s: %s; the last lines of its console:\n' "$(basename "$1")" "$2"
  tail -n 25 "$1/console" 2>/dev/null | sed 's/^/    /'
  failed+=("$(basename "$1"): the machine")
}

print_summary() { # the script's exit status
  say
  say "$passed passed, ${#failed[@]} failed, ${#left_out[@]} not run"
  [[ ${#failed[@]} -eq 0 ]] || printf '  FAILED: %s\n' "${failed[@]}"
  [[ ${#failed[@]} -eq 0 ]]
}
