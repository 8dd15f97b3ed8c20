#!/usr/bin/env bash
# Start-up cost of tak-reset on a private bus, against two programs timed and measured the same way:
#  - the baseline (bench/support/startup_baseline.c), a bare GLib+GIO client that connects to the bus and
#    makes one call;
#  - the floor (bench/support/startup_floor.cpp), which does only what tak-reset must have done before
#    its first request can be dispatched.
# Each is measured from exec to ready (tak-reset: its first launch request dispatched), then idles before
# its RSS and private dirty memory are read. Prints the medians of several runs and checks the targets:
# start-up at most 1.5x the baseline's, idle RSS at most 1.1x the floor's, private dirty memory at most
# 1.25x the baseline's. Exit status 1 when one is missed.
set -euo pipefail
# shellcheck source=support/targets.sh
source "$(dirname "$0")/support/targets.sh"

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

# The three programs are timed by the same probe: from its fork to the marker on the program's output, then
# the RSS after `settle` ms of idling. tak-reset's log goes to its output; the marker is the log line of
# the first request's dispatch. The other two say "ready" once there.
# run MARKER STOP_COMMAND PROGRAM...: prints "<us> <RSS kB> <anonymous kB> <private dirty kB>"
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
# figure_line LABEL UNIT DIVISOR FILE_A FILE_B COLUMN: both medians and their ratio; sets `ratio`.
figure_line() {
    local a b
    a=$(column "$6" "$4")
    b=$(column "$6" "$5")
    ratio=$(awk -v a="$a" -v b="$b" 'BEGIN { if (b > 0) printf "%.2f", a / b }')
    awk -v l="$1" -v u="$2" -v d="$3" -v a="$a" -v b="$b" -v r="$ratio" \
        'BEGIN { printf "%-15s %8.2f %s against %8.2f %s   ratio %sx\n", l, a / d, u, b / d, u, r }'
}

echo "tak-reset against the baseline:"
figure_line "  start-up" ms 1000 "$root/reset.txt" "$root/baseline.txt" 1
bench_target "start-up: tak-reset / bare client" "$ratio" "<=" 1.5 x
figure_line "  private dirty" MB 1024 "$root/reset.txt" "$root/baseline.txt" 4
bench_target "private dirty: tak-reset / bare client" "$ratio" "<=" 1.25 x
# Most of the RSS is pages of shared libraries, which every process that maps them shares: the floor,
# which maps what tak-reset maps, is the fair measure for it.
figure_line "  idle RSS" MB 1024 "$root/reset.txt" "$root/baseline.txt" 2
echo "tak-reset against the floor:"
figure_line "  idle RSS" MB 1024 "$root/reset.txt" "$root/floor.txt" 2
bench_target "idle RSS: tak-reset / floor program" "$ratio" "<=" 1.1 x
figure_line "  start-up" ms 1000 "$root/reset.txt" "$root/floor.txt" 1
figure_line "  private dirty" MB 1024 "$root/reset.txt" "$root/floor.txt" 4
exit "$bench_missed"
