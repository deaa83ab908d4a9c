#!/usr/bin/env bash
# Captures what the real cvs client prints beside `add`, `remove`, `commit` and `update` runs, the
# remarks that the operations on files tell from failures, as the golden inputs of the remark
# tests. Run by hand (never by the tests) after a change of cvs or of the cases:
#
#     tests/data/capture_cvs_remarks.sh        # writes tests/data/cvs_remarks (takes about 35 s)
#     UPDATE_GOLDEN=1 ctest --test-dir build -R 'CvsRemarksGolden'   # then review the .expected
#
# Each case runs twice: in a working copy whose CVS/Root is a local path ("local_" cases) and in
# one with a :fork: root ("fork_" cases). Each .txt is the standard error text followed by the
# standard output text of one run, as the service reads it. Some cases run without -Q, since
# that is where cvs prints the remark at all. The lock waits are real: a lock directory is held
# in the repository while a commit starts, and cvs retries after 30 s. What changes from run to
# run is normalised: the temporary folder becomes /tmp/capture, clock times 10:00:00, the user
# who holds a lock "dev", and dates of CVS/Entries lines are not captured.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
out=$here/cvs_remarks
base=$(mktemp -d /tmp/cvs-remarks.XXXXXX)
trap 'rm -rf "$base"' EXIT

export HOME=$base/home LC_ALL=C TZ=UTC
unset CVSROOT CVSREAD CVSIGNORE CVSWRAPPERS CVS_RSH || true
mkdir -p "$HOME" "$out"

normalise() {
    sed -E \
        -e "s#$base#/tmp/capture#g" \
        -e 's#\[[0-9]{2}:[0-9]{2}:[0-9]{2}\]#[10:00:00]#g' \
        -e "s#waiting for [^ ]+'s lock#waiting for dev's lock#g"
}

# capture CASE WORKDIR CVS-ARGS...: one run of cvs, standard error first.
capture() {
    local name=$1 work=$2 run
    shift 2
    run=$(mktemp -d "$base/run.XXXXXX")
    (cd "$work" && cvs "$@" >"$run/out" 2>"$run/err") || true
    cat "$run/err" "$run/out" | normalise >"$out/$name.txt"
}

stamp=1000000000
edit() {
    printf "$2" >"$1"
    stamp=$((stamp + 1))
    touch -d "@$stamp" "$1"
}

build_cases() {
    local kind=$1
    local repo=$base/repo_$kind root=$base/repo_$kind
    [ "$kind" = fork ] && root=:fork:$repo
    local top=$base/$kind
    mkdir -p "$top/import" "$top/lockq" "$top/lockqq"
    cvs -Q -d "$repo" init
    (
        cd "$top/import"
        for f in up.c gone.c gonelost.c conf.c stale.c rem1.c rem2.c rem3.c back.c; do
            printf '1\n2\n3\n' >"$f"
        done
        mkdir sub
        printf '1\n' >sub/s.c
        cvs -Q -d "$repo" import -m "import" mod vendor start
        for m in lockq lockqq; do
            cvs -Q -d "$repo" import -m "import" "$m" vendor start
        done
    )
    (cd "$top" && cvs -Q -d "$root" checkout -d wc mod && cvs -Q -d "$repo" checkout -d other mod)
    local wc=$top/wc other=$top/other
    (
        cd "$other"
        edit conf.c '1\ntwo from other\n3\n'
        edit stale.c '1\ntwo from other\n3\n'
        cvs -Q commit -m "other" conf.c stale.c
        cvs -Q remove -f gone.c gonelost.c
        cvs -Q commit -m "gone" gone.c gonelost.c
    )
    cd "$wc"
    echo "the message" >"$top/msg"

    edit new1.c 'n\n'
    edit new2.c 'n\n'
    edit new3.c 'n\n'
    capture "${kind}_add_one" "$wc" add new1.c
    capture "${kind}_add_two" "$wc" add new2.c new3.c
    edit new4.c 'n\n'
    capture "${kind}_add_quiet" "$wc" -Q add new4.c
    capture "${kind}_add_unknown_name" "$wc" -Q add nowhere.c
    capture "${kind}_add_up_to_date" "$wc" -Q add up.c

    rm rem1.c rem2.c rem3.c
    capture "${kind}_remove_one" "$wc" remove rem1.c
    capture "${kind}_remove_two" "$wc" remove rem2.c rem3.c
    capture "${kind}_remove_still_there" "$wc" -Q remove up.c

    rm back.c
    cvs -Q remove back.c
    capture "${kind}_add_resurrected" "$wc" add back.c
    rm back.c
    cvs -Q remove back.c
    capture "${kind}_add_resurrected_quiet" "$wc" -Q add back.c

    edit conf.c '1\ntwo here\n3\n'
    edit stale.c '1\ntwo here\n3\n'
    capture "${kind}_commit_up_to_date_failed" "$wc" -Q commit -F "$top/msg" stale.c
    capture "${kind}_update_conflict" "$wc" -Q update conf.c
    capture "${kind}_commit_conflict" "$wc" -Q commit -F "$top/msg" conf.c
    rm gonelost.c
    capture "${kind}_update_not_pertinent" "$wc" -q update gonelost.c
    capture "${kind}_update_no_longer_in_repository" "$wc" -q update gone.c
    capture "${kind}_update_directory" "$wc" update sub
    edit up.c '1\n2\n3\nmore\n'
    capture "${kind}_commit_quiet" "$wc" -q commit -F "$top/msg" up.c

    # Commits that wait for a lock held in their repository directory, both at once.
    for m in lockq lockqq; do
        (cd "$top" && cvs -Q -d "$root" checkout -d "wc_$m" "$m")
        edit "$top/wc_$m/up.c" '1\n2\n3\nlocked\n'
        mkdir "$repo/$m/#cvs.lock"
    done
    capture "${kind}_commit_lock_wait" "$top/wc_lockq" -q commit -F "$top/msg" up.c &
    capture "${kind}_commit_lock_wait_quiet" "$top/wc_lockqq" -Q commit -F "$top/msg" up.c &
    sleep 2
    rmdir "$repo/lockq/#cvs.lock" "$repo/lockqq/#cvs.lock"
    wait
    cd "$base"
}

build_cases local &
sleep 1
build_cases fork &
wait
echo "captured into $out"
