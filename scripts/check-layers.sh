#!/usr/bin/env bash
# Checks the layer order of the sources: every quoted #include under src/
# must name a header of the file's own layer or of a layer below it, the
# native layer may use only the C API and its peer interface, engine code
# never calls a k_ function, only the native layer includes jni.h, and the
# tool includes nothing of the library but kelva/kelva.h.
# Prints FILE:LINE: reason for every break and exits non-zero when there is
# one.  The argument is the checkout to check (default: this one).  The
# order is the one the build enforces (KELVA_LAYERS in CMakeLists.txt).
set -euo pipefail
cd "${1:-$(dirname "${BASH_SOURCE[0]}")/..}"

layers=(platform network table structure dataset lexer expr compile inference analysis learning dynamic text capi)
declare -A rank
for i in "${!layers[@]}"; do rank[${layers[$i]}]=$i; done

failures=0
fail() {
  echo "$1: $2"
  failures=$((failures + 1))
}

# Quoted includes of every source and header under src/, as FILE:LINE:HEADER.
includes=$(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' src --include='*.h' --include='*.cpp' |
  sed -E 's/^([^:]*):([0-9]+):[^"]*"([^"]*)".*$/\1:\2:\3/' || true)
while IFS=: read -r file line header; do
  [[ -n $file ]] || continue
  layer=${file#src/}
  layer=${layer%%/*}
  target=${header%%/*}
  where="$file:$line"
  if [[ $header == *..* ]]; then
    fail "$where" "\"$header\" reaches outside the include roots"
    continue
  fi
  if [[ $layer == jni ]]; then
    case $header in
      jni/* | kelva/kelva.h | capi/peers.h | natives.h) ;;
      *) fail "$where" "the native layer uses the C API and capi/peers.h only, not \"$header\"" ;;
    esac
    continue
  fi
  [[ $header == kelva/kelva.h ]] && continue
  if [[ -z ${rank[$layer]+x} ]]; then
    fail "$where" "folder src/$layer is not a layer (add it to KELVA_LAYERS and to this script)"
    continue
  fi
  if [[ -z ${rank[$target]+x} ]]; then
    fail "$where" "\"$header\" is not in a layer"
  elif ((rank[$target] > rank[$layer])); then
    fail "$where" "$layer may not include \"$header\" ($target is above $layer)"
  fi
done <<<"$includes"

# The tool is a client of the C API like any other program.
while IFS= read -r match; do
  fail "${match%%:*}:$(cut -d: -f2 <<<"$match")" "the tool uses the C API only"
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"]*/' tools --include='*.h' --include='*.cpp' |
           grep -v '"kelva/kelva.h"' || true)

# The engine reports failures by throwing; only capi turns them into codes.
while IFS= read -r match; do
  fail "${match%%:*}:$(cut -d: -f2 <<<"$match")" "engine code calls the C API"
done < <(grep -rnP '(?<![A-Za-z0-9_])k_[a-z0-9_]*(?<!_t)\s*\(' src --include='*.h' --include='*.cpp' \
           --exclude-dir=capi --exclude-dir=jni | grep -vP ':\s*(//|///|\*)' || true)

while IFS= read -r match; do
  fail "${match%%:*}:$(cut -d: -f2 <<<"$match")" "only src/jni/ includes jni.h"
done < <(grep -rnE '#[[:space:]]*include[[:space:]]*<jni.h>' src --include='*.h' --include='*.cpp' \
           --exclude-dir=jni || true)

if ((failures > 0)); then
  echo "layers: $failures break(s) of the layer order"
  exit 1
fi
echo "layers: every include follows the layer order"
