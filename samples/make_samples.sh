#!/usr/bin/env bash
# Regenerates the bundled sample pictures: drawn by make_samples with
# libimgkit's writers; the three TIFF pages are joined with libtiff's tiffcp.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build/release}
cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target make_samples
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/samples/make_samples" "$work"
tiffcp "$work/page1.tif" "$work/page2.tif" "$work/page3.tif" "$work/pages.tif"
rm "$work"/page[123].tif
cp "$work"/* "$top/samples/"
ls -l "$top/samples"
