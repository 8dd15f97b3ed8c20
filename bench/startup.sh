#!/usr/bin/env bash
# Start-up cost of tak-reset against a minimal GLib+GIO program on the same private bus:
#  - time: from exec to the first launch request dispatched (tak-reset) / to the one bus call answered
#    (baseline);
#  - idle RSS once there.
# Prints the medians of several runs and both ratios (target: at most 1.5x each).
set -euo pipefail

build=$(cd "${1:-build}" && pwd)
runs=${STARTUP_RUNS:-15}
settle=0.3  # seconds a process idles before its RSS is read

cmake --build "$build" -j2 --target tak-reset startup_baseline orvix-host >/dev/null
reset_bin="$build/src/tak-reset"
baseline_bin="$build/bench/support/startup_baseline"
host_bin=$(find "$build/tools" -type f -name orvix-host -perm -u+x | head -n1)
[[ -x "$reset_bin" && -x "$baseline_bin" && -n "$host_bin" ]] || { echo "startup: binaries missing" >&2; exit 1; }

root=$(mktemp -d "${TMPDIR:-/tmp}/tak-startup-XXXXXX")
export ORVIX_HOST_ROOT="$root"
cleanup() {
    "$host_bin" down >/dev/null 2>&1 || true
    rm -rf "$root"
}
trap cleanup EXIT

"$host_bin" init >/dev/null
"$host_bin" up >/dev/null
# shellcheck disable=SC1091
source "$root/run/env"
export DBUS_SYSTEM_BUS_ADDRESS

now_us() { local t=${EPOCHREALTIME/./}; echo $((10#$t)); }
rss_kb() { awk '/^VmRSS:/ {print $2}' "/proc/$1/status"; }
median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# One tak-reset run. Its log goes to a FIFO read by grep, which takes the log in blocks and stops at
# the dispatch line, so the reader costs the process under test next to nothing.
run_reset() {
    local fifo="$root/log.fifo" start end pid fd reader
    rm -f "$fifo"
    mkfifo "$fifo"
    exec {fd}<>"$fifo"
    timeout 30 grep -m1 -q -F "has key[reset] value[startup_bench]" <&"$fd" &
    reader=$!
    start=$(now_us)
    ORVIX_LOG_FILE="$fifo" "$reset_bin" reset=startup_bench &
    pid=$!
    wait "$reader" || { echo "startup: tak-reset never dispatched its first request" >&2; exit 1; }
    end=$(now_us)
    # Keep draining the log so that the process never blocks on it while it idles and exits.
    cat <&"$fd" >/dev/null &
    local drain=$!
    sleep "$settle"
    echo "$((end - start)) $(rss_kb "$pid")"
    "$host_bin" launch reset=end >/dev/null
    wait "$pid"
    kill "$drain" 2>/dev/null || true
    wait "$drain" 2>/dev/null || true
    exec {fd}<&-
}

run_baseline() {
    local start end line pid
    start=$(now_us)
    coproc BASELINE { exec "$baseline_bin"; }
    pid=$BASELINE_PID
    read -r -t 30 -u "${BASELINE[0]}" line
    end=$(now_us)
    [[ $line == ready ]] || { echo "startup: baseline did not get ready" >&2; exit 1; }
    sleep "$settle"
    echo "$((end - start)) $(rss_kb "$pid")"
    exec {BASELINE[1]}>&-
    wait "$pid"
}

: >"$root/reset.txt"
: >"$root/baseline.txt"
for ((i = 0; i < runs; i++)); do
    run_baseline >>"$root/baseline.txt"
    run_reset >>"$root/reset.txt"
done

reset_us=$(cut -d' ' -f1 "$root/reset.txt" | median)
reset_kb=$(cut -d' ' -f2 "$root/reset.txt" | median)
base_us=$(cut -d' ' -f1 "$root/baseline.txt" | median)
base_kb=$(cut -d' ' -f2 "$root/baseline.txt" | median)

awk -v rt="$reset_us" -v bt="$base_us" -v rk="$reset_kb" -v bk="$base_kb" 'BEGIN {
    printf "startup time  tak-reset %8.2f ms   baseline %8.2f ms   ratio %.2fx (target <= 1.5x)\n", rt / 1000, bt / 1000, rt / bt
    printf "idle RSS      tak-reset %8.2f MB   baseline %8.2f MB   ratio %.2fx (target <= 1.5x)\n", rk / 1024, bk / 1024, rk / bk
}'
