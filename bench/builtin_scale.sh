#!/usr/bin/env bash
# Built-in service reset at scale: 100 and 1,000 built-in apps in fresh sandbox roots, each app requiring
# up to three others, a manager client watching, and the substitute library answering every install at
# once. Prints the time from the launch request to "biu_service_reset_result", the ratio of the two
# (target: 1,000 <= 11 x 100), the CPU time of the tak-reset process per app (target: < 1 ms), and where
# the rest of the wall time goes: the bus calls made and the CPU time of the stand-in daemon, the bus
# daemon and the manager client.
set -euo pipefail
build=${1:-build}
build=$(cd "$build" && pwd)
host="$build/tools/orvix-host/orvix-host"
# shellcheck source=support/wait_for_text.sh
source "$(dirname "$0")/support/wait_for_text.sh"
# shellcheck source=support/targets.sh
source "$(dirname "$0")/support/targets.sh"
for program in "$host" "$build/src/tak-reset"; do
  [[ -x "$program" ]] || { echo "builtin_scale: $program is missing; build the kit first" >&2; exit 1; }
done

now_ns() { date +%s%N; }
ticks=$(getconf CLK_TCK)

# CPU time (user + system) of a process in ms, 0 when it is gone.
cpu_ms() {
  local stat
  stat=$(cat "/proc/$1/stat" 2>/dev/null) || { echo 0; return; }
  stat=${stat##*) }
  read -r -a fields <<<"$stat"
  echo $(((fields[11] + fields[12]) * 1000 / ticks))
}

pid_of() { awk '{ print $1; exit }' "$1" 2>/dev/null || echo 0; }

run_one() {
  local apps=$1 root
  root=$(mktemp -d /tmp/builtin-scale-XXXXXX)
  export ORVIX_HOST_ROOT=$root
  trap '"$host" down >/dev/null 2>&1 || true; rm -rf "$root"' RETURN
  "$host" init --apps 0 --builtin "$apps" >/dev/null
  # The library's list: every built-in package, each requiring up to three others (a fixed pseudo-random
  # choice, so both sizes and every run get the same shape). No base versions: the substitute library
  # would rewrite the whole package-records file after every install, from inside the reset process,
  # which measures the stand-in rather than the reset.
  perl -MJSON::PP -e '
    my ($path, $n) = @ARGV; my $seed = 12345; my @list;
    sub rnd { $seed = ($seed * 1103515245 + 12345) % 2147483648; return $seed % $_[0]; }
    for my $i (1 .. $n) {
      my $id = sprintf("builtin%03d", $i); my %req;
      for (1 .. rnd(4)) { my $r = sprintf("builtin%03d", 1 + rnd($n)); $req{$r} = { version => "1.0", pkgid => "org.orvix.$r" }; }
      push @list, { appId => $id, pkgId => "org.orvix.$id", orvixId => $id, requires => \%req };
    }
    open(my $out, ">", $path) or die;
    print $out encode_json({ library => "present", builtin => { list => \@list, install => { delay_ms => 0 } } });
  ' "$root/etc/libtak_common.json" "$apps"
  "$host" libtak apply >/dev/null
  "$host" up >/dev/null
  "$host" client bench >/dev/null
  local start end calls="$root/var/log/calls.jsonl"
  start=$(now_ns)
  "$host" launch reset=biu_service_reset obj=bench method=m userdata=1 >/dev/null
  wait_for_text "$calls" '"biu_service_reset_result"' 600 ||
    { echo "builtin_scale: no result for $apps apps within 600 s" >&2; return 1; }
  end=$(now_ns)
  local reset_cpu inner_cpu bus_cpu client_cpu
  reset_cpu=$(cpu_ms "$(pid_of "$root/run/tak-reset/tak-reset.pid")")
  inner_cpu=$(cpu_ms "$(pid_of "$root/run/pids/innerserver.pid")")
  bus_cpu=$(cpu_ms "$(pid_of "$root/run/pids/dbus-daemon.pid")")
  client_cpu=$(cpu_ms "$(pid_of "$root/run/pids/managerclient.bench.pid")")
  local installs inner progress
  installs=$(grep -c '"method":"InstallAppAPI"' "$calls" || true)
  inner=$(grep -c '"who":"innerserver"' "$calls" || true)
  progress=$(grep -c '"tak_builtin_app_service_reset_result"' "$calls" || true)
  "$host" launch reset=end >/dev/null
  echo "$apps $(((end - start) / 1000000)) $reset_cpu $installs $inner $progress $inner_cpu $bus_cpu $client_cpu"
  for _ in $(seq 400); do [[ -n "$(find "$root/run" -name 'tak-reset.pid' 2>/dev/null)" ]] || break; sleep 0.05; done
}

report() {
  local apps=$1 ms=$2 cpu=$3 installs=$4 inner=$5 progress=$6 inner_cpu=$7 bus_cpu=$8 client_cpu=$9
  printf "  %5d apps: %6d ms wall, tak-reset CPU %5d ms (%.2f ms per app), %d installs\n" \
    "$apps" "$ms" "$cpu" "$(awk -v c="$cpu" -v n="$apps" 'BEGIN { print c / n }')" "$installs"
  printf "              bus calls: %d to the stand-in daemon, %d progress reports to the client\n" "$inner" "$progress"
  printf "              CPU elsewhere: stand-in daemon %d ms, bus daemon %d ms, manager client %d ms\n" \
    "$inner_cpu" "$bus_cpu" "$client_cpu"
}

small=$(run_one 100)
large=$(run_one 1000)
echo "built-in service reset, launch to biu_service_reset_result:"
# shellcheck disable=SC2086
report $small
# shellcheck disable=SC2086
report $large
read -r _ small_ms small_cpu _ <<<"$small"
read -r _ large_ms large_cpu _ <<<"$large"
bench_target "built-in reset: time at 1,000 / at 100 apps" \
  "$(awk -v a="$small_ms" -v b="$large_ms" 'BEGIN { if (a > 0) printf "%.2f", b / a }')" "<=" 11 x
bench_target "built-in reset: tak-reset CPU per app at 1,000" \
  "$(awk -v c="$large_cpu" 'BEGIN { printf "%.3f", c / 1000 }')" "<" 1 " ms"
exit "$bench_missed"
