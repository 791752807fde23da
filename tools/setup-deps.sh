#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# Usage: tools/setup-deps.sh [test]   (with "test": also GoogleTest, Google Benchmark, clang-format)
set -euo pipefail
pkgs=(g++ cmake ninja-build pkg-config)
if [ "${1:-}" = "test" ]; then
  pkgs+=(libgtest-dev libgmock-dev libbenchmark-dev clang-format)
fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
