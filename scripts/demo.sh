#!/usr/bin/env bash
# Installs what is needed, builds, and runs the main job: a local CVS repository and working
# copy made from scratch, and cvsservice started as a user would start it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j "$(nproc)"

work=$(mktemp -d "${TMPDIR:-/tmp}/cvsservice-demo.XXXXXX")
trap 'rm -rf "$work"' EXIT
echo "== a CVS repository in $work/repo with a module 'demo'"
cvs -Q -d "$work/repo" init
mkdir -p "$work/import" && echo "hello" > "$work/import/hello.txt"
(cd "$work/import" && cvs -Q -d "$work/repo" import -m "first import" demo vendor start)
(cd "$work" && cvs -Q -d "$work/repo" checkout demo)
ls -l "$work/demo"

echo "== cvsservice without a router option (refuses, exit 1)"
set +e
build/bin/cvsservice; echo "exit code $?"
echo "== cvsservice told to connect to a router on a port where none listens"
build/bin/cvsservice -connect_servicerouter 1; echo "exit code $?"
set -e
