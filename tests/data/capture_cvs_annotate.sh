#!/usr/bin/env bash
# Captures what the real cvs client prints for `cvs annotate`, the input of the last-edit query,
# as golden inputs of the annotate tests. Run by hand (never by the tests) after a change of cvs
# or of the cases:
#
#     tests/data/capture_cvs_annotate.sh       # writes tests/data/cvs_annotate
#     UPDATE_GOLDEN=1 ctest --test-dir build -R 'CvsAnnotateGolden'   # then review the .expected
#
# Each case runs twice: in a working copy whose CVS/Root is a local path ("local_" cases) and in
# one with a :fork: root ("fork_" cases). Each run gives CASE.txt, the standard output (the
# annotated text, as the service reads it back from its file), CASE.err, the standard error text,
# and CASE.rc, the exit code. Dates and the user's name are normalised to 01-Jan-26 and "dev".
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
out=$here/cvs_annotate
base=$(mktemp -d /tmp/cvs-annotate.XXXXXX)
trap 'rm -rf "$base"' EXIT

export HOME=$base/home LC_ALL=C TZ=UTC
unset CVSROOT CVSREAD CVSIGNORE CVSWRAPPERS CVS_RSH || true
mkdir -p "$HOME" "$out"

normalise() {
    sed -E -e "s#$base#/tmp/capture#g" \
        -e 's#^([0-9.]+ +)\([^ ]+ +[0-9]{2}-[A-Z][a-z]{2}-[0-9]{2}\)#\1(dev      01-Jan-26)#'
}

# capture CASE CVS-ARGS...: one run of cvs in the current directory.
capture() {
    local name=$1 rc=0
    shift
    cvs "$@" >"$base/out" 2>"$base/err" || rc=$?
    normalise <"$base/out" >"$out/$name.txt"
    normalise <"$base/err" >"$out/$name.err"
    echo "$rc" >"$out/$name.rc"
}

stamp=1000000000
commit() {
    printf "$2" >"$1"
    stamp=$((stamp + 1))
    touch -d "@$stamp" "$1"
    cvs -Q commit -m "$3" "$1"
}

build_cases() {
    local kind=$1
    local repo=$base/repo_$kind root=$base/repo_$kind
    [ "$kind" = fork ] && root=:fork:$repo
    local top=$base/$kind
    mkdir -p "$top/import"
    cvs -Q -d "$repo" init
    (cd "$top/import" && printf 'one\ntwo\nthree\n' >f.c &&
        cvs -Q -d "$repo" import -m "import" mod vendor start)
    (cd "$top" && cvs -Q -d "$root" checkout -d wc mod)
    cd "$top/wc"
    # Lines added, changed and kept over four revisions, and one revision on a branch.
    commit f.c 'one\ntwo\nthree\nfour\n' "add four"
    commit f.c 'one\nTWO\nthree\nfour\n' "change two"
    cvs -Q tag -b b1 f.c
    commit f.c 'zero\none\nTWO\nthree\nfour\n' "add zero"
    cvs -Q update -r b1 f.c
    commit f.c 'one\nTWO\nthree\nfour\nbranch\n' "on the branch"
    cvs -Q update -A f.c
    printf 'n\n' >new.c
    cvs -Q add new.c

    capture "${kind}_head" -Q -n annotate -r 1.4 f.c
    capture "${kind}_branch" -Q -n annotate -r 1.3.2.1 f.c
    capture "${kind}_working_revision_loud" -n annotate f.c
    capture "${kind}_no_such_revision" -Q -n annotate -r 1.9 f.c
    capture "${kind}_unknown_file" -Q -n annotate -r 1.1 nowhere.c
    capture "${kind}_added_file" -Q -n annotate new.c
    cd "$base"
}

build_cases local
build_cases fork
echo "captured into $out"
