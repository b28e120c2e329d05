#!/usr/bin/env bash
# Sets up, builds and runs Vimora on the bundled sample pictures
# (extra arguments are passed on).
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh build
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
cmake --build build/release
# The viewer is not built yet: the codec library's demo describes the samples.
exec build/release/imgkit/imkinfo "$@"
