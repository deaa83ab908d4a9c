#!/usr/bin/env bash
# Installs what is needed, builds, and runs the main job: a real CVS repository made from
# scratch, a small project imported into it and checked out twice, work committed from one
# working copy, and cvsvc run on the other to see and take in that work.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja > /dev/null
cmake --build build -j "$(nproc)" > /dev/null
bin="$PWD/build/bin"
cvsvc() { "$bin/cvsvc" "$@"; }

work=$(mktemp -d "${TMPDIR:-/tmp}/cvsservice-demo.XXXXXX")
trap 'rm -rf "$work"' EXIT
repo="$work/repo"
# Shows a command as typed, then runs it; a failure is shown and the demo goes on.
show() {
    echo
    printf '$'; printf ' %q' "$@"; echo
    "$@" || echo "(exit code $?)"
}

echo "== 1. a CVS repository in $repo"
cvs -Q -d "$repo" init

echo "== 2. a small project imported as module 'calc' and checked out twice: alice/ and bob/"
mkdir -p "$work/import/src"
printf 'calc: adds numbers\n' > "$work/import/README"
printf 'int main(void)\n{\n    return add(1, 2);\n}\n' > "$work/import/src/main.c"
printf 'int add(int a, int b)\n{\n    return a + b;\n}\n' > "$work/import/src/add.c"
printf 'to do: subtract\n' > "$work/import/NOTES"
(cd "$work/import" && cvs -Q -d "$repo" import -m "first import" calc vendor start)
(cd "$work" && cvs -Q -d "$repo" checkout -d alice calc && cvs -Q -d "$repo" checkout -d bob calc)

echo "== 3. alice changes, adds and removes files, and commits"
cd "$work/alice"
sleep 1 # a change within the second of the checkout would look unchanged to cvs
printf 'int main(void)\n{\n    return add(2, 3);\n}\n' > src/main.c
printf '/* adds two numbers */\nint add(int a, int b)\n{\n    return a + b;\n}\n' > src/add.c
printf 'int sub(int a, int b)\n{\n    return a - b;\n}\n' > src/sub.c
rm NOTES
cvs -Q add src/sub.c && cvs -Q remove NOTES
cvs -Q commit -m "main adds other numbers; add.c explained; sub.c; no more notes"

echo "== 4. bob works on his copy, then uses cvsvc (it starts its own router and service)"
cd "$work/bob"
printf 'int main(void)\n{\n    return add(4, 4);\n}\n' > src/main.c
printf 'calc: adds and multiplies numbers\n' > README
printf 'int mul(int a, int b)\n{\n    return a * b;\n}\n' > src/mul.c
show cvsvc add src/mul.c
show cvsvc scan
show cvsvc status src/main.c README src/mul.c
show cvsvc commit -m "README tells of mul; mul.c" README src/mul.c
show cvsvc log README
show cvsvc blame README 1
show cvsvc update
show cvsvc --json scan src
