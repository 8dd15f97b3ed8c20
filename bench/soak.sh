#!/usr/bin/env bash
# Soak: one tak-reset process runs 1,000 resets in a row in a fresh sandbox root with 20 apps: first the
# one Corvane reset a process allows, then apps and service resets alternating, every SOAK_RESTART_EVERY-th
# (25, so both kinds) stopped while its uninstalls are out by the next request, which restarts it. The substitute library
# answers the uninstalls at once without side effects (the restarted ones after a while, failing, so that
# the restart finds the reset running). Prints the process's RSS, open file descriptors and threads after
# the first 10 resets and after all of them, and checks the targets: RSS grows by less than 5 %,
# descriptors and threads not at all. Exit status 1 when a target is missed or the process is lost.
#
# usage: bash bench/soak.sh [BUILD_DIR]   (default build; SOAK_RESETS=1000 changes the count)
set -euo pipefail
# shellcheck source=support/targets.sh
source "$(dirname "$0")/support/targets.sh"
build=${1:-build}
build=$(cd "$build" && pwd)
host="$build/tools/orvix-host/orvix-host"
resets=${SOAK_RESETS:-1000}
restart_every=${SOAK_RESTART_EVERY:-25}
for program in "$host" "$build/src/tak-reset"; do
  [[ -x "$program" ]] || { echo "soak: $program is missing; build the kit first" >&2; exit 1; }
done

root=$(mktemp -d /tmp/soak-XXXXXX)
export ORVIX_HOST_ROOT=$root
trap '"$host" down >/dev/null 2>&1 || true; rm -rf "$root"' EXIT
"$host" init --apps 20 >/dev/null
behaviour="$root/etc/libtak_common.json"
bench_behaviour='{"library": "present", "uninstall": {"bench": true}}'
# Every app answers after 300 ms and fails, so nothing changes and the reset is still waiting when the
# next request comes.
failing=$("$host" pkg list | grep -o '"appid":"[^"]*"' | sed 's/"appid":\("[^"]*"\)/\1: {"fail": true}/' | paste -sd,)
slow_behaviour="{\"library\": \"present\", \"uninstall\": {\"delay_ms\": 300, \"apps\": {$failing}}}"
echo "$bench_behaviour" >"$behaviour"
"$host" libtak apply >/dev/null
"$host" up >/dev/null
calls="$root/var/log/calls.jsonl"
log="$root/var/log/tak-reset.log"

# Waits (bounded) until the inner server has recorded the result text $1.
wait_result() {
  local deadline=$((SECONDS + 120))
  until grep -qF "$1" "$calls" 2>/dev/null; do
    ((SECONDS < deadline)) || { echo "soak: no $1 within 120 s" >&2; exit 1; }
    sleep 0.005
  done
}

launch() { "$host" launch "$@" >/dev/null; }

kind_of() { if (($1 % 2)); then echo tak_app_reset; else echo tak_service_reset; fi; }

# The figures of a process: "RSS_KB FDS THREADS", read once the thread count holds still (task and
# library threads that are finishing their work have gone).
figures() {
  local pid=$1 threads previous="" rss fds deadline=$((SECONDS + 10))
  while ((SECONDS < deadline)); do
    threads=$(awk '/^Threads:/ {print $2}' "/proc/$pid/status")
    [[ "$threads" == "$previous" ]] && break
    previous=$threads
    sleep 0.1
  done
  rss=$(awk '/^VmRSS:/ {print $2}' "/proc/$pid/status")
  fds=$(find "/proc/$pid/fd" -mindepth 1 -maxdepth 1 | wc -l)
  echo "$rss $fds $threads"
}

start=$SECONDS
launch reset=corvane_reset
wait_result '"corvane_reset_result"'
pid=$(awk '{print $1}' "$root/run/tak-reset/tak-reset.pid")
restarted=0
early=""
n=1
while ((n < resets)); do
  n=$((n + 1))
  if ((n % restart_every == 0 && n < resets)); then
    # This reset is stopped by the next one while its uninstalls are out.
    echo "$slow_behaviour" >"$behaviour"
    before=$(grep -c '"UninstallAppAPI"' "$calls" || true)
    launch reset="$(kind_of "$n")" userdata="$n"
    deadline=$((SECONDS + 60))
    until (($(grep -c '"UninstallAppAPI"' "$calls" || true) > before)); do
      ((SECONDS < deadline)) || { echo "soak: reset $n sent no uninstall request" >&2; exit 1; }
      sleep 0.005
    done
    echo "$bench_behaviour" >"$behaviour"
    restarted=$((restarted + 1))
    n=$((n + 1))
  fi
  launch reset="$(kind_of "$n")" userdata="$n"
  wait_result "_reset_result\",1,\"$n\""
  if ((n == 10)); then
    early=$(figures "$pid")
  fi
done
late=$(figures "$pid")
elapsed=$((SECONDS - start))
[[ "$(awk '{print $1}' "$root/run/tak-reset/tak-reset.pid")" == "$pid" ]] && kill -0 "$pid" 2>/dev/null || {
  echo "soak: tak-reset $pid did not last the soak" >&2
  exit 1
}
crashes=$(grep -ac 'Sanitizer\|runtime error:' "$log" || true)
results=$(grep -c '"process_result"' "$calls" || true)
launch reset=end

read -r rss1 fds1 threads1 <<<"$early"
read -r rss2 fds2 threads2 <<<"$late"
echo "soak: $resets resets in one tak-reset (pid $pid, $elapsed s): 1 Corvane, then apps and service"
echo "      alternating with 20 apps, $restarted of them stopped by the next request; $results results"
printf "  %-18s %12s %12s %10s\n" "" "after 10" "after $resets" "change"
growth=$(awk -v a="$rss1" -v b="$rss2" 'BEGIN { printf "%.1f", (b - a) * 100 / a }')
printf "  %-18s %12d %12d %+9.1f%%\n" "RSS (kB)" "$rss1" "$rss2" "$growth"
printf "  %-18s %12d %12d %+10d\n" "open descriptors" "$fds1" "$fds2" $((fds2 - fds1))
printf "  %-18s %12d %12d %+10d\n" "threads" "$threads1" "$threads2" $((threads2 - threads1))
bench_target "soak: RSS growth from 10 to $resets resets" "$growth" "<" 5 "%"
bench_target "soak: open descriptors gained" $((fds2 - fds1)) "<=" 0
bench_target "soak: threads gained" $((threads2 - threads1)) "<=" 0
((crashes == 0)) || { echo "soak: $crashes sanitizer reports in the log" >&2; exit 1; }
exit "$bench_missed"
