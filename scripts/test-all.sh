#!/usr/bin/env bash
# Installs what is missing, checks layout and naming (scripts/check-format.sh,
# on the release preset's compile_commands.json), then builds and runs every
# test suite through CTest: the release build (GoogleTest, JUnit, tool
# tests), then the AddressSanitizer + UndefinedBehaviorSanitizer build, then
# every fuzz target briefly.  Every build treats compiler warnings as errors
# (KELVA_WERROR), so a new warning fails the run.  Runs every step even after
# a failure and exits non-zero when anything failed.
#
# Environment: KELVA_PRESETS (default "release sanitize"; "debug" is the
# third), KELVA_JOBS (default 2), KELVA_SHARED_DIR (default ../shared beside
# the checkout), KELVA_FUZZ_SECONDS (default 15 per target; 0 skips fuzzing),
# KELVA_SKIP_FORMAT=1 skips the layout and naming check.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
repo=$(pwd)

bash scripts/setup.sh

export KELVA_SHARED_DIR=${KELVA_SHARED_DIR:-$(dirname "$repo")/shared}
read -r -a presets <<<"${KELVA_PRESETS:-release sanitize}"
jobs=${KELVA_JOBS:-2}
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

summaries=()
passed=0
failed=0
broken=()

# Configures, builds and tests one preset; records its ctest summary.
run_preset() {
  local preset=$1 began=$SECONDS
  echo "=== $preset: configure and build"
  if ! cmake --preset "$preset" -DKELVA_WERROR=ON || ! cmake --build --preset "$preset" -j"$jobs"; then
    broken+=("$preset (build)")
    return
  fi
  echo "=== $preset: test"
  local status=0
  ctest --preset "$preset" -j"$jobs" --no-tests=error --timeout 900 2>&1 | tee "$logs/$preset.log" ||
    status=$?
  local line
  line=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$logs/$preset.log" | tail -n 1 || true)
  if [[ $line =~ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
    failed=$((failed + BASH_REMATCH[1]))
    passed=$((passed + BASH_REMATCH[2] - BASH_REMATCH[1]))
    summaries+=("$preset: $line ($((SECONDS - began)) s)")
  else
    summaries+=("$preset: no test summary ($((SECONDS - began)) s)")
  fi
  ((status == 0)) || broken+=("$preset (tests)")
}

start=$SECONDS
if [[ ${KELVA_SKIP_FORMAT:-0} == 1 ]]; then
  summaries+=("format: skipped (KELVA_SKIP_FORMAT=1)")
else
  echo "=== layout and naming"
  if cmake --preset release >/dev/null && KELVA_JOBS=$jobs bash scripts/check-format.sh; then
    summaries+=("format: clean ($((SECONDS - start)) s)")
  else
    summaries+=("format: failed (scripts/check-format.sh)")
    broken+=("format")
  fi
fi

for preset in "${presets[@]}"; do
  run_preset "$preset"
done

fuzz_seconds=${KELVA_FUZZ_SECONDS:-15}
if ((fuzz_seconds > 0)); then
  echo "=== fuzz targets, $fuzz_seconds s each"
  began=$SECONDS
  if KELVA_FUZZ_SECONDS=$fuzz_seconds bash scripts/fuzz-all.sh; then
    summaries+=("fuzz: every target ran clean ($((SECONDS - began)) s)")
  else
    summaries+=("fuzz: failed")
    broken+=("fuzz")
  fi
fi

echo "=== summary ($((SECONDS - start)) s)"
printf '%s\n' "${summaries[@]}"
if ((${#broken[@]})); then
  echo "failed: ${broken[*]}"
fi
echo "tests: $passed passed, $failed failed"
((${#broken[@]} == 0))
