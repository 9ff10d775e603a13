#!/usr/bin/env bash
# Checks the analysis commands on the bundled asia network: `kelva map`
# (layout, order, agreement with the beliefs), `kelva sample` with evidence
# (the evidence holds in every case, frequencies follow the posterior, a seed
# repeats), `kelva dsep`, `kelva sensitivity` and `kelva voi` (what they list,
# their line formats), and the command lines they refuse.
# usage: analysis_cli_test.sh KELVA_BINARY
set -euo pipefail

kelva=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

"$kelva" map --example asia --nodes tub,lung,bronc --set xray=yes --set dysp=yes \
  --min-probability 0.01 >"$work/map.tsv"
awk -F'\t' 'NF != 4 || $2 !~ /^tub=/ || $3 !~ /^lung=/ || $4 !~ /^bronc=/ { bad = 1 }
  NR > 1 && $1 > last { bad = 1 } $1 < 0.01 { bad = 1 } { last = $1; total += $1 }
  END { exit bad || NR == 0 || total > 1 + 1e-12 }' "$work/map.tsv" ||
  fail "map: layout or order: $(cat "$work/map.tsv")"

# One node with a tiny minimum: its beliefs, state by state.
"$kelva" map --example asia --nodes lung --set xray=yes --min-probability 1e-12 |
  sort -t$'\t' -k2 >"$work/lung.tsv"
"$kelva" beliefs --example asia --set xray=yes --format tsv |
  awk -F'\t' '$1 == "lung" { print $3 "\tlung=" $2 }' | sort -t$'\t' -k2 >"$work/lung_beliefs.tsv"
paste "$work/lung.tsv" "$work/lung_beliefs.tsv" |
  awk -F'\t' '{ d = $1 - $3; if (d < -1e-12 || d > 1e-12 || $2 != $4) bad = 1 } END { exit bad || NR != 2 }' ||
  fail "map: one node does not give its beliefs"

# Sampling with evidence: xray is always its first state, lung's frequency
# is within five standard errors of its posterior belief, a seed repeats.
"$kelva" sample --example asia -n 20000 -o "$work/a.dat" --seed 3 --set xray=yes
"$kelva" sample --example asia -n 20000 -o "$work/b.dat" --seed 3 --set xray=yes
cmp -s "$work/a.dat" "$work/b.dat" || fail "sample --set: the same seed gives different files"
column() { head -n 1 "$work/a.dat" | tr ' ' '\n' | grep -nx "$1" | cut -d: -f1; }
x=$(column xray)
l=$(column lung)
q=$("$kelva" beliefs --example asia --set xray=yes --format tsv |
  awk -F'\t' '$1 == "lung" && $2 == "yes" { print $3 }')
awk -v x="$x" -v l="$l" -v q="$q" 'NR > 2 { if ($x != "#0") bad = 1; n++; if ($l == "#0") k++ }
  END { se = sqrt(q * (1 - q) / n); f = k / n; exit bad || f - q > 5 * se || q - f > 5 * se }' \
  "$work/a.dat" || fail "sample --set: evidence broken or lung far from its belief $q"

# smoke reaches lung, bronc and on to either, xray, dysp; asia and tub only
# through the common effect either, which is unobserved.
got=$("$kelva" dsep --example asia --from smoke | sort | tr '\n' ' ')
[[ $got == "bronc dysp either lung smoke xray " ]] || fail "dsep without evidence: $got"
got=$("$kelva" dsep --example asia --from smoke --set dysp=yes | sort | tr '\n' ' ')
[[ $got == "asia bronc either lung smoke tub xray " ]] || fail "dsep given dysp: $got"
got=$("$kelva" dsep --example asia --from asia,smoke --set either=yes --set bronc=no | sort | tr '\n' ' ')
[[ $got == "asia lung smoke tub " ]] || fail "dsep given either and bronc: $got"

# sensitivity: seven tab-separated fields, steepest first, and every line's
# constants give the current probability back at the current value.
out=$("$kelva" sensitivity --example asia --target lung=yes --set dysp=yes)
[[ -n $out ]] || fail "sensitivity printed nothing"
awk -F'\t' '
  NF != 7 { print "fields: " $0; bad = 1 }
  { d = $1 < 0 ? -$1 : $1; if (NR > 1 && d > last + 1e-15) { print "order: " $0; bad = 1 }; last = d
    t = $3; den = $6 * t + $7; if (den - 1 > 1e-9 || 1 - den > 1e-9) { print "scale: " $0; bad = 1 }
    p = $4 * t + $5; if (NR > 1 && (p - first > 1e-9 || first - p > 1e-9)) { print "value: " $0; bad = 1 }
    if (NR == 1) first = p }
  END { exit bad }' <<<"$out" || fail "sensitivity lines"
grep -q $'\tlung=yes|smoke=yes\t' <<<"$out" || fail "sensitivity lacks lung's own entry"
grep -q 'asia=yes|-' <<<"$out" || fail "sensitivity given dysp lacks asia, which can change lung"
# Without evidence only lung's own table and its parent smoke's matter.
got=$("$kelva" sensitivity --example asia --target lung=yes | cut -f2 | sed 's/[=|].*//' | sort | uniq -c | tr -s ' \n' ' ')
[[ $got == " 4 lung 2 smoke " ]] || fail "sensitivity without evidence: $got"

# voi: every unobserved chance node but the target, largest first.
out=$("$kelva" voi --example asia --target lung --set dysp=yes)
[[ $(wc -l <<<"$out") == 6 ]] || fail "voi: not six candidates"
grep -qP '^\S+\tdysp$' <<<"$out" && fail "voi lists the observed dysp"
sort -t$'\t' -k1,1gr -c <<<"$out" || fail "voi not largest first"
[[ $(head -n 1 <<<"$out" | cut -f2) == either ]] || fail "voi: either is not the most informative"

# Refused command lines exit with 2.
for args in "map --example asia" "map --example asia --nodes nobody" "map --example asia --nodes tub,tub" \
  "map --example asia --nodes tub --min-probability 0" "map --example asia --nodes tub --hide 1" \
  "dsep --example asia" "sensitivity --example asia --target lung" \
  "voi --example asia --target lung=yes" "voi --example asia --target nosuch" \
  "sensitivity --example asia --target lung=maybe" "dsep --example asia --from smoke --target lung"; do
  status=0
  # shellcheck disable=SC2086
  "$kelva" $args >/dev/null 2>&1 || status=$?
  [[ $status == 2 ]] || fail "kelva $args: exit $status, not 2"
done

exit $((failures > 0))
