#!/usr/bin/env bash
# The two builds side by side: the stripped size of tak-reset and of the substitute libtak_common.so for
# x86-64 (build/) and 64-bit ARM (build-arm64/), and, for information, the idle RSS of tak-reset on each,
# the arm64 one under qemu-aarch64 (so the emulator's own memory is in its figure).
#
#   bash bench/arch_figures.sh [BUILD] [ARM64_BUILD]
#
# Without an arm64 build it says how to make one and measures nothing.
set -euo pipefail

build=$(cd "${1:-build}" && pwd)
arm=${2:-build-arm64}
runs=${ARCH_FIGURE_RUNS:-5}
settle_ms=300

if [[ ! -x "$arm/src/tak-reset" || ! -f "$arm/tools/libtak_common/libtak_common.so" ]]; then
    echo "arch figures: no arm64 build in $arm; 'make cross ARCH=arm64' makes one"
    exit 0
fi
arm=$(cd "$arm" && pwd)
for tool in aarch64-linux-gnu-strip qemu-aarch64; do
    command -v "$tool" >/dev/null || { echo "arch figures: $tool missing; scripts/install-deps cross arm64" >&2; exit 1; }
done
cmake --build "$build" -j2 --target tak-reset tak_common_substitute startup_probe orvix-host >/dev/null

work=$(mktemp -d "${TMPDIR:-/tmp}/tak-arch-XXXXXX")
host_bin="$build/tools/orvix-host/orvix-host"
cleanup() {
    for root in "$work"/root-*; do
        [[ -d $root ]] && ORVIX_HOST_ROOT=$root "$host_bin" down >/dev/null 2>&1 || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

stripped_kb() {  # STRIP FILE
    cp "$2" "$work/stripped"
    "$1" "$work/stripped"
    echo $(($(stat -c %s "$work/stripped") / 1024))
}

printf '%-22s %10s %10s %8s\n' "stripped size (KiB)" x86-64 arm64 ratio
for pair in "tak-reset:src/tak-reset" "libtak_common.so:tools/libtak_common/libtak_common.so"; do
    name=${pair%%:*}
    path=${pair#*:}
    x86=$(stripped_kb strip "$build/$path")
    a64=$(stripped_kb aarch64-linux-gnu-strip "$arm/$path")
    awk -v n="$name" -v x="$x86" -v a="$a64" 'BEGIN { printf "  %-20s %10d %10d %7.2fx\n", n, x, a, a / x }'
done

median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# Idle RSS in kB of tak-reset started by the probe in a root of its own, with the library of its processor.
idle_rss() {  # LABEL LIBRARY PROGRAM...
    local label=$1 library=$2 result
    shift 2
    local root="$work/root-$label"
    export ORVIX_HOST_ROOT=$root
    ORVIX_LIBTAK=$library "$host_bin" init >/dev/null
    "$host_bin" up >/dev/null
    source "$root/run/env"
    export DBUS_SYSTEM_BUS_ADDRESS
    : >"$work/rss-$label"
    for ((i = 0; i < runs; i++)); do
        coproc PROBE { ORVIX_LOG_FILE=/dev/stdout exec "$build/bench/support/startup_probe" "$settle_ms" \
            "has key[reset] value[arch_figures]" "$@" reset=arch_figures; }
        local pid=$PROBE_PID
        if ! read -r -t 60 -u "${PROBE[0]}" result; then
            echo "arch figures: tak-reset ($label) did not get ready" >&2
            return 1
        fi
        echo "$result" | cut -d' ' -f2 >>"$work/rss-$label"
        "$host_bin" launch reset=end >/dev/null
        exec {PROBE[1]}>&-
        wait "$pid" || true
    done
    "$host_bin" down >/dev/null
    median <"$work/rss-$label"
}

x86_rss=$(idle_rss x86 "$build/tools/libtak_common/libtak_common.so" "$build/src/tak-reset")
arm_rss=$(idle_rss arm64 "$arm/tools/libtak_common/libtak_common.so" "$(command -v qemu-aarch64)" "$arm/src/tak-reset")
echo "idle RSS of tak-reset, median of $runs (for information: the arm64 figure includes the emulator)"
awk -v x="$x86_rss" -v a="$arm_rss" \
    'BEGIN { printf "  %-20s %8.1f MB %8.1f MB %7.2fx\n", "tak-reset", x / 1024, a / 1024, a / x }'
