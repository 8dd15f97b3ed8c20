#!/usr/bin/env bash
# Start-up cost of tak-reset against a minimal GLib+GIO program on the same private bus:
#  - time: from exec to the first launch request dispatched (tak-reset) / to the one bus call answered
#    (baseline);
#  - idle RSS once there.
# Prints the medians of several runs and both ratios (target: at most 1.5x each).
set -euo pipefail

build=$(cd "${1:-build}" && pwd)
runs=${STARTUP_RUNS:-15}
settle_ms=300  # how long a process idles before its RSS is read

cmake --build "$build" -j2 --target tak-reset startup_baseline startup_probe orvix-host >/dev/null
reset_bin="$build/src/tak-reset"
baseline_bin="$build/bench/support/startup_baseline"
probe_bin="$build/bench/support/startup_probe"
host_bin=$(find "$build/tools" -type f -name orvix-host -perm -u+x | head -n1)
[[ -x "$reset_bin" && -x "$baseline_bin" && -x "$probe_bin" && -n "$host_bin" ]] || { echo "startup: binaries missing" >&2; exit 1; }

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
for ((i = 0; i < runs; i++)); do
    run ready "" "$baseline_bin" >>"$root/baseline.txt"
    ORVIX_LOG_FILE=/dev/stdout run "has key[reset] value[startup_bench]" "$host_bin launch reset=end" \
        "$reset_bin" reset=startup_bench >>"$root/reset.txt"
done

column() { cut -d' ' -f"$1" "$2" | median; }
reset_us=$(column 1 "$root/reset.txt")
reset_kb=$(column 2 "$root/reset.txt")
reset_anon=$(column 3 "$root/reset.txt")
base_us=$(column 1 "$root/baseline.txt")
base_kb=$(column 2 "$root/baseline.txt")
base_anon=$(column 3 "$root/baseline.txt")

# The third line is for information: most of the RSS is pages of shared libraries, which every process
# that maps them shares; the anonymous part is what this process alone costs.
awk -v rt="$reset_us" -v bt="$base_us" -v rk="$reset_kb" -v bk="$base_kb" -v ra="$reset_anon" -v ba="$base_anon" 'BEGIN {
    printf "startup time  tak-reset %8.2f ms   baseline %8.2f ms   ratio %.2fx (target <= 1.5x)\n", rt / 1000, bt / 1000, rt / bt
    printf "idle RSS      tak-reset %8.2f MB   baseline %8.2f MB   ratio %.2fx (target <= 1.5x)\n", rk / 1024, bk / 1024, rk / bk
    printf "  anonymous   tak-reset %8.2f MB   baseline %8.2f MB   ratio %.2fx\n", ra / 1024, ba / 1024, ra / ba
}'
