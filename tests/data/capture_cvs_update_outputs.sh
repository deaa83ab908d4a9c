#!/usr/bin/env bash
# Captures what the real cvs client prints when the checkout-info jobs run it, as the golden
# inputs of the tests of the update parser and of the merge. Run by hand (never by the tests)
# after a change of cvs or of the cases:
#
#     tests/data/capture_cvs_update_outputs.sh          # writes tests/data/cvs_update_parser
#     UPDATE_GOLDEN=1 ctest --test-dir build -R 'UpdateParserGolden|CheckoutReportGolden'
#     # then review every changed .expected
#
# Every case is built twice in a temporary folder: in working copies whose CVS/Root is a local
# path ("local_" cases) and with a :fork: root ("fork_" cases). Each .txt is what a job parses:
# the standard error text of one run followed by its standard output text. The commands are
# those of the jobs: `cvs -nq update` (scan_ cases), `cvs -q update -dP` (update_),
# `cvs -d ROOT -q co [-r TAG] mod` (co_), `cvs -q update -dP -r TAG|-D DATE|-A .` (modify_).
# The temporary folder becomes /tmp/capture; nothing else varies from run to run.
#
# The C++ merge tests build the same working copy "wc" with CvsRepo (checkout_report_test.cpp,
# buildStates): a change to the states here must be made there too.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
out=$here/cvs_update_parser
base=$(mktemp -d /tmp/cvs-capture.XXXXXX)
trap 'rm -rf "$base"' EXIT

# No user settings (~/.cvsrc) and no locale may change what cvs prints.
export HOME=$base/home LC_ALL=C TZ=UTC
unset CVSROOT CVSREAD CVSIGNORE CVSWRAPPERS CVS_RSH || true
mkdir -p "$HOME" "$out"

normalise() { sed -e "s#$base#/tmp/capture#g"; }

# capture CASE WORKDIR CVS-ARGS...: one run of cvs, standard error first.
capture() {
    local name=$1 work=$2
    shift 2
    (cd "$work" && cvs "$@" >"$base/out" 2>"$base/err") || true
    cat "$base/err" "$base/out" | normalise >"$out/$name.txt"
}

# A file's content and a modification time of its own in 2001, so that cvs sees every edit as
# a change, whatever second the checkout was made in.
stamp=1000000000
edit() {
    mkdir -p "$(dirname "$1")"
    printf "$2" >"$1"
    stamp=$((stamp + 1))
    touch -d "@$stamp" "$1"
}

lines() { printf '1\n2\n3\n4\n5\n'; }

