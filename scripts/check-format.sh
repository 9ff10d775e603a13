#!/usr/bin/env bash
# Checks the layout and the naming of the C and C++ sources.
#
#   scripts/check-format.sh         check; exits non-zero naming every file
#                                   that clang-format would change, that
#                                   breaks a naming rule (clang-tidy with the
#                                   root .clang-tidy) or whose name is not
#                                   snake_case
#   scripts/check-format.sh --fix   rewrite the files in place with
#                                   clang-format (naming is left to you)
#
# Layout covers every .c, .h and .cpp of src/ include/ tools/ tests/ fuzz/
# bench/ examples/; naming covers the .cpp files of src/ and tools/ (and the
# headers they include) through build/release/compile_commands.json, which is
# configured here when missing.  Environment: KELVA_JOBS (default 2).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
repo=$(pwd)
jobs=${KELVA_JOBS:-2}

fix=0
case "${1:-}" in
  "") ;;
  --fix) fix=1 ;;
  *)
    echo "usage: $0 [--fix]" >&2
    exit 2
    ;;
esac

tool() {
  local name
  for name in "$1-14" "$1"; do
    if command -v "$name" >/dev/null; then
      echo "$name"
      return
    fi
  done
  echo "check-format: $1 is not installed (scripts/setup.sh installs it)" >&2
  exit 2
}
clang_format=$(tool clang-format)

# Sources by name, skipping build trees and generated files.
mapfile -t sources < <(find src include tools tests fuzz bench examples -type f \
  \( -name '*.c' -o -name '*.h' -o -name '*.cpp' \) \
  -not -path '*/build/*' -not -path '*/generated/*' | sort)

if ((fix)); then
  printf '%s\0' "${sources[@]}" | xargs -0 -n 16 -P "$jobs" "$clang_format" -i
  echo "check-format: formatted ${#sources[@]} files"
  exit 0
fi

clang_tidy=$(tool clang-tidy)
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
bad=()

# Runs "$@" FILE... over the NUL-separated file names on stdin, in parallel
# jobs that each write their own log under $out/$1 (parallel writers to one
# file would interleave their lines); prints the joined logs.
run_parallel() {
  local name=$1
  shift
  mkdir -p "$out/$name"
  LOGS="$out/$name" xargs -0 -n 8 -P "$jobs" \
    sh -c '"$@" >"$(mktemp "$LOGS/XXXXXX")" 2>&1 || true' sh "$@"
  cat "$out/$name"/*
}

# Layout: clang-format reports each line it would change as FILE:LINE:COL.
printf '%s\0' "${sources[@]}" |
  run_parallel format "$clang_format" --dry-run --Werror >"$out/format.log"
mapfile -t unformatted < <(sed -nE 's/^([^ :][^:]*):[0-9]+:[0-9]+: (error|warning): .*/\1/p' \
  "$out/format.log" | sort -u)
for file in "${unformatted[@]}"; do
  bad+=("$file: not formatted (scripts/check-format.sh --fix)")
done

# File names.
for file in "${sources[@]}"; do
  [[ $(basename "$file") =~ ^[a-z0-9_]+\.(c|h|cpp)$ ]] || bad+=("$file: file name is not snake_case")
done

# Naming: clang-tidy over the translation units of src/ and tools/.
database=build/release/compile_commands.json
if [[ ! -f $database ]]; then
  cmake --preset release >"$out/configure.log" || {
    cat "$out/configure.log"
    exit 2
  }
fi
# The JNI sources include the generated natives.h.
if grep -q '/src/jni/' "$database"; then
  cmake --build --preset release --target kelva_jni_generated >"$out/generate.log" 2>&1 || {
    cat "$out/generate.log"
    exit 2
  }
fi
mapfile -t units < <(sed -nE 's/^ *"file": "([^"]*)",?$/\1/p' "$database" |
  grep -E "^$repo/(src|tools)/.*\.cpp$" | sort -u)
printf '%s\0' "${units[@]}" | run_parallel tidy "$clang_tidy" -p build/release --quiet >"$out/tidy.log"
if grep -qE '(^|: )error:|Error while processing' "$out/tidy.log"; then
  cat "$out/tidy.log"
  echo "check-format: clang-tidy could not read every file" >&2
  exit 2
fi
mapfile -t misnamed < <(sed -nE "s|^$repo/([^:]+):[0-9]+:[0-9]+: warning: .*|\1|p" \
  "$out/tidy.log" | sort -u)
for file in "${misnamed[@]}"; do
  bad+=("$file: breaks a naming rule")
done

echo "check-format: ${#sources[@]} files checked for layout, ${#units[@]} translation units for naming"
if ((${#bad[@]})); then
  grep -E ': warning: ' "$out/tidy.log" | sed "s|^$repo/||" | sort -u || true
  printf '%s\n' "${bad[@]}"
  exit 1
fi
echo "check-format: clean"
