#!/usr/bin/env bash
# Checks `kelva sample` (the data file's layout, its determinism under a
# seed, hidden items, the frequencies of the states against the beliefs,
# refused command lines) and `kelva learn` on its cases.
# usage: sample_test.sh KELVA_BINARY DEFAULT_SHARED_DIR (KELVA_SHARED_DIR wins)
set -euo pipefail

kelva=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

"$kelva" sample --example asia -n 4000 -o "$work/a.dat" --seed 5
"$kelva" sample --example asia -n 4000 -o "$work/b.dat" --seed 5
"$kelva" sample --example asia -n 4000 -o "$work/c.dat" --seed 6
cmp -s "$work/a.dat" "$work/b.dat" || fail "the same seed gives different files"
cmp -s "$work/a.dat" "$work/c.dat" && fail "different seeds give the same file"
[[ $(wc -l <"$work/a.dat") == 4002 ]] || fail "not a header, a blank line and 4000 cases"
[[ -z $(sed -n 2p "$work/a.dat") ]] || fail "no blank line after the header"
columns=$(head -n 1 "$work/a.dat" | wc -w)
[[ $columns == 8 ]] || fail "header has $columns names, not 8"
awk -v n="$columns" 'NR > 2 { if (NF != n) bad = 1; for (i = 1; i <= NF; i++) if ($i !~ /^#[0-9]+$/) bad = 1 }
  END { exit bad }' "$work/a.dat" || fail "a case line is not one #INDEX per column"

