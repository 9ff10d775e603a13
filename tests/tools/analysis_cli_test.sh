#!/usr/bin/env bash
# Checks `kelva map` (layout, order, agreement with the beliefs, refused
# command lines) and `kelva sample` with evidence (the evidence holds in
# every case, frequencies follow the posterior, a seed repeats).
# usage: analysis_cli_test.sh KELVA_BINARY
set -euo pipefail

kelva=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
checks=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

"$kelva" map --example asia --nodes tub,lung,bronc --set xray=yes --set dysp=yes \
  --min-probability 0.01 >"$work/map.tsv"
checks=$((checks + 1))
awk -F'\t' 'NF != 4 || $2 !~ /^tub=/ || $3 !~ /^lung=/ || $4 !~ /^bronc=/ { bad = 1 }
  NR > 1 && $1 > last { bad = 1 } $1 < 0.01 { bad = 1 } { last = $1; total += $1 }
  END { exit bad || NR == 0 || total > 1 + 1e-12 }' "$work/map.tsv" ||
  fail "map: layout or order: $(cat "$work/map.tsv")"

# One node with a tiny minimum: its beliefs, state by state.
"$kelva" map --example asia --nodes lung --set xray=yes --min-probability 1e-12 |
  sort -t$'\t' -k2 >"$work/lung.tsv"
"$kelva" beliefs --example asia --set xray=yes --format tsv |
  awk -F'\t' '$1 == "lung" { print $3 "\tlung=" $2 }' | sort -t$'\t' -k2 >"$work/lung_beliefs.tsv"
checks=$((checks + 1))
paste "$work/lung.tsv" "$work/lung_beliefs.tsv" |
  awk -F'\t' '{ d = $1 - $3; if (d < -1e-12 || d > 1e-12 || $2 != $4) bad = 1 } END { exit bad || NR != 2 }' ||
  fail "map: one node does not give its beliefs"

for args in "map --example asia" "map --example asia --nodes nobody" "map --example asia --nodes tub,tub" \
            "map --example asia --nodes tub --min-probability 0" "map --example asia --nodes tub --hide 1"; do
  checks=$((checks + 1))
  status=0
  # shellcheck disable=SC2086
  "$kelva" $args >/dev/null 2>"$work/err" || status=$?
  [[ $status == 2 ]] || fail "'$args' exits with $status, not 2"
done

# Sampling with evidence: xray is always its first state, lung's frequency
# is within five standard errors of its posterior belief, a seed repeats.
"$kelva" sample --example asia -n 20000 -o "$work/a.dat" --seed 3 --set xray=yes
"$kelva" sample --example asia -n 20000 -o "$work/b.dat" --seed 3 --set xray=yes
checks=$((checks + 2))
cmp -s "$work/a.dat" "$work/b.dat" || fail "sample --set: the same seed gives different files"
column() { head -n 1 "$work/a.dat" | tr ' ' '\n' | grep -nx "$1" | cut -d: -f1; }
x=$(column xray)
l=$(column lung)
q=$("$kelva" beliefs --example asia --set xray=yes --format tsv |
  awk -F'\t' '$1 == "lung" && $2 == "yes" { print $3 }')
awk -v x="$x" -v l="$l" -v q="$q" 'NR > 2 { if ($x != "#0") bad = 1; n++; if ($l == "#0") k++ }
  END { se = sqrt(q * (1 - q) / n); f = k / n; exit bad || f - q > 5 * se || q - f > 5 * se }' \
  "$work/a.dat" || fail "sample --set: evidence broken or lung far from its belief $q"

echo "$((checks - failures)) passed, $failures failed"
[[ $failures == 0 ]]
