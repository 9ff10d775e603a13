#!/usr/bin/env bash
# Checks `kelva learn-structure`: every method on sampled cases gives a
# network that reads back, and bad data is refused with a message naming
# the cause and no output file.
# usage: learn_structure_test.sh KELVA_BINARY
set -euo pipefail

kelva=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

"$kelva" sample --example asia -n 3000 -o "$work/asia.dat" --seed 3 --hide 0.05 --quiet
for method in pc npc tree greedy; do
  out=$("$kelva" learn-structure "$work/asia.dat" -o "$work/$method.net" --method "$method" --quiet) ||
    fail "$method failed"
  grep -q $'^cases\t3000$' <<<"$out" || fail "$method: cases not reported: $out"
  [[ $method != npc ]] || grep -q $'^regions\t' <<<"$out" || fail "npc: no regions line: $out"
  "$kelva" nodes "$work/$method.net" --quiet >/dev/null || fail "$method: output does not read back"
done
"$kelva" learn-structure "$work/asia.dat" -o "$work/tan.net" --method tree --target lung --quiet \
  >/dev/null || fail "tree with a target failed"

# A data set file with missing cells ("?", "*", empty) and case counts.
printf 'A,B,C,#\nx,1,k,2\ny,?,m,1\nx,2,*,3\ny,2,,1\nx,1,k,1\n' >"$work/missing.csv"
out=$("$kelva" learn-structure "$work/missing.csv" -o "$work/missing.net" --method greedy --quiet) ||
  fail "a data set file with missing cells was refused"
grep -q $'^cases\t5$' <<<"$out" || fail "missing.csv: $out"

# Bad data: a constant column, a single case, a column that is no node name.
printf 'A,B\nx,1\ny,1\n' >"$work/constant.csv"
printf 'A,B\nx,1\n' >"$work/single.csv"
printf 'A,B c\nx,1\ny,2\n' >"$work/name.csv"
for bad in constant:"column 'B' holds one value" single:"1 case" name:"'B c' is not a usable"; do
  file=${bad%%:*}
  if "$kelva" learn-structure "$work/$file.csv" -o "$work/$file.net" 2>"$work/err"; then
    fail "$file accepted"
  fi
  grep -qF "${bad#*:}" "$work/err" || fail "$file: message was $(cat "$work/err")"
  [[ ! -e $work/$file.net ]] || fail "$file: an output file was written"
done
# learn --structure is learn-structure by another name; learn keeps its files.
out=$("$kelva" learn "$work/asia.dat" --structure greedy -o "$work/l.net" --quiet) || fail "learn --structure"
grep -q $'^method\tgreedy$' <<<"$out" || fail "learn --structure: $out"
"$kelva" learn --example asia "$work/asia.dat" --structure pc -o "$work/l.net" 2>/dev/null &&
  fail "learn --structure with a network accepted"
out=$("$kelva" learn "$work/asia.dat" --structure hnb --target either -o "$work/hnb.net" --quiet) ||
  fail "hnb failed"
grep -q $'^latent\t' <<<"$out" || fail "hnb: no latent line: $out"
exit $((failures > 0))