build_and_capture() {
    local kind=$1
    local repo=$base/repo_$kind
    local root=$repo
    [ "$kind" = fork ] && root=:fork:$repo
    local top=$base/$kind
    mkdir -p "$top/import"
    cvs -Q -d "$repo" init
    (
        cd "$top/import"
        for f in up.c mod.c rem.c patch.c merge.c conf.c gone.c gonelost.c lost.c \
            sub/s1.c sub/s2.c sub/deep/d1.c sub/deep/d2.c; do
            mkdir -p "$(dirname "$f")"
            lines >"$f"
        done
        cvs -Q -d "$repo" import -m "import" mod vendor start
    )
    cvs -Q -d "$repo" rtag rel1 mod
    (
        cd "$top"
        cvs -Q -d "$root" checkout -d wc mod
        cvs -Q -d "$repo" checkout -d other mod
        mkdir dest && cd dest && cvs -Q -d "$root" checkout mod
    )
    local wc=$top/wc other=$top/other
    # A date between the import and the changes below, for `update -D`.
    sleep 1
    local before_changes
    before_changes=$(date -u '+%Y-%m-%d %H:%M:%S')
    sleep 1

    # Changes from another working copy, which ours have not seen yet.
    (
        cd "$other"
        edit patch.c '1\n2\n3\n4\nfive\n'
        edit merge.c 'one\n2\n3\n4\n5\n'
        edit conf.c '1\n2\nthree from other\n4\n5\n'
        edit sub/deep/d1.c '1\n2\n3\n4\nfive\n'
        edit sub/deep/d2.c '1\n2\nthree from other\n4\n5\n'
        edit newremote.c 'new in the repository\n'
        cvs -Q add newremote.c
        edit sub/newsub/n.c 'new directory\n'
        cvs -Q add sub/newsub sub/newsub/n.c
        cvs -Q remove -f gone.c gonelost.c
        cvs -Q commit -m "Changes from the other working copy"
    )

    # Our working copy, one file per state.
    cd "$wc"
    edit mod.c '1\n2\n3\n4\nfive here\n'
    edit sub/s1.c '1\n2\n3\n4\nfive here\n'
    edit add.c 'new\n'
    cvs -Q add add.c
    rm rem.c
    cvs -Q remove rem.c
    edit merge.c '1\n2\n3\n4\nfive here\n'
    edit conf.c '1\n2\nthree here\n4\n5\n'
    edit sub/deep/d2.c '1\n2\nthree here\n4\n5\n'
    rm gonelost.c lost.c
    edit unknown.c 'not added\n'
    edit unknowndir/u.c 'not added\n'
    edit sub/unknownsub/u.c 'not added\n'

    # What a scan sees, state by state, then all at once.
    local k=$kind
    capture "${k}_scan_modified" "$wc" -nq update mod.c
    capture "${k}_scan_added" "$wc" -nq update add.c
    capture "${k}_scan_removed" "$wc" -nq update rem.c
    capture "${k}_scan_remotely_modified" "$wc" -nq update patch.c
    capture "${k}_scan_remotely_added" "$wc" -nq update newremote.c
    capture "${k}_scan_remotely_removed" "$wc" -nq update gone.c
    capture "${k}_scan_remotely_removed_pertinent" "$wc" -nq update gonelost.c
    capture "${k}_scan_needs_merge" "$wc" -nq update merge.c
    capture "${k}_scan_needs_merge_conflict" "$wc" -nq update conf.c
    capture "${k}_scan_lost" "$wc" -nq update lost.c
    capture "${k}_scan_nested" "$wc" -nq update sub
    capture "${k}_scan_whole" "$wc" -nq update

    # A real update of all of it, and of each state in a copy of its own.
    cp -a "$wc" "$top/wc_whole"
    capture "${k}_update_whole" "$top/wc_whole" -q update -dP
    cp -a "$wc" "$top/wc_parts"
    capture "${k}_update_merge" "$top/wc_parts" -q update -dP merge.c
    capture "${k}_update_conflict" "$top/wc_parts" -q update -dP conf.c
    capture "${k}_update_remotely_removed" "$top/wc_parts" -q update -dP gone.c gonelost.c
    capture "${k}_update_remotely_added" "$top/wc_parts" -q update -dP newremote.c
    capture "${k}_update_nested" "$top/wc_parts" -q update -dP sub

    # Checkouts: of the head, of a tag, and over an older checkout with changes of its own.
    mkdir "$top/co_head" "$top/co_tag"
    capture "${k}_co_head" "$top/co_head" -d "$root" -q co mod
    capture "${k}_co_tag" "$top/co_tag" -d "$root" -q co -r rel1 mod
    edit "$top/dest/mod/conf.c" '1\n2\nthree in dest\n4\n5\n'
    rm "$top/dest/mod/gonelost.c"
    capture "${k}_co_over_existing" "$top/dest" -d "$root" -q co mod

    # Modifications of a checkout of the head: to the tag, back to the head over a conflicting
    # edit, and to a date before the changes.
    local m=$top/co_head/mod
    capture "${k}_modify_tag" "$m" -q update -dP -r rel1 .
    edit "$m/conf.c" '1\n2\nthree under rel1\n4\n5\n'
    capture "${k}_modify_head" "$m" -q update -dP -A .
    capture "${k}_modify_date" "$m" -q update -dP -D "$before_changes" .
    cd "$base"
}

build_and_capture local
build_and_capture fork

# The captured texts are also the seeds of the fuzz target of the parser.
seeds=$here/../../fuzz/seeds/cvs_update
mkdir -p "$seeds"
for f in "$out"/*.txt; do
    ln -sfn "../../../tests/data/cvs_update_parser/$(basename "$f")" "$seeds/$(basename "$f" .txt)"
done
echo "captured into $out"
