#!/usr/bin/env bash
# Line coverage of src/ by the whole CTest suite (GoogleTest, JUnit through
# the JNI library, tool tests), measured with GCC's --coverage and gcov.
# Builds in build/coverage (Debug, no benchmarks), runs ctest there, and
# prints one line per layer and a total: covered lines / instrumented lines.
#
# Usage: scripts/coverage.sh [--no-build]   (KELVA_JOBS, KELVA_SHARED_DIR as
# for scripts/test-all.sh)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
repo=$(pwd)
build=$repo/build/coverage
jobs=${KELVA_JOBS:-2}
export KELVA_SHARED_DIR=${KELVA_SHARED_DIR:-$(dirname "$repo")/shared}

if [[ ${1:-} != --no-build ]]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DKELVA_BUILD_BENCH=OFF \
    -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_C_FLAGS=--coverage \
    -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
  cmake --build "$build" -j"$jobs"
  find "$build" -name '*.gcda' -delete
  (cd "$build" && ctest -j"$jobs" --timeout 900 >"$build/ctest.log" 2>&1) ||
    { tail -n 20 "$build/ctest.log"; exit 1; }
  tail -n 3 "$build/ctest.log"
fi

# gcov's JSON output, one record per source line, merged over every object
# that compiled the line (headers are seen by many objects).
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
find "$build" -name '*.gcda' -path '*kelva_*' -print0 |
  (cd "$out" && xargs -0 -n 64 gcov --json-format --preserve-paths >/dev/null 2>&1 || true)
python3 - "$out" "$repo/src/" <<'PY'
import gzip, json, os, sys, collections
out, src = sys.argv[1], sys.argv[2]
lines = collections.defaultdict(dict)
for name in os.listdir(out):
    if not name.endswith('.gcov.json.gz'):
        continue
    with gzip.open(os.path.join(out, name)) as f:
        data = json.load(f)
    for entry in data['files']:
        path = os.path.normpath(os.path.join(data.get('current_working_directory', ''), entry['file']))
        if not path.startswith(src):
            continue
        seen = lines[path[len(src):]]
        for line in entry['lines']:
            n = line['line_number']
            seen[n] = seen.get(n, 0) + line['count']
layers = collections.defaultdict(lambda: [0, 0])
for path, seen in lines.items():
    layer = layers[path.split('/')[0]]
    layer[0] += sum(1 for c in seen.values() if c > 0)
    layer[1] += len(seen)
total = [sum(v[0] for v in layers.values()), sum(v[1] for v in layers.values())]
for name in sorted(layers):
    c, n = layers[name]
    print(f"{name:10} {c:6} / {n:6}  {100.0 * c / n:6.2f}%")
print(f"{'src total':10} {total[0]:6} / {total[1]:6}  {100.0 * total[0] / total[1]:6.2f}%")
PY
