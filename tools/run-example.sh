#!/usr/bin/env bash
# Builds the library and its example program, then runs the example (no arguments needed).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/tools/setup-deps.sh"
cmake -S "$root" -B "$root/build-example" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DKESTRA_BUILD_TESTS=OFF -DKESTRA_BUILD_BENCH=OFF -DKESTRA_BUILD_TOOLS=ON
cmake --build "$root/build-example" --target kestra_example -j"$(nproc)"
"$root/build-example/tools/kestra_example"
