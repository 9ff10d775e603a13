#!/usr/bin/env bash
# Checks `kelva adapt` (adapted tables against counting, fading, the
# experience kept in the output) and `kelva learn --discretize` on interval
# nodes from a .csv file.
# usage: adapt_test.sh KELVA_BINARY
set -euo pipefail

kelva=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

cat >"$work/pair.net" <<'NET'
net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1"); }
potential (A) { data = (0.5 0.5); }
potential (B | A) { data = ((0.5 0.5) (0.5 0.5)); }
NET
# Six cases: A = a1 four times; B missing once.
printf 'A,B\na1,b0\na1,b1\na0,b0\na1,*\na0,b1\na1,b1\n' >"$work/cases.csv"
out=$("$kelva" adapt "$work/pair.net" "$work/cases.csv" -o "$work/adapted.net" --quiet)
grep -q $'^cases\t6$' <<<"$out" || fail "adapt did not report 6 cases: $out"
# Experience 1 (0.5 0.5) plus the counts (2, 4): A = (2.5, 4.5) / 7.
grep -qF 'data = ( 0.357143 0.642857 );' "$work/adapted.net" || fail "A not counted"
grep -qF 'experience = ( 7 );' "$work/adapted.net" || fail "A's experience not kept"
# With fading 0.5 the last case weighs most: the experience is
# 1/64 + 1/32 + ... + 1 summed as the cases come.
"$kelva" adapt "$work/pair.net" "$work/cases.csv" -o "$work/faded.net" --fading 0.5 --quiet \
  >/dev/null
grep -qF 'experience = ( 1.98438 );' "$work/faded.net" || fail "fading not applied"
"$kelva" adapt "$work/pair.net" "$work/cases.csv" -o "$work/x.net" --fading 0 2>/dev/null &&
  fail "--fading 0 accepted"

# learn --discretize: a numeric column cut into the interval node's states.
cat >"$work/interval.net" <<'NET'
net {}
node X { states = ("" ""); subtype = interval; state_values = (0 1 2); }
node Y { states = ("y0" "y1"); }
potential (X) { data = (0.5 0.5); }
potential (Y | X) { data = ((0.5 0.5) (0.5 0.5)); }
NET
printf 'X,Y\n1,y0\n2,y0\n3,y1\n4,y1\n' >"$work/values.csv"
"$kelva" learn "$work/interval.net" "$work/values.csv" -o "$work/learned.net" --discretize frequency \
  --quiet >/dev/null || fail "learn --discretize failed"
grep -q 'state_values = (-infinity 2.5 infinity);' "$work/learned.net" ||
  fail "interval bounds not taken from the data"
"$kelva" learn "$work/interval.net" "$work/values.csv" -o "$work/plain.net" --quiet 2>/dev/null &&
  fail "values beyond the node's intervals accepted without --discretize"

exit $((failures > 0))
