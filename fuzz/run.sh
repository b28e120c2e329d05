#!/usr/bin/env bash
# Long libFuzzer runs of every hand-written reader.
#   fuzz/run.sh [SECONDS-PER-READER] [PARALLEL] [READER...]
# Builds the clang fuzz targets in build/fuzz, gathers seeds for each reader
# (the public test-suite files of its format and pictures pixbatch writes in
# it from the bundled samples, as binary, grey, colour-mapped and true
# colour), runs each target for the given time (600 s by default, two at a
# time), and prints one line per reader: executions, seconds of processor
# time, corpus size and findings. Crashing inputs are kept under
# $FUZZ_WORK/<reader>/ (default /tmp/vimora-fuzz).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
parallel=${2:-2}
shift $(($# < 2 ? $# : 2))
work=${FUZZ_WORK:-/tmp/vimora-fuzz}
corpus=$top/../shared/corpus

"$top/scripts/setup.sh" test
mkdir -p "$work"
build() { "$@" >"$work/build.log" 2>&1 || { tail -30 "$work/build.log"; exit 1; }; }
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build/fuzz" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVIMORA_FUZZ=ON -DVIMORA_TESTS=OFF >/dev/null
build cmake --build "$top/build/fuzz" -j 2
build cmake -S "$top" -B "$top/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF
build cmake --build "$top/build/release" --target pixbatch -j 2
pixbatch=$top/build/release/pixbatch/pixbatch

readers=("$@")
if [ ${#readers[@]} -eq 0 ]; then
  readers=(bmp pbm pgm ppm pam raw pcx tga sgi iff soft sun xbm xpm ico cur psd)
fi
# Where the public suites keep files of each reader's format.
declare -A suite=([bmp]=bmp [pbm]=pnm [pgm]=pnm [ppm]=pnm [pam]=pnm [pcx]=pcx [tga]=tga
  [sgi]=sgi [iff]=iff [soft]=pic [sun]=ras [xbm]=xbm [xpm]=xpm [ico]=ico [cur]=ico [psd]=psd)

declare -A magick=([bmp]=bmp [pbm]=pbm [pgm]=pgm [ppm]=ppm [pam]=pam [pcx]=pcx [tga]=tga
  [sgi]=sgi [sun]=sun [xbm]=xbm [xpm]=xpm [ico]=ico [cur]=ico [psd]=psd)

seeds() {  # seeds READER DIR
  local reader=$1 dir=$2 kind
  mkdir -p "$dir"
  if [ -n "${suite[$reader]:-}" ] && [ -d "$corpus/${suite[$reader]}" ]; then
    # Small files only: libFuzzer mutates within -max_len.
    find "$corpus/${suite[$reader]}" -type f -size -16k -print0 |
      while IFS= read -r -d '' f; do cp "$f" "$dir/suite-$(basename "$(dirname "$f")")-$(basename "$f")"; done
  fi
  # Round-trip outputs: the samples reduced to small pictures of each kind.
  for kind in "-binary floyd" "-grey 16 plain" "-colors 16 adaptive" "-truecolors"; do
    local out
    out=$(mktemp -d)
    # Read-only formats give nothing here.
    "$pixbatch" -ini "$work/empty.rc" -out "$reader" -resize 24 18 $kind -o "$out" \
      "$top"/samples/*.{png,bmp,gif,jpg} >/dev/null 2>&1 || true
    for f in "$out"/*; do
      if [ -f "$f" ]; then cp "$f" "$dir/own-${kind// /_}-$(basename "$f")"; fi
    done
    rm -rf "$out"
  done
  # Pictures an independent writer makes, for the formats ImageMagick writes
  # (the only seeds of the read-only Photoshop reader).
  if [ -n "${magick[$reader]:-}" ]; then
    local type
    for type in Bilevel Grayscale Palette TrueColor TrueColorAlpha; do
      convert "$top/samples/wheel.png" -resize 24x18 -type "$type" \
        "${magick[$reader]}:$dir/magick-$type.$reader" 2>/dev/null || true
    done
  fi
}

run_one() {  # run_one READER
  local reader=$1 dir=$work/$1
  rm -rf "$dir"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  seeds "$reader" "$dir/seeds"
  local nseeds
  nseeds=$(find "$dir/seeds" -type f | wc -l)
  (cd "$dir" && /usr/bin/time -f '%U %S' -o "$dir/cpu" "$top/build/fuzz/fuzz/fuzz_$reader" \
    -max_total_time="$seconds" -max_len=16384 -rss_limit_mb=2048 -timeout=20 \
    -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "$dir/corpus" "$dir/seeds" \
    >"$dir/log" 2>&1) || true
  local execs units crashes slow cpu
  execs=$(awk '/stat::number_of_executed_units/{print $2}' "$dir/log" | tail -1)
  units=$(find "$dir/corpus" -type f | wc -l)
  crashes=$(find "$dir/artifacts" -type f ! -name 'slow-unit-*' | wc -l)
  slow=$(find "$dir/artifacts" -type f -name 'slow-unit-*' | wc -l)
  cpu=$(tail -1 "$dir/cpu" 2>/dev/null | awk '{printf "%.0f", $1 + $2}')
  printf '%-5s %12s executions %6s s cpu %6d seeds %6d corpus %3d findings %3d slow inputs\n' \
    "$reader" "${execs:-?}" "${cpu:-?}" "$nseeds" "$units" "$crashes" "$slow" | tee "$dir/summary"
}

: >"$work/empty.rc"  # built-in save settings for pixbatch
export -f seeds run_one
export top seconds work corpus pixbatch
SUITE_DECL="$(declare -p suite); $(declare -p magick)"
export SUITE_DECL
printf '%s\n' "${readers[@]}" |
  xargs -P "$parallel" -I{} bash -c 'eval "$SUITE_DECL"; run_one "$1"' _ {}
echo "findings are kept in $work/<reader>/artifacts"
