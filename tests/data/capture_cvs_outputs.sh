#!/usr/bin/env bash
# Captures what the real cvs client prints for every state a file of a working copy can reach,
# as the golden inputs of the parser tests. Run by hand (never by the tests) after a change of
# cvs or of the cases:
#
#     tests/data/capture_cvs_outputs.sh            # writes tests/data/cvs_{status,log,update,entries}
#     UPDATE_GOLDEN=1 ctest --test-dir build -R 'Golden'   # then review every changed .expected
#
# Each state is built twice in a temporary folder: once in a working copy whose CVS/Root is a
# local path ("local_" cases) and once with a :fork: root ("fork_" cases), which runs cvs as a
# client of a server. Each .txt is what the service reads: the standard error text followed by
# the standard output text of one run. The parts that change from run to run are normalised:
# the temporary folder becomes /tmp/capture, times become 2001-01-01 10:00:00, commit ids
# become zeros, and the author becomes "dev".
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
base=$(mktemp -d /tmp/cvs-capture.XXXXXX)
trap 'rm -rf "$base"' EXIT

# No user settings (~/.cvsrc) and no locale may change what cvs prints.
export HOME=$base/home LC_ALL=C TZ=UTC
unset CVSROOT CVSREAD CVSIGNORE CVSWRAPPERS CVS_RSH || true
mkdir -p "$HOME"

for dir in cvs_status cvs_log cvs_update cvs_entries; do
    mkdir -p "$here/$dir"
done

normalise() {
    sed -E \
        -e "s#$base#/tmp/capture#g" \
        -e 's#[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} [+-][0-9]{4}#2001-01-01 10:00:00 +0000#g' \
        -e 's#[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}#2001/01/01 10:00:00#g' \
        -e 's#(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}#Mon Jan  1 10:00:00 2001#g' \
        -e 's#[0-9]{4}\.[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]{2}\.[0-9]{2}#2001.01.01.10.00.00#g' \
        -e 's#(commitid: )[0-9A-Za-z]+#\10000000000000000000#g' \
        -e 's#(Commit Identifier:\t)[0-9A-Za-z]+#\10000000000000000000#g' \
        -e 's#(author: )[^;]+#\1dev#g'
}

# capture DIR CASE WORKDIR CVS-ARGS...: one run of cvs, standard error first.
capture() {
    local dir=$1 name=$2 work=$3
    shift 3
    (cd "$work" && cvs "$@" >"$base/out" 2>"$base/err") || true
    cat "$base/err" "$base/out" | normalise >"$here/$dir/$name.txt"
}

# A file's content and a modification time of its own, in 2001, so that cvs sees every edit
# as a change even when several fall within one second.
stamp=1000000000
edit() {
    printf "$2" >"$1"
    stamp=$((stamp + 1))
    touch -d "@$stamp" "$1"
}

lines() { printf '1\n2\n3\n4\n5\n'; }

