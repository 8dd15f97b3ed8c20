#!/usr/bin/env bash
# Runs the commands of a README as a newcomer would, so that the README cannot drift from the kit.
#
#   tests/readme/check_readme.sh README.md BUILD_DIR
#
# Every fenced block must say what it is, after the opening fence:
#   ```sh         run, in the order of the README, in one bash (errexit, pipefail), from a scratch
#                 directory whose `build` is BUILD_DIR, with TMPDIR and XDG_DATA_HOME in a temporary
#                 directory that is removed afterwards (with `orvix-host down` for every root made there)
#   ```sh make    not run (builds, installs, packages): each `make T` must be a target of the Makefile
#                 beside the README, each `orvix-host SUB` a subcommand, any other program on PATH or
#                 installed by the build (tak-reset-demo)
#   ```text       an illustration, not run
# Also checked: the README stays under 15 KB, and every link to a file of the tree names a file that exists.
#
# Exit status 0 when everything ran or checked, 1 naming the block and the README line that failed,
# 2 for bad arguments. CHECK_README_TIMEOUT (300) bounds the run of all `sh` blocks, in seconds. What the
# commands print is shown only when one fails.
set -uo pipefail

readme=${1:-}
build=${2:-}
if [[ ! -f "$readme" || ! -d "$build" ]]; then
  echo "usage: check_readme.sh README.md BUILD_DIR" >&2
  exit 2
fi
readme=$(cd "$(dirname "$readme")" && pwd)/$(basename "$readme")
source_dir=$(dirname "$readme")
build=$(cd "$build" && pwd)
orvix_host=$build/tools/orvix-host/orvix-host
max_bytes=15360
failures=0

fail() {
  echo "check_readme: $*" >&2
  failures=$((failures + 1))
}

