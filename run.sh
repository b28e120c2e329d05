#!/usr/bin/env bash
# Sets up, builds and starts Vimora on the bundled sample pictures (one
# window over the list: PageDown / PageUp step through it). Extra arguments
# are passed on; they replace the samples when they name files.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh build
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
cmake --build build/release -j 2
if [ -z "${DISPLAY:-}" ]; then
  echo "run.sh: no X display (DISPLAY is not set); try: tests/with-xvfb ./run.sh" >&2
  exit 1
fi
if [ $# -gt 0 ]; then
  exec build/release/core/vimora "$@"
fi
exec build/release/core/vimora samples/*.jpg samples/*.png samples/*.gif samples/*.bmp \
  samples/*.tif samples/*.pgm
