#!/usr/bin/env bash
# Checks `kelva predict`: each case's lines are those of `kelva beliefs
# --format tsv` for its evidence, bit for bit; two threads write the same
# bytes as one; an impossible case and bad --nodes.
# usage: predict_test.sh KELVA_BINARY [SHARED_DIR]
set -euo pipefail

kelva=$1
shared=${KELVA_SHARED_DIR:-${2:-}}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# 5,000 cases, so that the second thread starts inside the first block and
# the second block is shared too.
"$kelva" sample --example asia -n 5000 -o "$work/asia.dat" --hide 0.6 --seed 7
"$kelva" predict --example asia "$work/asia.dat" -o "$work/one.tsv" --quiet
"$kelva" predict --example asia "$work/asia.dat" --threads 2 --quiet >"$work/two.tsv"
cmp -s "$work/one.tsv" "$work/two.tsv" || fail "two threads write other bytes than one"

# Case K of data file DATA (predicted into OUT) against kelva beliefs with
# the same evidence; the arguments after K name the network.
same_as_beliefs() {
  local data=$1 out=$2 k=$3
  shift 3
  local names items sets observed want got
  read -r -a names <"$data"
  read -r -a items < <(sed -n "$((k + 2))p" "$data")
  sets=()
  observed=" "
  for i in "${!names[@]}"; do
    if [[ ${items[i]} != '*' ]]; then
      sets+=(--set "${names[i]}=${items[i]}")
      observed+="${names[i]} "
    fi
  done
  want=$("$kelva" beliefs "$@" --format tsv "${sets[@]}" |
    awk -F'\t' -v k="$k" -v seen="$observed" \
      '$1 != "normalization_constant" && index(seen, " " $1 " ") == 0 { print k "\t" $0 }')
  got=$(awk -F'\t' -v k="$k" '$1 == k && $2 != "log_normalization_constant"' "$out")
  [[ $want == "$got" ]] || fail "case $k of $data: predict and beliefs differ"$'\n'"$want"$'\n---\n'"$got"
}

# Cases 1, 2, 4097 and 5000 against kelva beliefs with the same evidence.
for k in 1 2 4097 5000; do
  same_as_beliefs "$work/asia.dat" "$work/one.tsv" "$k" --example asia
done

# A network of 37 nodes, its items written as "#INDEX" and "*": cases after
# many others are still those of beliefs, with one thread and with two.
if [[ -n $shared && -f $shared/nets/alarm.net ]]; then
  alarm=$shared/nets/alarm.net
  "$kelva" sample "$alarm" -n 600 -o "$work/alarm.dat" --hide 0.5 --seed 3 --quiet
  "$kelva" predict "$alarm" "$work/alarm.dat" -o "$work/alarm1.tsv" --quiet
  "$kelva" predict "$alarm" "$work/alarm.dat" -o "$work/alarm2.tsv" --threads 2 --quiet
  cmp -s "$work/alarm1.tsv" "$work/alarm2.tsv" || fail "alarm: two threads write other bytes"
  "$kelva" predict "$alarm" "$work/alarm.dat" -o "$work/alarm3.tsv" --threads 3 --quiet
  cmp -s "$work/alarm1.tsv" "$work/alarm3.tsv" || fail "alarm: three threads write other bytes"
  # An output that is not a regular file: a pipe.
  "$kelva" predict "$alarm" "$work/alarm.dat" -o /dev/stdout --threads 2 --quiet |
    cmp -s "$work/alarm1.tsv" - || fail "alarm: two threads into a pipe write other bytes"
  for k in 1 299 300 600; do
    same_as_beliefs "$work/alarm.dat" "$work/alarm2.tsv" "$k" "$alarm"
  done
  # The threads read their own chunks of 64 lines: a blank line and a
  # comment among the cases change no number, and the lines equal those of
  # the file read whole (as it is when a comment comes first).
  { head -n 200 "$work/alarm.dat"; printf '\n%% note\n'; tail -n +201 "$work/alarm.dat"; } >"$work/gaps.dat"
  { echo '% cases'; cat "$work/alarm.dat"; } >"$work/whole.dat"
  "$kelva" predict "$alarm" "$work/gaps.dat" -o "$work/gaps.tsv" --threads 2 --quiet
  cmp -s "$work/alarm1.tsv" "$work/gaps.tsv" || fail "alarm: a blank line moves the cases"
  "$kelva" predict "$alarm" "$work/whole.dat" -o "$work/whole.tsv" --threads 3 --quiet
  cmp -s "$work/alarm1.tsv" "$work/whole.tsv" || fail "alarm: the file read whole differs"
  # A bad item in a later chunk is named with its line in the file.
  { head -n 500 "$work/alarm.dat"; sed -n 2p "$work/alarm.dat" | sed 's/^[^ ]*/#9/'; } >"$work/bad.dat"
  err=$("$kelva" predict "$alarm" "$work/bad.dat" -o "$work/bad.tsv" --threads 2 2>&1) &&
    fail "alarm: a bad item accepted"
  [[ $err == *"bad.dat:501:"* ]] || fail "alarm: a bad item's line: $err"
  # A bad line amid the file stops two threads with one thread's message,
  # after the cases before it were written.
  sed '300s/^[^ ]*/#9/' "$work/alarm.dat" >"$work/bad.dat"
  want=$("$kelva" predict "$alarm" "$work/bad.dat" -o "$work/bad.tsv" 2>&1) &&
    fail "alarm: a bad item amid the file accepted"
  err=$("$kelva" predict "$alarm" "$work/bad.dat" -o "$work/bad.tsv" --threads 2 2>&1) &&
    fail "alarm: a bad item amid the file accepted by two threads"
  [[ $err == "$want" && $err == *"bad.dat:300:"* ]] || fail "alarm: a bad item amid the file: $err"
