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
set -e

echo "== svc_router launches cvsservice; a client connects to VersionControl.CVS through it"
build/bin/svc_router -port 0 -port_file "$work/router.port" -log "$work/router.log" \
    -plugin "$PWD/build/bin/cvsservice" > "$work/router.out" 2>&1 &
router=$!
for _ in $(seq 100); do [ -s "$work/router.port" ] && break; sleep 0.1; done
(cd "$work/demo" && "$OLDPWD/build/bin/svc_testclient" -connect_servicerouter "$(cat "$work/router.port")")
echo "client exit code $?"
set +e
wait "$router"; code=$?
set -e
cat "$work/router.out"
echo "router exit code $code (0: cvsservice asked to go once its client had left, and exited 0)"
echo "== the router's log"
cat "$work/router.log"
