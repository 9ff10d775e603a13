#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ in the sanitize preset's tree
# (build/sanitize: clang, AddressSanitizer and UndefinedBehaviorSanitizer,
# warnings are errors; after scripts/test-all.sh they are already built) and
# runs each for a short time on a copy of its seed corpus
# (fuzz/corpus/<name>/), so the checked-in corpus never changes.  Runs
# KELVA_JOBS targets at a time, prints one line per target and exits
# non-zero when any target crashed, leaked, timed out or produced a
# sanitizer report; the input and the log are kept under build/fuzz/runs/.
#
# Environment: KELVA_FUZZ_SECONDS (default 30, per target), KELVA_JOBS
# (default 2), KELVA_FUZZ_TARGETS (default: every target, e.g. "lexer").
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${KELVA_FUZZ_SECONDS:-30}
jobs=${KELVA_JOBS:-2}
programs=build/sanitize/fuzz
build=build/fuzz

mkdir -p "$build"
if ! { cmake --preset sanitize -DKELVA_WERROR=ON &&
  cmake --build --preset sanitize -j"$jobs" --target fuzzers; } >"$build/build.log" 2>&1; then
  tail -n 40 "$build/build.log"
  echo "fuzz: build failed (log $build/build.log)"
  exit 1
fi

if [[ -n ${KELVA_FUZZ_TARGETS:-} ]]; then
  read -r -a names <<<"$KELVA_FUZZ_TARGETS"
else
  names=()
  for source in fuzz/*_fuzzer.cpp; do
    name=$(basename "$source" _fuzzer.cpp)
    names+=("$name")
  done
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# Runs one target on a copy of its corpus; writes its line to $run/result
# and exits non-zero when it failed.
fuzz_one() {
  local name=$1 run="$build/runs/$1"
  rm -rf "$run"
  mkdir -p "$run/corpus"
  if [[ -d fuzz/corpus/$name ]]; then
    cp -r "fuzz/corpus/$name/." "$run/corpus/"
  fi
  # The NET reader is also seeded with the shared networks of at most 64 KiB,
  # linked in place (libFuzzer writes new inputs to the first folder only).
  # The large ones would take most of a short run to parse and make every
  # mutation slow, without reaching parser code the small ones miss.
  local seeds=()
  local shared=${KELVA_SHARED_DIR:-$(cd .. && pwd)/shared}
  # The KB reader's seeds are binary, so they are written from NET files here.
  if [[ $name == kb ]]; then
    local nets=(fuzz/corpus/net/{bn,decision}.net fuzz/corpus/class_net/hierarchy.net) net
    for net in asia rats-deal id-example-unbbayes; do
      if [[ -f $shared/nets/$net.net ]]; then nets+=("$shared/nets/$net.net"); fi
    done
    "$programs/kb_seeds" "$run/corpus" "${nets[@]}"
  fi
  if [[ $name == net && -d $shared/nets ]]; then
    local net
    mkdir -p "$run/shared"
    for net in "$shared"/nets/*.net; do
      if (($(stat -c %s "$net") <= 65536)); then ln -s "$(cd "$(dirname "$net")" && pwd)/$(basename "$net")" "$run/shared/"; fi
    done
    seeds+=("$run/shared")
  fi
  local status=0 runs coverage artifact
  "$programs/${name}_fuzzer" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$run/" "$run/corpus" "${seeds[@]}" >"$run/log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -n 1)
  coverage=$(grep -o 'cov: [0-9]*' "$run/log" | tail -n 1 || true)
  if ((status != 0)) || grep -qE 'ERROR: (AddressSanitizer|LeakSanitizer|libFuzzer)|runtime error:' "$run/log"; then
    artifact=$(find "$run" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' \
      -o -name 'timeout-*' -o -name 'oom-*' \) | head -n 1)
    echo "$name: FAILED (exit $status) after ${runs:-?} runs; input ${artifact:-none}, log $run/log" >"$run/result"
    return 1
  fi
  echo "$name: ok, ${runs:-?} runs in $seconds s, ${coverage:-cov: ?}, corpus $(ls "$run/corpus" | wc -l)" >"$run/result"
}

# The targets run $jobs at a time; their lines are printed in name order.
running=0
for name in "${names[@]}"; do
  if ((running >= jobs)); then
    wait -n || true
    running=$((running - 1))
  fi
  fuzz_one "$name" &
  running=$((running + 1))
done
wait || true

failed=()
for name in "${names[@]}"; do
  result="$build/runs/$name/result"
  if [[ -f $result ]]; then
    cat "$result"
    if grep -q ': FAILED' "$result"; then failed+=("$name"); fi
  else
    echo "$name: FAILED (no result; log $build/runs/$name/log)"
    failed+=("$name")
  fi
done

((${#failed[@]} == 0))
