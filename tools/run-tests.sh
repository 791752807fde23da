#!/usr/bin/env bash
# Builds the library, the tests, the benchmarks and the tools, then runs the whole test suite.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/tools/setup-deps.sh" test
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build "$root/build" -j"$(nproc)"
ctest --test-dir "$root/build" --output-on-failure -j"$(nproc)"
