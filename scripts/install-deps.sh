#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with. Idempotent: does nothing
# when every package is already there.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev cvs python3)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq "${missing[@]}"
