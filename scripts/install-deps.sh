#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with. Idempotent: does nothing
# when every package is already there.
#
# The sanitizer and fuzzer runtimes come with the release's own clang: the package is found from
# the clang version the release offers (libclang-rt-N-dev, or libclang-common-N-dev on releases
# that keep the runtimes there), so that no version is pinned here.
set -euo pipefail
packages=(cmake ninja-build g++ clang libgtest-dev libgmock-dev libbenchmark-dev cvs python3)

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
updated=no
apt_update() {
    if [ "$updated" = no ]; then
        $sudo apt-get update -qq
        updated=yes
    fi
}

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'
}

# The major version of the release's clang: from the clang installed, else from what apt offers.
clang_major() {
    local from
    from=$(dpkg-query -W -f='${Depends}' clang 2>/dev/null || true)
    [ -n "$from" ] || from=$(apt-cache depends clang 2>/dev/null || true)
    grep -o 'clang-[0-9]\+' <<<"$from" | head -n1 | cut -d- -f2 || true
}

# The package that holds the runtimes of clang $1.
runtime_package() {
    if installed "libclang-rt-$1-dev" || apt-cache show "libclang-rt-$1-dev" >/dev/null 2>&1; then
        echo "libclang-rt-$1-dev"
    else
        echo "libclang-common-$1-dev"
    fi
}

major=$(clang_major)
if [ -z "$major" ]; then
    apt_update
    major=$(clang_major)
fi
if [ -z "$major" ]; then
    echo "install-deps: this release offers no clang package" >&2
    exit 1
fi
packages+=("$(runtime_package "$major")")

missing=()
for p in "${packages[@]}"; do
    installed "$p" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
apt_update
$sudo apt-get install -y -qq "${missing[@]}"
