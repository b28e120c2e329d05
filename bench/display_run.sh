#!/usr/bin/env bash
# Times the fit-mode redraw of a 24-megapixel picture in a 1280x1024 window
# (ConvertBitmapToImage + drawArea), with MIT-SHM and with plain XPutImage,
# on private Xvfb servers: 24-bit TrueColor (32-bit words written straight),
# 16-bit TrueColor (put-pixel) and 8-bit PseudoColor (cube dither).
# Builds the release tree if needed.
#   bench/display_run.sh [runs]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build/release
[ -f "$build/build.ninja" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
cmake --build "$build" -j 2 --target bench_display >/dev/null
for depth in 24 16 8; do
  echo "== ${depth}-bit screen"
  "$top/tests/with-xvfb" --depth "$depth" --size 1280x1024 "$build/bench/bench_display" "${1:-9}"
done