build_states() {
    local kind=$1
    local repo=$base/repo_$kind
    local root=$repo
    [ "$kind" = fork ] && root=:fork:$repo
    local top=$base/$kind
    mkdir -p "$top/import"
    cvs -Q -d "$repo" init
    (
        cd "$top/import"
        for f in up.c mod.c rem.c patch.c merge.c conf.c unres.c hadm.c resolved.c gone.c \
            gonemod.c lost.c hist.c; do
            lines >"$f"
        done
        cvs -Q -d "$repo" import -m "import" mod vendor start
    )
    (cd "$top" && cvs -Q -d "$root" checkout -d wc mod && cvs -Q -d "$repo" checkout -d other mod)
    local wc=$top/wc other=$top/other

    # The history of hist.c: trunk revisions with multi-line messages and tags, a branch with
    # revisions and a tag on one of them, and a branch that has no revision yet.
    (
        cd "$other"
        edit hist.c '1\ntwo\n3\n4\n5\n'
        cvs -Q commit -m "Second revision" hist.c
        cvs -Q tag rel1 hist.c
        cvs -Q tag -b b1 hist.c
        cvs -Q tag -b b2 hist.c
        edit hist.c '1\ntwo\nthree\n4\n5\n'
        cvs -Q commit -m "$(printf 'Third revision\n\nA message of several lines,\n  one of them indented.')" hist.c
        cvs -Q tag rel2 hist.c
        cvs -Q tag final hist.c
    )
    (cd "$top" && cvs -Q -d "$root" checkout -r b1 -d branch mod)
    (
        cd "$top/branch"
        edit hist.c '1\ntwo\n3\nfour on b1\n5\n'
        cvs -Q commit -m "First change on b1" hist.c
        cvs -Q tag b1_done hist.c
        edit hist.c '1\ntwo\n3\nfour on b1\nfive on b1\n'
        cvs -Q commit -m "$(printf 'Second change on b1\nwith a second line')" hist.c
        edit br.c '1\n2\n3\n4\nfive on b1\n'
        cvs -Q add br.c
        cvs -Q commit -m "br.c on b1" br.c
        edit nb.c 'added on b1\n'
        cvs -Q add nb.c
    )

    # Changes from another working copy, which ours has not seen yet.
    (
        cd "$other"
        edit patch.c '1\n2\n3\n4\nfive\n'
        edit merge.c 'one\n2\n3\n4\n5\n'
        edit conf.c '1\n2\nthree from other\n4\n5\n'
        edit unres.c '1\n2\nthree from other\n4\n5\n'
        edit hadm.c '1\n2\nthree from other\n4\n5\n'
        edit resolved.c '1\n2\nthree from other\n4\n5\n'
        cvs -Q commit -m "Changes from the other working copy" \
            patch.c merge.c conf.c unres.c hadm.c resolved.c
        cvs -Q remove -f gone.c gonemod.c
        cvs -Q commit -m "gone" gone.c gonemod.c
    )

    # Our working copy, one file per state.
    cd "$wc"
    edit mod.c '1\n2\n3\n4\nfive here\n'
    edit add.c 'new\n'
    cvs -Q add add.c
    rm rem.c
    cvs -Q remove rem.c
    edit merge.c '1\n2\n3\n4\nfive here\n'
    for f in conf.c unres.c hadm.c resolved.c; do
        edit "$f" '1\n2\nthree here\n4\n5\n'
    done
    edit gonemod.c '1\n2\n3\n4\nfive here\n'
    rm lost.c
    edit unknown.c 'not added\n'

    # The dry update that tells a predicted conflict from a clean merge, before the real one.
    capture cvs_update "${kind}_needs_merge" "$wc" -nq update merge.c
    capture cvs_update "${kind}_needs_merge_conflict" "$wc" -nq update conf.c
    capture cvs_update "${kind}_needs_patch" "$wc" -nq update patch.c
    capture cvs_update "${kind}_no_longer_in_repository" "$wc" -nq update gone.c
    capture cvs_update "${kind}_whole_directory" "$wc" -nq update

    # Merges that leave conflicts: untouched, edited with the markers kept, resolved.
    cvs -Q update unres.c hadm.c resolved.c >/dev/null 2>&1 || true
    sed -i 's/^three here$/three here, edited/' hadm.c
    touch -d '@999999999' hadm.c
    edit resolved.c '1\n2\nthree resolved\n4\n5\n'

    local st=cvs_status
    capture $st "${kind}_up_to_date" "$wc" -n stat up.c
    capture $st "${kind}_locally_modified" "$wc" -n stat mod.c
    capture $st "${kind}_locally_added" "$wc" -n stat add.c
    capture $st "${kind}_locally_removed" "$wc" -n stat rem.c
    capture $st "${kind}_needs_patch" "$wc" -n stat patch.c
    capture $st "${kind}_needs_merge" "$wc" -n stat merge.c
    capture $st "${kind}_needs_merge_conflict" "$wc" -n stat conf.c
    capture $st "${kind}_unresolved_conflict" "$wc" -n stat unres.c
    capture $st "${kind}_had_conflicts_with_markers" "$wc" -n stat hadm.c
    capture $st "${kind}_had_conflicts_resolved" "$wc" -n stat resolved.c
    capture $st "${kind}_unknown" "$wc" -n stat unknown.c
    capture $st "${kind}_no_file" "$wc" -n stat nowhere.c
    capture $st "${kind}_no_longer_in_repository" "$wc" -n stat gone.c
    capture $st "${kind}_modified_no_longer_in_repository" "$wc" -n stat gonemod.c
    capture $st "${kind}_needs_checkout" "$wc" -n stat lost.c
    capture $st "${kind}_on_branch" "$top/branch" -n stat hist.c
    capture $st "${kind}_added_on_branch" "$top/branch" -n stat nb.c
    cvs -Q update -r rel1 up.c 2>/dev/null
    capture $st "${kind}_not_on_sticky_tag" "$wc" -n stat up.c
    cvs -Q update -r rel1 hist.c
    capture $st "${kind}_sticky_revision_tag" "$wc" -n stat hist.c
    cvs -Q update -D "$(date -u '+%Y-%m-%d %H:%M:%S')" patch.c
    capture $st "${kind}_sticky_date" "$wc" -n stat patch.c

    local lg=cvs_log
    capture $lg "${kind}_imported" "$wc" -nQ log mod.c
    capture $lg "${kind}_branches_and_tags" "$wc" -nQ log hist.c
    capture $lg "${kind}_on_branch_only" "$top/branch" -nQ log br.c
    capture $lg "${kind}_one_revision" "$wc" -nQ -n log -r1.3 hist.c
    capture $lg "${kind}_locally_added" "$wc" -nQ log add.c
    capture $lg "${kind}_unknown" "$wc" -nQ log unknown.c

    # The administrative file itself, with every kind of line these states leave in it.
    normalise <"$wc/CVS/Entries" >"$here/cvs_entries/${kind}_working_copy.txt"
    normalise <"$top/branch/CVS/Entries" >"$here/cvs_entries/${kind}_branch.txt"
    cd "$base"
}

build_states local
build_states fork

# The captured texts are also the seeds of the fuzz targets (fuzz/seeds/<target>/).
seeds=$here/../../fuzz/seeds
link_seeds() { # link_seeds DATA-FOLDER SEED-FOLDER PREFIX
    mkdir -p "$seeds/$2"
    for f in "$here/$1"/*.txt; do
        ln -sfn "../../../tests/data/$1/$(basename "$f")" "$seeds/$2/$3$(basename "$f" .txt)"
    done
}
link_seeds cvs_status cvs_status ""
link_seeds cvs_update cvs_status update_
link_seeds cvs_log cvs_log ""
link_seeds cvs_entries cvs_entries ""
echo "captured into $here/cvs_status, cvs_log, cvs_update and cvs_entries"
