# Sourced by the benchmark scripts.
#
# wait_for_text FILE TEXT SECONDS: 0 as soon as FILE holds TEXT, 1 when SECONDS have passed first.
# Each poll reads only what the file gained since the one before (plus TEXT's length, so that a text
# cut by a poll is still found): the call log grows with every app of a reset, and reading all of it at
# every poll made the harness's own cost grow with the square of the reset's size, on the two cores the
# reset runs on.
wait_for_text() {
  local file=$1 text=$2 deadline=$((SECONDS + $3)) offset=0 size
  while ((SECONDS < deadline)); do
    size=$(stat -c %s "$file" 2>/dev/null || echo 0)
    if ((size > offset)); then
      if grep -qF -- "$text" < <(tail -c +$((offset + 1)) "$file" 2>/dev/null); then
        return 0
      fi
      offset=$((size > ${#text} ? size - ${#text} : 0))
    fi
    sleep 0.02
  done
  return 1
}