# Every node's state frequencies are within five standard errors of its
# prior beliefs.
"$kelva" beliefs --example asia --format tsv >"$work/beliefs.tsv"
awk -F'\t' 'NR == FNR { if (NF == 3) { p[$1, s[$1]++] = $3 } next }
  FNR == 1 { for (i = 1; i <= NF; i++) name[i] = $i; split($0, name, " "); next }
  FNR > 2 { for (i = 1; i <= NF; i++) { sub(/^#/, "", $i); count[i, $i]++ } cases++ }
  END {
    for (i = 1; i in name; i++)
      for (k = 0; k < s[name[i]]; k++) {
        q = p[name[i], k]; f = count[i, k] / cases; se = sqrt(q * (1 - q) / cases)
        if (f - q > 5 * se + 1e-9 || q - f > 5 * se + 1e-9) { print name[i], k, f, q; bad = 1 }
      }
    exit bad
  }' "$work/beliefs.tsv" FS=' ' "$work/a.dat" || fail "state frequencies far from the beliefs"

"$kelva" sample --example asia -n 50 -o "$work/h.dat" --hide 1
[[ $(sed -n '3,$p' "$work/h.dat" | tr -d ' *\n' | wc -c) == 0 ]] || fail "--hide 1 left items"
"$kelva" sample --example asia -n 0 -o "$work/z.dat"
[[ $(wc -l <"$work/z.dat") == 2 ]] || fail "-n 0 is not a header alone"

for args in "sample --example asia -n 5" "sample --example asia -n 5 -o $work/x --hide 1.5" \
            "sample --example asia -n -1 -o $work/x" "sample --example asia -o $work/x --tolerance 1" \
            "sample --example asia -o $work/x"; do
  status=0
  "$kelva" $args >/dev/null 2>&1 || status=$?
  [[ $status == 2 ]] || fail "'$args' exits with $status, not 2"
done

# `kelva learn` on sampled cases: the keys it prints, the iteration limit,
# the log, a learned network without the experience tables learn added.
"$kelva" sample --example asia -n 3000 -o "$work/l.dat" --seed 2 --hide 0.2
status=0
"$kelva" learn --example asia "$work/l.dat" -o "$work/learned.net" --max-iterations 4 --tolerance 0 \
  --log "$work/learn.log" >"$work/learn.out" 2>"$work/learn.err" || status=$?
[[ $status == 0 ]] || fail "learn exits with $status: $(cat "$work/learn.err")"
[[ $(cut -f1 "$work/learn.out" | tr '\n' ' ') == "cases iterations seconds log_likelihood aic bic " ]] ||
  fail "learn prints $(cut -f1 "$work/learn.out" | tr '\n' ' ')"
grep -qx $'cases\t3000' "$work/learn.out" || fail "learn does not count 3000 cases"
grep -qx $'iterations\t4' "$work/learn.out" || fail "learn did not stop after 4 iterations"
awk -F'\t' '$1 == "log_likelihood" { ll = $2 } $1 == "aic" { aic = $2 }
  END { exit !(ll < 0 && aic < ll) }' "$work/learn.out" || fail "learn's scores are not plausible"
grep -q '^EM learning with 3000 cases:$' "$work/learn.log" || fail "learn wrote no EM log"
grep -q 'experience' "$work/learned.net" && fail "the learned network keeps learn's experience tables"
"$kelva" nodes "$work/learned.net" >/dev/null || fail "the learned network does not read back"
# The same cases as a data set file (.csv) learn the same tables, on three
# threads too.
{ head -n 1 "$work/l.dat" | tr ' ' ','; sed -n '3,$p' "$work/l.dat" | tr ' ' ','; } >"$work/l.csv"
"$kelva" learn --example asia "$work/l.csv" -o "$work/learned-csv.net" --max-iterations 4 --tolerance 0 \
  --threads 3 \
  >"$work/learn-csv.out" 2>"$work/learn-csv.err" || fail "learn from .csv: $(cat "$work/learn-csv.err")"
cmp -s "$work/learned.net" "$work/learned-csv.net" || fail "learning from .csv gives another network"
diff <(grep -v '^seconds' "$work/learn.out") <(grep -v '^seconds' "$work/learn-csv.out") >/dev/null ||
  fail "learning from .csv gives other scores"
status=0
"$kelva" learn --example asia -o "$work/x.net" >/dev/null 2>&1 || status=$?
[[ $status == 2 ]] || fail "learn without a data file exits with $status"

# Data set files: a bad cell names its row, column and the node's states; a
# column that names no node is warned about and ignored, or refused with
# --strict-columns; a file without cases says so once.
learn_csv() {
  local status=0
  "$kelva" learn --example asia "$@" -o "$work/x.net" >"$work/csv.out" 2>"$work/csv.err" || status=$?
  echo "$status $(cat "$work/csv.err")"
}
printf 'dysp,Xray,#\nyes,no,2\nno,yes,1\n' >"$work/cols.csv"
printf 'dysp,xray\nyes,no\nno,maybe\n' >"$work/cell.csv"
printf 'dysp,xray\n' >"$work/none.csv"
: >"$work/none.dat"
while IFS='|' read -r file want; do
  read -r -a args <<<"$file"
  got=$(learn_csv "$work/${args[0]}" "${args[@]:1}")
  [[ $got == "$want" ]] || fail "learn ${file}: '$got', not '$want'"
done <<EOF
cols.csv|0 kelva: warning: $work/cols.csv: column 'Xray' names no node of the network; its cells are not used
cols.csv --strict-columns|1 kelva: usage: $work/cols.csv: column 'Xray' names no node of the network
cell.csv|1 kelva: usage: $work/cell.csv: row 2, column 'xray': 'maybe' names no state of node \`xray' (states: yes, no)
none.csv|1 kelva: usage: $work/none.csv: file contains no cases
none.dat|1 $work/none.dat:1: warning: file contains no cases
EOF

# Progress notes go to standard error when it is a terminal (EM iterations
# with their log-likelihood), never into the output, and --quiet drops them.
if command -v script >/dev/null; then
  for quiet in "" --quiet; do
    script -qec "'$kelva' learn --example asia '$work/l.dat' -o '$work/x.net' --max-iterations 2 $quiet \
      >'$work/tty.out'" /dev/null >"$work/tty.err" </dev/null || fail "learn on a terminal failed"
    notes=$(grep -c '^kelva: EM iteration [12]: log-likelihood -[0-9]' "$work/tty.err" || true)
    [[ $notes == "$([[ -z $quiet ]] && echo 2 || echo 0)" && $(grep -c kelva "$work/tty.out") == 0 ]] ||
      fail "learn progress ($quiet): $(cat "$work/tty.err")"
  done
fi

# A CG network: sampled values have the prior means (within five standard
# errors); learning ends above the log's first total, the true tables'.
ksl=${KELVA_SHARED_DIR:-$2}/nets/ksl-deal.net
"$kelva" sample "$ksl" -n 3000 -o "$work/k.dat" --seed 4 --hide 0.1
awk 'NR == FNR { if ($2 == "mean") m[$1] = $3; if ($2 == "variance") v[$1] = $3; next }
  FNR == 1 { split($0, name) } FNR > 2 { for (i = 1; i <= NF; i++) if ($i ~ /^[-0-9]/) { s[i] += $i; n[i]++ } }
  END { for (i in n) if (++c && (s[i] / n[i] - m[name[i]])^2 > 25 * v[name[i]] / n[i]) exit 1; exit c != 4 }' \
  <("$kelva" beliefs "$ksl" --format tsv) "$work/k.dat" || fail "sampled CG values far from the means"
"$kelva" learn "$ksl" "$work/k.dat" -o "$work/k.net" --log "$work/k.log" >"$work/kl.out" || fail "CG learn"
awk -F'\t' 'NR == FNR { if (sub(/.*iteration 1: /, "")) first = $0 + 0; next }
  $1 == "log_likelihood" { exit !(first < 0 && $2 > first) }' "$work/k.log" "$work/kl.out" || fail "CG learning lowered the likelihood"

if ((failures > 0)); then
  echo "$failures sample and learn checks failed" >&2
  exit 1
fi
echo "sample and learn checks passed"
