#!/usr/bin/env bash
# Runs the README's examples as written: the main job's command line (its
# output must hold the lines the README shows), and the C and Java programs
# with their build commands.  The code blocks are saved where those commands
# expect them, in a scratch folder that sees the checkout's include/ and
# examples/networks/ and this build as build/release.
# usage: readme_test.sh README SOURCE_DIR BUILD_DIR
set -euo pipefail
readme=$1
source=$2
build=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/build" "$work/examples/c" "$work/examples/java"
ln -s "$source/include" "$work/include"
ln -s "$source/examples/networks" "$work/examples/networks"
ln -s "$build" "$work/build/release"
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# block SECTION LANG [N]: the Nth (default 1st) ```LANG block under "## SECTION".
block() {
  awk -v section="## $1" -v fence='```'"$2" -v want="${3:-1}" '
    /^## / { inside = ($0 == section) }
    /^```/ { if (open) { open = 0; if (on) exit; next }
             open = 1; if (inside && $0 == fence && ++n == want) on = 1; next }
    on { print }' "$readme"
}

# run NAME SECTION N: runs the Nth sh block of SECTION in the scratch folder.
run() {
  local script
  script=$(block "$2" sh "$3")
  [[ -n $script ]] || { fail "$1: no sh block $3 under '$2'"; return; }
  (cd "$work" && bash -euo pipefail -c "$script") >"$work/$1.out" 2>"$work/$1.err" ||
    fail "$1: '$script' failed: $(cat "$work/$1.err")"
}

# The main job: every line the README shows ("..." elides lines) comes in order.
run main "Two commands" 2
block "Two commands" "" 1 >"$work/main.want"
awk 'NR == FNR { if ($0 != "...") want[++n] = $0; next }
  i < n && $0 == want[i + 1] { i++ } END { exit i != n }' "$work/main.want" "$work/main.out" ||
  fail "main job: the output lacks the README's lines: $(cat "$work/main.out")"

block "Calling Kelva from C" c >"$work/examples/c/rain.c"
run c "Calling Kelva from C" 1
[[ $(cat "$work/c.out") == $'P(rain=0 | wet=0) = 0.473684\nP(wet=0) = 0.38' ]] ||
  fail "C example printed: $(cat "$work/c.out")"

block "Calling Kelva from Java" java >"$work/examples/java/Rain.java"
run java "Calling Kelva from Java" 1
[[ $(sed -n 1p "$work/java.out") == "P(rain=0 | wet=0) = 0.47368421"* &&
   $(sed -n 2p "$work/java.out") == "P(wet=0) = 0.38"* ]] ||
  fail "Java example printed: $(cat "$work/java.out")"

((failures == 0)) && echo "kelva_readme: the README's examples run as written"
((failures == 0))
