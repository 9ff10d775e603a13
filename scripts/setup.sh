#!/usr/bin/env bash
# Installs the Debian packages that Kelva needs to build and test, and only
# those that are missing (apt-get update runs only when something is), and
# makes the de_DE.UTF-8 locale when no locale with a decimal comma exists:
# the tests that read and print numbers under such a process locale skip
# themselves without one.
set -euo pipefail

packages=(
  build-essential cmake g++ openjdk-17-jdk-headless
  libgtest-dev libbenchmark-dev junit5 libboost-math-dev zlib1g-dev libsodium-dev
  clang libclang-rt-14-dev clang-format clang-tidy graphviz locales
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ $status == "install ok installed" ]] || missing+=("$package")
done

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi

if ((${#missing[@]} > 0)); then
  echo "setup: installing ${missing[*]}"
  "${sudo[@]}" apt-get update
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
fi

if ! locale -a 2>/dev/null | grep -qiE '^(de_DE|fr_FR|nl_NL)\.utf-?8$'; then
  echo "setup: making the de_DE.UTF-8 locale"
  "${sudo[@]}" localedef -i de_DE -f UTF-8 de_DE.UTF-8
fi
