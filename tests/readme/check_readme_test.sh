#!/usr/bin/env bash
# The README check must fail where a README is wrong, and name where: each case is a small README (with a
# Makefile beside it) that the check runs against BUILD_DIR's kit, the exit status it must give and a
# text its output must hold.
#
#   tests/readme/check_readme_test.sh BUILD_DIR
set -uo pipefail
shopt -s lastpipe # a case at the end of a pipe still counts its failure
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: check_readme_test.sh BUILD_DIR}" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/crt.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0

# case_ NAME STATUS EXPECTED_TEXT: README text on standard input; $timeout bounds its commands (300 s).
cases=0
case_() {
  local name=$1 want_status=$2 want_text=$3
  cases=$((cases + 1))
  local dir=$work/$cases
  mkdir -p "$dir/tmp"
  printf 'demo:\n\t@true\n' >"$dir/Makefile"
  cat >"$dir/README.md"
  TMPDIR=$dir/tmp CHECK_README_TIMEOUT=${timeout:-300} bash "$here/check_readme.sh" "$dir/README.md" "$build" >"$dir/out" 2>&1
  local status=$?
  if [[ $status -ne $want_status ]] || ! grep -qF -- "$want_text" "$dir/out"; then
    echo "FAILED $name: exit status $status (want $want_status), output (want '$want_text'):"
    sed 's/^/  | /' "$dir/out"
    failures=$((failures + 1))
  elif pgrep -f -- "$dir/tmp/" >/dev/null; then
    echo "FAILED $name: processes of its root still run: $(pgrep -a -f -- "$dir/tmp/")"
    failures=$((failures + 1))
  elif [[ -n "$(ls -A "$dir/tmp")" ]]; then
    echo "FAILED $name: left behind in TMPDIR: $(ls -A "$dir/tmp")"
    failures=$((failures + 1))
  else
    echo "ok $name"
  fi
}

# A fenced block: its kind, then its lines.
block() {
  printf '```%s\n' "$1"
  shift
  printf '%s\n' "$@" '```'
}

{ block "sh make" "make demo"; block sh 'x=$(mktemp -d)' 'test -d "$x"'; block text "not a command at all"; } |
  case_ passes 0 ""
{ block sh true; block sh "echo first" "grep -q absent /dev/null" "echo never"; } |
  case_ names_the_failing_line 1 "block 2 (README line 4) failed at README line 6: grep -q absent /dev/null"
block sh 'export ORVIX_HOST_ROOT=$(mktemp -d) PATH="$PWD/build/tools/orvix-host:$PATH"' \
  "orvix-host init --apps 1 && orvix-host up" false |
  case_ stops_the_kit_of_a_failed_walk_through 1 "failed at README line 4: false"
block sh "tail -f /dev/null" | timeout=2 case_ bounds_a_command_that_never_ends 1 "did not end within 2 s"
block "sh make" "make nosuch" | case_ unknown_make_target 1 "no target 'nosuch' in the Makefile"
block "sh make" "orvix-host nosuch" | case_ unknown_subcommand 1 "orvix-host has no subcommand 'nosuch'"
block "" "echo hi" | case_ block_without_a_kind 1 "say what the block is after its fence"
echo "See [nowhere](docs/nowhere.md)." |
  case_ missing_link_target 1 "README links to docs/nowhere.md, which does not exist"
head -c 16000 /dev/zero | tr '\0' 'x' | case_ too_long 1 "keep it under 15360"
printf 'text\n```sh\necho hi\n' | case_ unclosed_block 1 "the code block opened at README line 2 is never closed"

exit $((failures > 0))
