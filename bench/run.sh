#!/usr/bin/env bash
# Load-time benchmark of libimgkit against peer tools on the same files, in
# the same run, printed as ratios (ours / peer; below 1 means we are faster).
#   bench/run.sh [workdir]
# Every tool is timed as a whole command (start-up included) with hyperfine.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
work=${1:-/tmp/vimora-bench}
"$top/scripts/setup.sh" bench
cmake -S "$top" -B "$top/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
cmake --build "$top/build/release" --target bench_load >/dev/null
ours=$top/build/release/bench/bench_load
mkdir -p "$work"
convert=/usr/bin/convert

# Test pictures: a real photograph from the corpus enlarged to 24 and 12
# megapixels with a little grain, so that the files have photographic detail.
photo=$(ls "$top"/../shared/corpus/jpeg/*/*.jpg | xargs ls -S | head -1)
if [ ! -s "$work/big.jpg" ]; then
  "$convert" "$photo" -resize '6000x4000!' -attenuate 0.4 +noise Gaussian -quality 90 "$work/big.jpg"
  "$convert" "$work/big.jpg" -resize '4000x3000!' "$work/big.ppm"
  "$convert" "$work/big.ppm" "$work/big.png"
  tiffcp_in=$work/big.ppm
  "$convert" "$tiffcp_in" -compress none "$work/big.tif"
  "$convert" "$tiffcp_in" -compress lzw "$work/big-lzw.tif"
fi

time_of() {  # median seconds of a command
  hyperfine -N --warmup 2 --runs "${RUNS:-10}" --export-csv "$work/t.csv" "$1" >/dev/null 2>&1 ||
    hyperfine --warmup 2 --runs "${RUNS:-10}" --export-csv "$work/t.csv" "$1" >/dev/null
  awk -F, 'NR==2{print $4}' "$work/t.csv"
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN{printf "%.2f", a/b}'; }
min3() { printf '%s\n' "$@" | sort -g | head -1; }

printf '%-28s %10s %10s %8s\n' "case" "ours (s)" "peer (s)" "ratio"
row() { printf '%-28s %10.4f %10.4f %8s\n' "$1" "$2" "$3" "$(ratio "$2" "$3")"; }

o=$(time_of "$ours $work/big.jpg"); p=$(time_of "djpeg -outfile /dev/null $work/big.jpg")
row "JPEG 24MP vs djpeg" "$o" "$p"
o=$(time_of "$ours --reduce 128x128 $work/big.jpg"); p=$(time_of "djpeg -scale 1/8 -outfile /dev/null $work/big.jpg")
row "JPEG 24MP->128 vs djpeg 1/8" "$o" "$p"

for f in big.png big.tif big-lzw.tif; do
  o=$(time_of "$ours $work/$f")
  im=$(time_of "$convert $work/$f null:")
  gm=$(time_of "gm convert $work/$f null:")
  vi=$(time_of "vips avg $work/$f")
  best=$(min3 "$im" "$gm" "$vi")
  row "$f 12MP vs fastest peer" "$o" "$best"
  printf '    peers: ImageMagick %.4f  GraphicsMagick %.4f  libvips %.4f\n' "$im" "$gm" "$vi"
done
o=$(time_of "$ours --reduce 128x128 $work/big.png")
printf '%-28s %10.4f\n' "PNG 12MP->128 (ours)" "$o"
