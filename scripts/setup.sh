#!/usr/bin/env bash
# Installs the Debian packages that Kelva needs to build and test, and only
# those that are missing (apt-get update runs only when something is).
set -euo pipefail

packages=(
  build-essential cmake g++ openjdk-17-jdk-headless
  libgtest-dev libbenchmark-dev junit5 libboost-math-dev zlib1g-dev libsodium-dev
  clang libclang-rt-14-dev clang-format clang-tidy graphviz
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ $status == "install ok installed" ]] || missing+=("$package")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi
echo "setup: installing ${missing[*]}"
"${sudo[@]}" apt-get update
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y --no-install-recommends "${missing[@]}"
