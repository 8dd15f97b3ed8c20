# Sourced by the benchmark scripts: their verdicts on their targets, in the form of the benchmark
# programs' (bench/support/BenchTarget.h).
#
# bench_target NAME VALUE OP LIMIT [UNIT]: prints "target: NAME: VALUE (OP LIMIT: met|MISSED)" and, when
# TAK_BENCH_RESULTS names a file, appends "NAME|VALUE|OP LIMIT|met" (or "missed") to it for the table of
# `make bench`. OP is <, <= or >=; UNIT follows the figures as written ("x", " ms", "%"). An empty or
# non-numeric VALUE misses. A missed target sets bench_missed=1 (the script's exit status at its end); the
# function itself returns 0, so that a script under `set -e` goes on to its other targets.
bench_missed=0
bench_target() {
  local name=$1 value=$2 op=$3 limit=$4 unit=${5:-} met measured
  met=$(awk -v v="$value" -v op="$op" -v l="$limit" 'BEGIN {
    if (v !~ /^[-+]?[0-9]*\.?[0-9]+([eE][-+]?[0-9]+)?$/) { print "missed"; exit }
    ok = (op == "<") ? v + 0 < l + 0 : (op == "<=") ? v + 0 <= l + 0 : (op == ">=") ? v + 0 >= l + 0 : 0
    print ok ? "met" : "missed" }')
  measured="$value$unit"
  [[ -n $value ]] || measured="not measured"
  printf 'target: %s: %s (%s %s%s: %s)\n' "$name" "$measured" "$op" "$limit" "$unit" \
    "$([[ $met == met ]] && echo met || echo MISSED)"
  if [[ -n ${TAK_BENCH_RESULTS:-} ]]; then
    printf '%s|%s|%s %s%s|%s\n' "$name" "$measured" "$op" "$limit" "$unit" "$met" >>"$TAK_BENCH_RESULTS"
  fi
  [[ $met == met ]] || bench_missed=1
}
