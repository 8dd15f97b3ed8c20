#!/usr/bin/env bash
# Start-up cost of tak-reset against a minimal GLib+GIO program on the same private bus:
#  - time: from exec to the first launch request dispatched (tak-reset) / to the one bus call answered
#    (baseline);
#  - idle RSS once there.
# Prints the medians of several runs and both ratios (target: at most 1.5x each). A third program, the
# floor (bench/support/startup_floor.cpp), does only what tak-reset must have done before its first
# request can be dispatched; its ratios tell how much of tak-reset's cost is its own.
set -euo pipefail

build=$(cd "${1:-build}" && pwd)
runs=${STARTUP_RUNS:-15}
settle_ms=300  # how long a process idles before its RSS is read

cmake --build "$build" -j2 --target tak-reset startup_baseline startup_probe startup_floor orvix-host >/dev/null
reset_bin="$build/src/tak-reset"
baseline_bin="$build/bench/support/startup_baseline"
probe_bin="$build/bench/support/startup_probe"
floor_bin="$build/bench/support/startup_floor"
host_bin=$(find "$build/tools" -type f -name orvix-host -perm -u+x | head -n1)
[[ -x "$reset_bin" && -x "$baseline_bin" && -x "$probe_bin" && -x "$floor_bin" && -n "$host_bin" ]] || { echo "startup: binaries missing" >&2; exit 1; }

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

median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# Both programs are timed by the same probe: from its fork to the marker on the program's output, then
# the RSS after `settle` ms of idling. tak-reset's log goes to its output; the marker is the log line of
# the first request's dispatch. The baseline says "ready" once its call is answered.
# run MARKER STOP_COMMAND PROGRAM...: prints "<us> <RSS kB> <anonymous kB>"
run() {
    local marker=$1 stop=$2 result
    shift 2
    coproc PROBE { exec "$probe_bin" "$settle_ms" "$marker" "$@"; }
    local pid=$PROBE_PID
    read -r -t 30 -u "${PROBE[0]}" result || { echo "startup: $1 did not get ready" >&2; exit 1; }
    echo "$result"
    [[ -z $stop ]] || $stop >/dev/null
    exec {PROBE[1]}>&-
    wait "$pid"
}

: >"$root/reset.txt"
: >"$root/baseline.txt"
: >"$root/floor.txt"
for ((i = 0; i < runs; i++)); do
    run ready "" "$baseline_bin" >>"$root/baseline.txt"
    run ready "" "$floor_bin" >>"$root/floor.txt"
    ORVIX_LOG_FILE=/dev/stdout run "has key[reset] value[startup_bench]" "$host_bin launch reset=end" \
        "$reset_bin" reset=startup_bench >>"$root/reset.txt"
done

column() { cut -d' ' -f"$1" "$2" | median; }
ratio_line() {  # LABEL UNIT DIVISOR FILE_A FILE_B COLUMN TARGET
    local a b
    a=$(column "$6" "$4")
    b=$(column "$6" "$5")
    awk -v l="$1" -v u="$2" -v d="$3" -v a="$a" -v b="$b" -v t="$7" \
        'BEGIN { printf "%-13s %8.2f %s against %8.2f %s   ratio %.2fx%s\n", l, a / d, u, b / d, u, a / b, t }'
}

echo "tak-reset against the baseline:"
ratio_line "  start-up" ms 1000 "$root/reset.txt" "$root/baseline.txt" 1 " (target <= 1.5x)"
ratio_line "  idle RSS" MB 1024 "$root/reset.txt" "$root/baseline.txt" 2 " (target <= 1.5x)"
# Most of the RSS is pages of shared libraries, which every process that maps them shares; the
# anonymous part is what a process alone costs.
ratio_line "  anonymous" MB 1024 "$root/reset.txt" "$root/baseline.txt" 3 ""
echo "the floor against the baseline (for information):"
ratio_line "  start-up" ms 1000 "$root/floor.txt" "$root/baseline.txt" 1 ""
ratio_line "  idle RSS" MB 1024 "$root/floor.txt" "$root/baseline.txt" 2 ""
