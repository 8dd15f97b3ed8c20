#!/usr/bin/env bash
# Apps reset at scale: 1,000 and 10,000 apps in fresh sandbox roots, with the substitute library answering
# every uninstall at once, in random order, with no side effects. Prints the time from the launch request
# to "tak_app_reset_result", the ratio of the two (target: 10k <= 12 x 1k), and what the uninstall walk
# and its callbacks cost per app (target: < 50 us), read from the process's own log.
set -euo pipefail
build=${1:-build}
build=$(cd "$build" && pwd)
host="$build/tools/orvix-host/orvix-host"
# shellcheck source=support/wait_for_text.sh
source "$(dirname "$0")/support/wait_for_text.sh"
# shellcheck source=support/targets.sh
source "$(dirname "$0")/support/targets.sh"
for program in "$host" "$build/src/tak-reset"; do
  [[ -x "$program" ]] || { echo "reset_scale: $program is missing; build the kit first" >&2; exit 1; }
done

now_ns() { date +%s%N; }

# The time of a log line "MM-DD hh:mm:ss.mmm ..." in milliseconds of the day.
log_ms() {
  awk '{ split($2, t, "[:.]"); print ((t[1] * 60 + t[2]) * 60 + t[3]) * 1000 + t[4]; exit }'
}

run_one() {
  local apps=$1 root
  root=$(mktemp -d /tmp/reset-scale-XXXXXX)
  export ORVIX_HOST_ROOT=$root
  trap '"$host" down >/dev/null 2>&1 || true; rm -rf "$root"' RETURN
  "$host" init --apps "$apps" >/dev/null
  printf '{"library": "present", "uninstall": {"bench": true}}\n' >"$root/etc/libtak_common.json"
  "$host" libtak apply >/dev/null
  "$host" up >/dev/null
  local start end
  start=$(now_ns)
  "$host" launch reset=tak_app_reset userdata=1 >/dev/null
  wait_for_text "$root/var/log/calls.jsonl" '"tak_app_reset_result"' 600 ||
    { echo "reset_scale: no result for $apps apps within 600 s" >&2; return 1; }
  end=$(now_ns)
  "$host" launch reset=end >/dev/null
  local log="$root/var/log/tak-reset.log" walk_start walk_end requested
  walk_start=$(grep -a 'event type: 100!' "$log" | log_ms)
  walk_end=$(grep -a 'event type: 101!' "$log" | log_ms)
  requested=$(grep -ac '> Reset ' "$log" || true)
  local total_ms=$(((end - start) / 1000000))
  echo "$apps $total_ms $((walk_end - walk_start)) $requested"
  # The process removes its pid file when it leaves; give it a bounded while before the root goes.
  for _ in $(seq 400); do [[ -n "$(find "$root/run" -name 'tak-reset.pid' 2>/dev/null)" ]] || break; sleep 0.05; done
}

read -r small small_ms small_walk small_req < <(run_one 1000)
read -r large large_ms large_walk large_req < <(run_one 10000)
echo "apps reset, launch to tak_app_reset_result:"
printf "  %6d apps: %7d ms  (walk and callbacks: %5d ms for %d uninstalls)\n" "$small" "$small_ms" "$small_walk" "$small_req"
printf "  %6d apps: %7d ms  (walk and callbacks: %5d ms for %d uninstalls)\n" "$large" "$large_ms" "$large_walk" "$large_req"
bench_target "apps reset: time at 10,000 / at 1,000 apps" \
  "$(awk -v a="$small_ms" -v b="$large_ms" 'BEGIN { if (a > 0) printf "%.2f", b / a }')" "<=" 12 x
bench_target "apps reset: walk and callbacks per app" \
  "$(awk -v w="$large_walk" -v n="$large_req" 'BEGIN { if (n > 0) printf "%.1f", w * 1000 / n }')" "<" 50 " us"
exit "$bench_missed"
