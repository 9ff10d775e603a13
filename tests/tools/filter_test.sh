#!/usr/bin/env bash
# `kelva filter`: windows of 1 to 3 slices and Boyen-Koller (one interface node) agree.
set -euo pipefail

kelva=$1
net=$2/rainy_days.net
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf 'Umbrella\nyes\nyes\nno\n*\nyes\nno\nno\nyes\n' >"$work/days.csv"
"$kelva" filter "$net" "$work/days.csv" --predict 4 --format tsv >"$work/one.tsv"
[[ $(wc -l <"$work/one.tsv") == 48 ]] || { echo "FAIL: 12 steps of 4 lines expected" >&2; exit 1; }
for options in "--window 3" "--bk" "--window 2 --bk"; do
  # shellcheck disable=SC2086
  "$kelva" filter "$net" "$work/days.csv" --predict 4 --format tsv $options >"$work/other.tsv"
  paste "$work/one.tsv" "$work/other.tsv" | awk -F'\t' -v o="$options" '
    $1 != $5 || $2 != $6 || $3 != $7 || ($4 - $8) ^ 2 > 1e-24 { print "FAIL: " o ": " $0; bad = 1 }
    END { exit bad }' >&2
done
