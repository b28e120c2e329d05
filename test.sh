#!/usr/bin/env bash
# Sets up, builds (with AddressSanitizer and UndefinedBehaviorSanitizer) and
# runs every test.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh test
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVIMORA_SANITIZE=ON \
  -DVIMORA_WERROR=ON >/dev/null
cmake --build build/asan -j "$(nproc)"
cd build/asan
ctest -j "$(nproc)" --output-on-failure --timeout 900
