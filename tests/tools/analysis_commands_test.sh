#!/usr/bin/env bash
# Checks `kelva dsep`, `kelva sensitivity` and `kelva voi` on the bundled
# asia network: what they list, their line formats, refused command lines.
# usage: analysis_commands_test.sh KELVA_BINARY
set -euo pipefail

kelva=$1
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

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

for args in "dsep --example asia" "sensitivity --example asia --target lung" \
  "voi --example asia --target lung=yes" "voi --example asia --target nosuch" \
  "sensitivity --example asia --target lung=maybe" "dsep --example asia --from smoke --target lung"; do
  set +e
  "$kelva" $args >/dev/null 2>&1
  status=$?
  set -e
  [[ $status == 2 ]] || fail "kelva $args: exit $status, not 2"
done

exit $((failures > 0))