# Short names: a root below it must leave room for its bus socket path (108 bytes).
work=$(mktemp -d "${TMPDIR:-/tmp}/cr.XXXXXX")
cleanup() {
  # A walk-through that stopped half-way leaves its root's processes running: stop them first.
  local marker
  while IFS= read -r marker; do
    ORVIX_HOST_ROOT=$(dirname "$marker") "$orvix_host" down >/dev/null 2>&1 || true
  done < <(find "$work/t" -maxdepth 3 -name .orvix-host 2>/dev/null)
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Splits the README into blocks: for each one a line "KIND START_LINE" in $work/blocks, its text in
# $work/block.N, and for each of its lines the README line number in $work/block.N.lines.
awk -v dir="$work" '
  /^```/ {
    if (!open) {
      open = NR; n++; info = substr($0, 4); gsub(/^[ \t]+|[ \t]+$/, "", info)
      print (info == "" ? "-" : info) "\t" NR > (dir "/blocks")
      printf "" > (dir "/block." n); printf "" > (dir "/block." n ".lines")
    } else {
      open = 0; close(dir "/block." n); close(dir "/block." n ".lines")
    }
    next
  }
  open { print > (dir "/block." n); print NR > (dir "/block." n ".lines") }
  END { if (open) print "unclosed\t" open > (dir "/blocks") }
' "$readme"
touch "$work/blocks"

size=$(wc -c <"$readme")
((size < max_bytes)) || fail "README is $size bytes; keep it under $max_bytes"

# Links to files of the tree: [text](path) where path is not a URL or an anchor.
while IFS= read -r link; do
  target=${link%%#*}
  [[ -z "$target" || "$target" == *://* || "$target" == mailto:* ]] && continue
  [[ -e "$source_dir/$target" ]] || fail "README links to $target, which does not exist"
done < <(grep -o '\](\([^)]*\))' "$readme" | sed 's/^](\(.*\))$/\1/')

# The program of one command of a `sh make` block, after assignments and sudo.
check_static_command() {
  local where=$1 command=$2
  local -a words
  read -r -a words <<<"$command"
  while ((${#words[@]} > 0)) && [[ "${words[0]}" == *=* || "${words[0]}" == sudo ]]; do
    words=("${words[@]:1}")
  done
  ((${#words[@]} > 0)) || return 0
  local problem="" checked="${words[0]} ${words[1]:-}"
  case "${words[0]}" in
    make)
      # -q runs nothing: 0 or 1 (up to date or not) for a target, 2 for none.
      make -C "$source_dir" -q "${words[1]:-test}" >/dev/null 2>&1
      (($? < 2)) || problem="no target '${words[1]:-test}' in the Makefile"
      ;;
    orvix-host)
      "$orvix_host" help "${words[1]:-help}" >/dev/null 2>&1 ||
        problem="orvix-host has no subcommand '${words[1]:-}'"
      ;;
    tak-reset-demo)
      grep -q 'tak-reset-demo' "$source_dir/CMakeLists.txt" "$source_dir"/*/CMakeLists.txt 2>/dev/null ||
        problem="nothing installs tak-reset-demo"
      ;;
    *)
      checked="${words[0]} (on PATH)"
      command -v "${words[0]}" >/dev/null || problem="${words[0]} is neither on PATH nor a program of the kit"
      ;;
  esac
  if [[ -n "$problem" ]]; then
    fail "$where: '$command': $problem"
  else
    echo "  checked, not run: $checked"
  fi
}

# The `sh` blocks, in order, as one script; $work/runner.lines maps its lines to README lines.
runner=$work/runner.sh
cat >"$runner" <<'EOF'
set -eE -o pipefail
__fail() {
  local readme_line
  readme_line=$(sed -n "${1}p" "$__lines")
  echo "check_readme: $__block failed at README line $readme_line: $(sed -n "${readme_line}p" "$__readme")" >"$__failure"
  exit 1
}
trap '__fail $LINENO' ERR
EOF
yes 0 | head -n "$(wc -l <"$runner")" >"$work/runner.lines"

n=0
while IFS=$'\t' read -r kind start; do
  n=$((n + 1))
  where="block $n (README line $start)"
  case "$kind" in
    sh)
      printf '__block=%q; echo "== %s"\n' "$where" "$where" >>"$runner"
      echo "$start" >>"$work/runner.lines"
      cat "$work/block.$n" >>"$runner"
      cat "$work/block.$n.lines" >>"$work/runner.lines"
      ;;
    "sh make")
      echo "== $where: make targets and install steps"
      while IFS= read -r line; do
        line=${line%%#*}
        IFS=$'\n' read -r -d '' -a commands < <(sed 's/&&/\n/g; s/;/\n/g' <<<"$line" && printf '\0')
        for command in "${commands[@]}"; do
          [[ -n "${command// /}" ]] && check_static_command "$where" "$command"
        done
      done <"$work/block.$n"
      ;;
    text) ;;
    unclosed) fail "the code block opened at README line $start is never closed" ;;
    *) fail "$where: say what the block is after its fence: sh, sh make or text (not '$kind')" ;;
  esac
done <"$work/blocks"

if ((failures > 0)); then
  exit 1
fi

mkdir -p "$work/src" "$work/t" "$work/xdg"
ln -s "$build" "$work/src/build"
timeout_s=${CHECK_README_TIMEOUT:-300}
(
  cd "$work/src" &&
    env -u ORVIX_HOST_ROOT -u DBUS_SYSTEM_BUS_ADDRESS TMPDIR="$work/t" XDG_DATA_HOME="$work/xdg" \
      __lines="$work/runner.lines" __readme="$readme" __failure="$work/failure" \
      timeout "$timeout_s" bash "$runner" >"$work/output" 2>&1
)
status=$?
if ((status == 0)); then
  grep '^== block' "$work/output"
else
  echo "-- the last lines the commands printed:"
  tail -n 30 "$work/output"
  [[ -f "$work/failure" ]] && cat "$work/failure" >&2
fi
if ((status == 124)); then
  fail "the sh blocks did not end within $timeout_s s (the last block started is named above)"
elif ((status != 0)); then
  failures=$((failures + 1))
fi
((failures == 0))
