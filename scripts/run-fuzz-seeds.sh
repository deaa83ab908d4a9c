#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build once over its seed corpus (fuzz/seeds/<target>/).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-fuzz}
shopt -s nullglob
ran=0
for target in "$build"/bin/*_fuzz; do
    name=$(basename "$target")
    seeds=fuzz/seeds/${name%_fuzz}
    if [ -d "$seeds" ]; then
        "$target" -runs=0 "$seeds"
    else
        "$target" -runs=1000
    fi
    ran=$((ran + 1))
done
echo "fuzz: ran $ran target(s) over their seeds"
