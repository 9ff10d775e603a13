#!/usr/bin/env bash
# Installs what is missing, builds the release configuration (the kelva tool
# at build/release/tools/kelva/kelva, libkelva.so and kelva.jar, everything
# the README's examples use) and runs the tool: by default the main job
# (compile the example network examples/networks/commute.net, enter
# evidence, propagate and print the beliefs), otherwise with the arguments
# given (scripts/run-main.sh --help).  Standard output holds only the tool's
# output; setup and build output go to build/run-main.log, and to standard
# error when a step fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build
log=build/run-main.log
: >"$log"
step() {
  if ! "$@" >>"$log" 2>&1; then
    echo "run-main: '$*' failed; its output (from $log):" >&2
    tail -n 40 "$log" >&2
    exit 1
  fi
}
echo "run-main: setting up and building the release configuration (log: $log)" >&2
step bash scripts/setup.sh
step cmake --preset release
step cmake --build --preset release -j2 --target kelva_tool kelva kelva_jar

if (($# == 0)); then
  set -- beliefs examples/networks/commute.net --set Weather=snow --set MissMeeting=yes
fi
exec build/release/tools/kelva/kelva "$@"
