#!/usr/bin/env bash
# Installs what is missing, builds the release configuration of the kelva
# tool and runs it: by default the main job (compile the example network
# examples/networks/commute.net, enter evidence, propagate and print the
# beliefs), otherwise with the arguments given (scripts/run-main.sh --help).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target kelva_tool >/dev/null

if (($# == 0)); then
  set -- beliefs examples/networks/commute.net --set Weather=snow --set MissMeeting=yes
fi
exec build/release/tools/kelva/kelva "$@"
