#!/usr/bin/env bash
# Plants an upward include in a copy of the sources and checks that both
# guards refuse it, naming the file: the layer check, and a compile against
# the table layer's include root.  Then checks that the untouched copy passes.
# Arguments: the checkout, the table layer's include root, the C++ compiler.
set -euo pipefail
repo=$1
table_root=$2
compiler=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

mkdir -p "$scratch/scripts"
cp -r "$repo/src" "$repo/tools" "$scratch/"
cp "$repo/scripts/check-layers.sh" "$scratch/scripts/"
bash "$scratch/scripts/check-layers.sh" "$scratch" >/dev/null

planted=src/table/table.cpp
sed -i '1a #include "inference/propagate.h"' "$scratch/$planted"
if output=$(bash "$scratch/scripts/check-layers.sh" "$scratch"); then
  echo "the layer check accepted an upward include"
  exit 1
fi
grep -q "^$planted:2: table may not include \"inference/propagate.h\"" <<<"$output" || {
  echo "the layer check did not name the planted include:"
  echo "$output"
  exit 1
}

# The build refuses the same include: the table layer's include root does not
# reach the inference folder.
if output=$("$compiler" -std=c++20 -fsyntax-only -I"$repo/include" -I"$table_root" \
              "$scratch/$planted" 2>&1); then
  echo "the table layer compiled an include of the inference layer"
  exit 1
fi
grep -q "table.cpp:2:.*inference/propagate.h" <<<"$output" || {
  echo "the compiler did not name the planted include:"
  echo "$output"
  exit 1
}
echo "planted upward include refused by the layer check and the build"
