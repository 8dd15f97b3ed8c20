#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build (default build-fuzz) for FUZZ_SECONDS (default 30) each, starting
# from the seeds in fuzz/corpus/<target>. What the fuzzer finds goes to <build>/fuzz/corpus/<target> (the
# tree's seeds stay as they are); a crashing input is kept as <build>/fuzz/artifacts/<target>-crash-...
# and ends the run with a failure.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-build-fuzz}
seconds=${FUZZ_SECONDS:-30}
targets=(home_test_list candidate_list updating_app test_list package_records launch_frame launch_request
  tak_string preinstall_apps vconf_file libtak_behaviour)

mkdir -p "$build/fuzz/artifacts"
for target in "${targets[@]}"; do
  program="$build/fuzz/fuzz_$target"
  [[ -x "$program" ]] || { echo "run.sh: $program is missing; build the target fuzz_targets first" >&2; exit 2; }
  mkdir -p "$build/fuzz/corpus/$target"
  dict=()
  [[ -f "$here/$target.dict" ]] && dict=(-dict="$here/$target.dict")
  echo "fuzz: $target for ${seconds}s"
  "$program" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 "${dict[@]}" \
    -artifact_prefix="$build/fuzz/artifacts/$target-" \
    "$build/fuzz/corpus/$target" "$here/corpus/$target" 2>"$build/fuzz/$target.log" || {
    tail -n 60 "$build/fuzz/$target.log" >&2
    echo "fuzz: $target failed; inputs in $build/fuzz/artifacts/" >&2
    exit 1
  }
  grep -E '^stat::number_of_executed_units|^Done' "$build/fuzz/$target.log" || true
done