fi

# Other networks: read whole (one thread) or in chunks (two), the same
# bytes, and the bits of beliefs.
for name in child insurance hailfinder; do
  net=$shared/nets/$name.net
  [[ -n $shared && -f $net ]] || continue
  "$kelva" sample "$net" -n 300 -o "$work/$name.dat" --hide 0.5 --seed 5 --quiet
  "$kelva" predict "$net" "$work/$name.dat" -o "$work/${name}1.tsv" --quiet
  "$kelva" predict "$net" "$work/$name.dat" -o "$work/${name}2.tsv" --threads 2 --quiet
  cmp -s "$work/${name}1.tsv" "$work/${name}2.tsv" || fail "$name: two threads write other bytes"
  for k in 2 300; do same_as_beliefs "$work/$name.dat" "$work/${name}2.tsv" "$k" "$net"; done
done

# An impossible case (tub yes, either no) gets only log P(e) = -inf; --nodes
# picks the nodes, observed or not.
printf 'tub,either,lung\nyes,no,*\nyes,yes,no\n' >"$work/cases.csv"
out=$("$kelva" predict --example asia "$work/cases.csv" --nodes either,lung)
want=$'1\tlog_normalization_constant\t-inf\n2\teither\tyes\t1\n2\teither\tno\t0\n2\tlung\tyes\t0'
[[ $(head -n 4 <<<"$out") == "$want" ]] || fail "impossible case or --nodes: $out"
err=$("$kelva" predict --example asia "$work/cases.csv" --nodes lung,nosuch 2>&1) &&
  fail "an unknown --nodes name accepted"
[[ $err == *"no node named 'nosuch'"* ]] || fail "unknown node message: $err"
err=$("$kelva" predict --example asia "$work/cases.csv" -o /nonexistent/dir/x.tsv 2>&1) &&
  fail "an unwritable output accepted"
[[ $err == *"/nonexistent/dir/x.tsv"* ]] || fail "output error names no file: $err"
# An influence diagram is refused by its utility node's name.
printf 'net {}\ndecision D { states = ("a" "b"); }\nutility U {}\npotential (U | D) { data = (1 2); }\n' \
  >"$work/id.net"
printf 'D\na\n' >"$work/id.csv"
err=$("$kelva" predict "$work/id.net" "$work/id.csv" 2>&1) && fail "an influence diagram accepted"
[[ $err == *"node 'U' is a utility node"* ]] || fail "utility node message: $err"
# A write that fails stops the workers too (no hang) and names the file.
if [[ -w /dev/full ]]; then
  err=$(timeout 60 "$kelva" predict --example asia "$work/asia.dat" -o /dev/full --threads 2 2>&1) &&
    fail "a failed write accepted"
  [[ $err == *"/dev/full"* ]] || fail "failed write: $err"
fi

# A chain of ten nodes, each in state a with probability 1e-40 whatever
# its parent: P(e) is 1e-400, below the smallest double; --scaled gives its
# logarithm.
{
  echo 'net {}'
  echo 'node X0 { states = ("a" "b"); }'
  echo 'potential (X0) { data = (1e-40 1); }'
  for i in 1 2 3 4 5 6 7 8 9; do
    echo "node X$i { states = (\"a\" \"b\"); }"
    echo "potential (X$i | X$((i - 1))) { data = ((1e-40 1) (1e-40 1)); }"
  done
} >"$work/tiny.net"
printf 'X0,X1,X2,X3,X4,X5,X6,X7,X8,X9\na,a,a,a,a,a,a,a,a,a\n' >"$work/tiny.csv"
out=$("$kelva" predict "$work/tiny.net" "$work/tiny.csv")
[[ $out == $'1\tlog_normalization_constant\t-inf' ]] || fail "underflow without --scaled: $out"
out=$("$kelva" predict "$work/tiny.net" "$work/tiny.csv" --scaled)
awk -F'\t' '{ d = $3 - 10 * log(1e-40); exit !(d < 1e-9 && d > -1e-9) }' <<<"$out" ||
  fail "--scaled log P(e): $out"

if ((failures)); then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "predict: all checks passed"
