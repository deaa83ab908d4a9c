#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test: the normal build, the sanitizer build,
# and the fuzz targets over their seeds.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build -G Ninja -DCVSS_WERROR=ON
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure --timeout 120 -j "$jobs"

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCVSS_SANITIZE=ON -DCVSS_BENCH=OFF
cmake --build build-asan -j "$jobs"
ctest --test-dir build-asan --output-on-failure --timeout 300 -j "$jobs"

if command -v clang++ >/dev/null && [ -d fuzz ] && [ -f fuzz/CMakeLists.txt ]; then
    cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang \
        -DCMAKE_CXX_COMPILER=clang++ -DCVSS_FUZZ=ON -DCVSS_TESTS=OFF -DCVSS_BENCH=OFF
    cmake --build build-fuzz -j "$jobs"
    scripts/run-fuzz-seeds.sh build-fuzz
fi
