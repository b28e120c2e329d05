#!/usr/bin/env bash
# Open-to-first-paint of a 24-megapixel JPEG fitted to a full-screen window
# (1280x1024, 24-bit Xvfb), vimora against feh on the same server. A probe
# started together with the viewer polls the screen's centre pixel until the
# picture's colour shows there; the best of N runs is kept for each viewer,
# and the ratio printed. Builds the release tree if needed.
#   bench/first_paint.sh [runs]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build/release
runs=${1:-3}
command -v feh >/dev/null || { echo "feh is missing: scripts/setup.sh bench" >&2; exit 1; }
[ -f "$build/build.ninja" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
cmake --build "$build" -j 2 --target vimora first_paint_probe >/dev/null
picture=$build/bench/first_paint_24mp_noisy.jpg
# A red-to-blue ramp with noise (about 9 MB, as a photograph of that size)
# and a plain (128, 0, 127) block in the middle for the probe.
[ -f "$picture" ] || /usr/bin/convert -size 6000x4000 gradient:red-blue -attenuate 0.5 \
  +noise Gaussian -fill 'rgb(128,0,127)' -draw 'rectangle 2700,1800 3300,2200' -quality 90 \
  "$picture"

export VIMORA=$build/core/vimora PROBE=$build/bench/first_paint_probe PICTURE=$picture RUNS=$runs
"$top/tests/with-xvfb" --size 1280x1024 bash -c '
  set -euo pipefail
  home=$(mktemp -d); trap "rm -rf $home" EXIT
  echo "ViewFitToWindow = True" >"$home/.vimorarc"
  # measure NAME COMMAND...: best time to first paint over the runs.
  measure() {
    local name=$1 best= t pid
    shift
    for i in $(seq "$RUNS"); do
      xsetroot -solid black 2>/dev/null || true
      "$PROBE" 640 512 128 0 127 >"$home/t" &
      local probe=$!
      HOME=$home "$@" >/dev/null 2>&1 &
      pid=$!
      wait "$probe" || true
      kill "$pid" 2>/dev/null; wait "$pid" 2>/dev/null || true
      t=$(cat "$home/t")
      [ "$t" = timeout ] && { echo "$name: no paint" >&2; exit 1; }
      if [ -z "$best" ] || awk "BEGIN {exit !($t < $best)}"; then best=$t; fi
    done
    echo "$best"
  }
  v=$(measure vimora "$VIMORA" -full "$PICTURE")
  f=$(measure feh feh -F --auto-zoom "$PICTURE")
  printf "first paint, 24 MP JPEG fitted to 1280x1024: vimora %.3f s, feh %.3f s, ratio vimora/feh %.2f\n" \
    "$v" "$f" "$(awk "BEGIN {print $v / $f}")"
'
