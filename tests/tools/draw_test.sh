#!/usr/bin/env bash
# Checks `kelva draw`: Graphviz renders the DOT of every shared network and
# of the junction forests of the smaller ones without a message; shapes,
# shading and bars follow the nodes; bad output names are refused.
# usage: draw_test.sh KELVA_BINARY DEFAULT_SHARED_DIR (KELVA_SHARED_DIR wins)
set -euo pipefail

kelva=$1
nets=${KELVA_SHARED_DIR:-$2}/nets
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}
if ! command -v dot >/dev/null; then
  echo "dot (graphviz) is not installed" >&2
  exit 1
fi

# Renders $1 and fails on any message of Graphviz.
renders() {
  dot -Tsvg "$1" -o /dev/null 2>"$work/dot.err" && [[ ! -s $work/dot.err ]] ||
    fail "$1: $(head -n 3 "$work/dot.err")"
}

for net in "$nets"/*.net; do
  [[ -e $net ]] || break
  name=$(basename "$net" .net)
  # Networks the reader refuses have nothing to draw.
  "$kelva" draw "$net" -o "$work/$name.dot" --quiet 2>/dev/null || continue
  renders "$work/$name.dot"
  if (($(stat -c %s "$net") < 100000)); then
    "$kelva" draw "$net" --junction-tree -o "$work/$name-jt.dot" --quiet 2>/dev/null || fail "$name: forest"
    renders "$work/$name-jt.dot"
  fi
done

"$kelva" draw --example asia --set xray=yes -o "$work/asia.dot" --quiet
grep -q '^  "xray" \[shape=ellipse, style=filled' "$work/asia.dot" || fail "evidence not shaded"
[[ $(grep -o 'BGCOLOR="#4a78b5"' "$work/asia.dot" | wc -l) == 16 ]] || fail "not one bar per state"
"$kelva" draw --example asia --junction-tree -o "$work/asia-jt.dot" --quiet
grep -q 'label="either bronc (4)"' "$work/asia-jt.dot" || fail "separator label"
[[ $(grep -c -- ' -- ' "$work/asia-jt.dot") == 5 ]] || fail "not one edge per separator"
"$kelva" draw --example asia -o "$work/asia.png" --quiet
[[ $(head -c 4 "$work/asia.png" | tail -c 3) == PNG ]] || fail "no PNG written"
if [[ -e $nets/id-example-unbbayes.net ]]; then
  "$kelva" draw "$nets/id-example-unbbayes.net" -o "$work/id.dot" --quiet 2>/dev/null
  grep -q 'shape=box' "$work/id.dot" && grep -q 'shape=diamond' "$work/id.dot" ||
    fail "decision or utility shape missing"
fi
status=0
"$kelva" draw --example asia -o "$work/asia.txt" 2>/dev/null || status=$?
((status == 2)) || fail "a .txt output gave status $status, not 2"

((failures == 0)) || exit 1
echo "kelva draw: checks passed"
