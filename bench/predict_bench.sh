#!/usr/bin/env bash
# Rows per second of `kelva predict` on alarm, one thread and two: ROWS
# cases drawn with half their items hidden, best of RUNS wall times each
# (the machine is shared, so the load is printed beside them), the CPU time
# of the best run, the speed-up of two threads over one, and each thread's
# processor time in one more run.  One thread's run has a writer thread
# beside its worker, which the machine's other processor serves; so one
# thread is also timed on one processor alone (`taskset`, each processor
# in turn), for the speed-up of two processors over one.
# usage: predict_bench.sh KELVA_BINARY [ROWS] [RUNS]
set -euo pipefail

kelva=$1
rows=${2:-100000}
runs=${3:-5}
shared=${KELVA_SHARED_DIR:-$(dirname "$0")/../../shared}
net=$shared/nets/alarm.net
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$kelva" sample "$net" -n "$rows" -o "$work/cases.dat" --hide 0.5 --seed 3 --quiet
echo "alarm, $rows rows, half the items hidden; load: $(cut -d' ' -f1-3 /proc/loadavg)"

# One timed run with `--threads $1` (on processor $2 alone when given):
# "WALL CPU".  Each run starts with no output file and nothing of the last
# run's waiting to be written, so that it pays neither for truncating that
# file nor for its write-back.
timed() {
  local pin=()
  [[ -n ${2:-} ]] && pin=(taskset -c "$2")
  rm -f "$work/out.tsv"
  sync
  /usr/bin/time -o "$work/time" -f '%e %U %S' "${pin[@]}" "$kelva" predict "$net" \
    "$work/cases.dat" -o "$work/out.tsv" --threads "$1" --quiet
  read -r wall user system <"$work/time"
  echo "$wall $(awk -v u="$user" -v s="$system" 'BEGIN { print u + s }')"
}

# The closing note of one more run with `--threads $1`: each thread's
# processor time (notes go to a terminal only, so the run gets one).
threads_note() {
  script -qec "'$kelva' predict '$net' '$work/cases.dat' -o '$work/out.tsv' --threads $1" \
    /dev/null | grep -o 'processor time.*' | tr -d '\r' || true
}

# One and two threads take turns, so that both meet the same spells of a
# shared machine's load; the fastest run of each counts.
one="" two="" alone=""
for ((r = 0; r < runs; r++)); do
  read -r wall cpu < <(timed 1)
  if [[ -z $one ]] || awk -v a="$wall" -v b="$one" 'BEGIN { exit !(a < b) }'; then
    one=$wall one_cpu=$cpu
  fi
  # The processors take turns: they need not be equally fast.
  read -r wall cpu < <(timed 1 $((r % $(nproc))))
  if [[ -z $alone ]] || awk -v a="$wall" -v b="$alone" 'BEGIN { exit !(a < b) }'; then
    alone=$wall
  fi
  read -r wall cpu < <(timed 2)
  if [[ -z $two ]] || awk -v a="$wall" -v b="$two" 'BEGIN { exit !(a < b) }'; then
    two=$wall two_cpu=$cpu
  fi
done
awk -v n="$rows" -v a="$one" -v ac="$one_cpu" -v b="$two" -v bc="$two_cpu" -v p="$alone" 'BEGIN {
  printf "threads 1: %.3f s wall, %.3f s cpu, %.0f rows/s\n", a, ac, n / a
  printf "threads 1, one processor: %.3f s wall, %.0f rows/s\n", p, n / p
  printf "threads 2: %.3f s wall, %.3f s cpu, %.0f rows/s, %.2fx one thread, %.2fx one processor\n", b, bc, n / b, a / b, p / b
}'
echo "threads 1, $(threads_note 1)"
echo "threads 2, $(threads_note 2)"
echo "bytes written: $(stat -c %s "$work/out.tsv"); load after: $(cut -d' ' -f1-3 /proc/loadavg)"
