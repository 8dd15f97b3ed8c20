#!/usr/bin/env bash
# tak-reset-report over about 100 MB of logs: a platform log of many resets of every kind (their apps,
# answers, failures, time-outs, kept apps, clean-up, results), debug noise and lines of another process,
# and a history log with a rotated copy. Prints the time of `tak-reset-report --json` over the directory,
# that of `grep -c` over the same files in the same run, their ratio, and whether the report took under
# 5 s (the target for 100 MB).
set -euo pipefail
build=${1:-build}
build=$(cd "$build" && pwd)
report="$build/src/tak-reset-report"
[[ -x "$report" ]] || { echo "report_scale: $report is missing; build tak-reset-report first" >&2; exit 1; }
megabytes=${REPORT_SCALE_MB:-100}

dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# One reset takes about 20 kB of platform log: ~180 lines.
awk -v megabytes="$megabytes" -v dir="$dir" 'BEGIN {
  esc = sprintf("%c", 27)
  platform = dir "/tak-reset.log"; history = dir "/tak_reset_history.log"; rotated = history ".1"
  kinds[0] = "tak_app_reset"; kinds[1] = "tak_service_reset"; kinds[2] = "corvane_reset"
  kinds[3] = "biu_app_reset"; kinds[4] = "biu_service_reset"
  ms = 0; bytes = 0; limit = megabytes * 1024 * 1024 * 0.9
  line(500, "E", "Reset/src/main", "----------Reset main() start.---------")
  for (n = 0; bytes < limit; ++n) {
    kind = kinds[n % 5]; builtin = kind ~ /^biu_/
    line(500, "I", "Commons/Common/src/ProcessCore", "CONTROL")
    line(500, "I", "Commons/Common/src/ProcessCore", "has key[reset] value[" kind "]")
    line(500, "I", "Commons/Common/src/ProcessCore", "has key[userdata] value[" n "]")
    line(500, "E", "Reset/src/ResetCore", builtin ? "BuiltIn Reset Start" : (kind == "corvane_reset" ? "Corvane Start" : "App Reset Start"))
    src = builtin ? "Reset/src/BuiltInAppReset" : "Reset/src/Reset"
    verb = builtin ? "install of " : "uninstall of "
    if (!builtin) {
      line(501, "I", "Reset/src/AppsResetRules", "kept" n " is configured as disable reset, continue to uninstall next apps")
      stamp(n % 2 ? rotated : history, "[AppsReset][118]Start")
    }
    for (a = 0; a < 40; ++a) {
      id = "app" n "x" a
      if (builtin) line(501, "I", "Reset/src/BuiltInResetRules", "add " id " to instant reset list")
      line(501, "I", src, "Reset " id)
      line(501, "D", "Commons/Common/src/TAKDBTable", "select * from app_info where id = " id)
      if (a == 7) {
        line(501, "W", src, verb id " timed out after 30 s")
      } else {
        if (builtin) line(503, "I", src, "install of " id " answered with state " (a == 3 ? 103 : 110))
        if (a == 3) line(503, "W", src, verb id (builtin ? " failed (state 103)" : " failed"))
        if (!builtin) line(503, "I", src, "uninstall callback appid " id " ")
      }
      if (a % 10 == 0) line(900, "I", "Other/src/Other", "a line of another process " a)
    }
    if (!builtin) {
      line(501, "I", src, "clean-up of 7 steps starts")
      line(501, "I", src, "clean-up emptied /opt/usr/apps_rw/vardell/clone/")
    }
    line(501, "I", "Commons/Common/src/ProcessDbus", "process_result name[" kind "_result] value[1] cookie[" n "]")
    line(501, "D", "Commons/Common/src/ProcessDbus", "MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]")
    line(501, "D", "Commons/Common/src/ProcessDbus", "method call success")
    if (!builtin) stamp(n % 2 ? rotated : history, "[m_ClearDB][637]End")
  }
}
function line(tid, level, source, message,   pid, text) {
  ms += 7
  pid = tid == 900 ? 900 : 500
  text = sprintf("%s %s/TAK(%5d:%5d): %s[33m../../src/%s: f(1) > %s%s[0m", clock(ms), level, pid, tid, esc, source, message, esc)
  print text > platform
  bytes += length(text) + 1
}
function clock(t,   s) {
  s = int(t / 1000)
  return sprintf("%02d-%02d %02d:%02d:%02d.%03d", 1 + int(s / 2419200) % 12, 1 + int(s / 86400) % 28, int(s / 3600) % 24, int(s / 60) % 60, s % 60, t % 1000)
}
function stamp(file, message) {
  print "2026-01-01T00:00:00:>" message > file
}'

files=("$dir"/tak-reset.log "$dir"/tak_reset_history.log*)
size=$(du -cb "${files[@]}" | tail -1 | cut -f1)

now_ns() { date +%s%N; }
start=$(now_ns)
grep -c "Reset" "${files[@]}" >/dev/null || true
grep_ns=$(($(now_ns) - start))
start=$(now_ns)
status=0
"$report" --json "$dir" >"$dir/report.json" 2>"$dir/report.err" || status=$?
report_ns=$(($(now_ns) - start))
resets=$(grep -c '"kind"' "$dir/report.json" || true)

awk -v size="$size" -v g="$grep_ns" -v r="$report_ns" -v status="$status" -v resets="$resets" 'BEGIN {
  printf "logs: %.1f MB, %d resets reported (exit status %d)\n", size / 1048576, resets, status
  printf "grep -c:          %.3f s\n", g / 1e9
  printf "tak-reset-report: %.3f s (%.1f x grep -c)\n", r / 1e9, r / g
  printf "under 5 s for 100 MB: %s\n", (r / 1e9) * (104857600 / size) < 5 ? "yes" : "no"
}'
sed 's/^/stderr: /' "$dir/report.err"
