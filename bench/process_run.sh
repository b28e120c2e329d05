#!/usr/bin/env bash
# Picture operations of process/ side by side with ImageMagick, GraphicsMagick
# and libvips on the same 12-megapixel RGB PPM, every tool single-threaded.
#   bench/process_run.sh [workdir]
# RUNS (3) runs per command; SLOW (10 s) commands slower than this run once;
# LIMIT (60 s) commands slower than this are stopped and shown as ">60".
# VIMORA_BENCH_CLOCK=cpu measures processor time instead of wall time (for a
# shared, busy machine).
#
# Ours: the in-process time of the operation alone (bench_process, best of
# RUNS). Peers: each command is timed whole (best of RUNS), and
# the tool's own plain read-and-write of the same file is subtracted, so what
# is compared is the cost of the operation itself. The floor is the time to
# allocate a new picture and memcpy the pixels into it ("copy"); memcpy into an
# already mapped buffer is shown too.
#
# A row meets the target when the fastest peer's operation cost is at least 3x
# ours, or when ours is within 3x of the copy floor (where a peer is near the
# floor already, nothing can be 3x faster than it).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
work=${1:-/tmp/vimora-pbench}
runs=${RUNS:-3}
slow=${SLOW:-10}   # seconds: slower commands run once
limit=${LIMIT:-60} # seconds: slower commands are stopped
clock=${VIMORA_BENCH_CLOCK:-wall}
build=$top/build/release
command -v gm >/dev/null && command -v vips >/dev/null && command -v perf >/dev/null ||
  "$top/scripts/setup.sh" bench
[ -f "$build/build.ninja" ] ||
  cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIMORA_TESTS=OFF >/dev/null
ninja -j1 -C "$build" bench_process >/dev/null
ours=$build/bench/bench_process
mkdir -p "$work"
convert=/usr/bin/convert
export OMP_NUM_THREADS=1 MAGICK_THREAD_LIMIT=1 VIPS_CONCURRENCY=1
im="$convert -limit thread 1"
gm="gm convert -limit threads 1"

# The test picture: the largest photograph of the corpus enlarged to
# 4000x3000 with a little grain, so that it has photographic detail and many
# distinct colours.
in=$work/big.ppm
if [ ! -s "$in" ]; then
  photo=$(ls "$top"/../shared/corpus/jpeg/*/*.jpg | xargs ls -S | head -1)
  $im "$photo" -resize '4000x3000!' -attenuate 0.4 +noise Gaussian "$in"
fi
out=$work/out
printf '3 3 1 0\n0 -1 0\n-1 5 -1\n0 -1 0\n' >"$work/sharpen.mat"

# Best seconds of a command. The first run is the warm-up; a command that
# takes longer than $slow seconds is not repeated (that run is its time), and
# one still running after $limit seconds is stopped and reported as ">limit".
# With VIMORA_BENCH_CLOCK=cpu the time is the processor time of the command
# (perf's task-clock), which a busy machine disturbs far less than wall time.
once() {  # command: prints seconds, or ">limit" / "-"
  local t0 t1 rc=0
  if [ "$clock" = cpu ]; then
    perf stat -x, -e task-clock -o "$work/ps.txt" -- timeout "$limit" $1 >/dev/null 2>&1 || rc=$?
    [ "$rc" = 124 ] && { echo ">$limit"; return; }
    [ "$rc" != 0 ] && { echo "-"; return; }
    awk -F, '/task-clock/{printf "%.4f", $1 / 1000}' "$work/ps.txt"
    return
  fi
  t0=$(date +%s.%N)
  timeout "$limit" $1 >/dev/null 2>&1 || rc=$?
  t1=$(date +%s.%N)
  [ "$rc" = 124 ] && { echo ">$limit"; return; }
  [ "$rc" != 0 ] && { echo "-"; return; }
  awk -v a="$t0" -v b="$t1" 'BEGIN{printf "%.4f", b - a}'
}
best_of() {
  local t best k
  best=$(once "$1")
  case $best in -* | ">"*) echo "$best"; return ;; esac
  if awk -v t="$best" -v s="$slow" 'BEGIN{exit !(t > s)}'; then echo "$best"; return; fi
  for ((k = 0; k < runs; ++k)); do
    t=$(once "$1")
    best=$(awk -v a="$best" -v b="$t" 'BEGIN{printf "%.4f", (b != "" && b + 0 < a + 0) ? b : a}')
  done
  echo "$best"
}

# Plain read-and-write of each tool, subtracted from its operation times.
declare -A base vbase
vbase[vips]="vips copy $in $out.ppm"
vbase[vpng]="vips pngsave $in $out.png --compression 0"
base[im]=$(best_of "$im $in $out.ppm")
base[gm]=$(best_of "$gm $in $out.ppm")
base[vips]=$(best_of "${vbase[vips]}")
base[vpng]=$(best_of "${vbase[vpng]}")
peer_cost() {  # base-name command: the operation's own cost, or "-"
  [ -z "$2" ] && { echo "-"; return; }
  local t
  t=$(best_of "$2")
  case $t in
    -*) echo "-"; return ;;
    ">"*) awk -v t="${t#>}" -v b="${base[$1]}" 'BEGIN{printf ">%.1f", t - b}'; return ;;
  esac
  awk -v t="$t" -v b="${base[$1]}" 'BEGIN{d=t-b; if(d<0)d=0; printf "%.4f", d}'
}

# Our times, all in one process (the picture is loaded once).
declare -A mine
ourclock=()
[ "$clock" = cpu ] && ourclock=(--cpu)
while read -r name t; do mine[$name]=$t; done < <("$ours" "${ourclock[@]}" --repeat "$runs" "$in" all 2>/dev/null)
floor=${mine[copy]}

printf 'Picture: %s (4000x3000 RGB), best of %s runs, single-threaded, %s time.\n' "$in" "$runs" "$clock"
printf 'Peer read+write (first measure; each row re-measures its own): ImageMagick %s s, GraphicsMagick %s s, vips %s s (ppm), %s s (png)\n' \
  "${base[im]}" "${base[gm]}" "${base[vips]}" "${base[vpng]}"
printf 'Floor: new picture + memcpy %s s; memcpy into a mapped buffer %s s\n\n' \
  "$floor" "${mine[memcpy-warm]}"
printf '%-20s %9s %9s %9s %9s %-6s %8s %8s  %s\n' operation "ours(s)" "IM(s)" "GM(s)" \
  "vips(s)" best peer/us us/copy target

row() {  # label our-name im-args gm-args vips-command [vips-base]
  local label=$1 o=${mine[$2]} i g v
  # The machine's load drifts: each row subtracts read-and-write times
  # measured next to it.
  [ -n "$3" ] && base[im]=$(best_of "$im $in $out.ppm")
  [ -n "$4" ] && base[gm]=$(best_of "$gm $in $out.ppm")
  [ -n "$5" ] && base[${6:-vips}]=$(best_of "${vbase[${6:-vips}]}")
  i=$(peer_cost im "${3:+$im $in $3 $out.ppm}")
  g=$(peer_cost gm "${4:+$gm $in $4 $out.ppm}")
  v=$(peer_cost "${6:-vips}" "$5")
  awk -v l="$label" -v o="$o" -v i="$i" -v g="$g" -v v="$v" -v f="$floor" 'BEGIN{
    # ">x": the peer was stopped after x seconds, its cost is at least x
    # (less its read and write): the ratio is then a lower bound.
    best = ""; bt = 1e9; lower = 0
    n = split(i " " g " " v, c, " "); split("IM GM vips", who, " ")
    for (k = 1; k <= 3; ++k) {
      if (c[k] == "-") continue
      x = c[k]; gt = sub(/^>/, "", x)
      if (x + 0 < bt) { bt = x + 0; best = who[k]; lower = gt }
    }
    r = (o > 0) ? bt / o : 0
    ok = (r >= 3) ? "yes" : (o <= 3 * f ? "yes(copy)" : "NO")
    rs = sprintf(lower ? ">%.2f" : "%.2f", r)
    printf "%-20s %9.4f %9s %9s %9s %-6s %8s %8.1f  %s\n", l, o, i, g, v, best, rs, o / f, ok
  }'
}

# Grey: ours to 256 grey levels. Peers: to a grey colourspace.
row grey grey "-colorspace gray" "-colorspace gray" "vips colourspace $in $out.ppm b-w"
# Floyd-Steinberg to binary. IM: FS dither to black and white. GM: -monochrome
# (its own dither to two colours). vips has no error diffusion to two levels.
row "fs-binary" fs-binary "-dither FloydSteinberg -monochrome" "-monochrome" ""
# 256 colours, adaptive, no dither. IM/GM: -colors 256 without dither. vips:
# PNG save quantised to a 256-entry palette without dither, less a plain
# uncompressed PNG save.
row "colours256-adapt" colours256-adaptive "+dither -colors 256" "+dither -colors 256" \
  "vips pngsave $in $out.png --compression 0 --palette --dither 0" vpng
# 256 colours, dithered. Ours: ordered dither onto the 8x8x4 cube. IM: the
# same, ordered 8x8 dither to 8, 8 and 4 levels. GM has no ordered dither to a
# cube: -colors 256 with its dither. vips: palette PNG with dither.
row "colours256-dither" colours256-dither "-ordered-dither o8x8,8,8,4" "-dither -colors 256" \
  "vips pngsave $in $out.png --compression 0 --palette --dither 1" vpng
# Equalize: -equalize / vips hist_equal.
row equalize equalize "-equalize" "-equalize" "vips hist_equal $in $out.ppm"
# Normalize: -normalize / vips hist_norm.
row normalize normalize "-normalize" "-normalize" "vips hist_norm $in $out.ppm"
# Gamma 1.5: -gamma 1.5 / vips gamma --exponent 1.5.
row gamma gamma "-gamma 1.5" "-gamma 1.5" "vips gamma $in $out.ppm --exponent 1.5"
# Negate: -negate / vips invert.
row negate negate "-negate" "-negate" "vips invert $in $out.ppm"
# 3x3 sharpen. Ours: the Sharpen filter at strength 50 (one 3x3 pass) and the
# plain 3x3 sharpening kernel 0 -1 0 / -1 5 -1 / 0 -1 0. Peers: that same
# kernel with -convolve / vips conv (integer).
row "sharpen3 (filter)" sharpen3 "-convolve 0,-1,0,-1,5,-1,0,-1,0" \
  "-convolve 0,-1,0,-1,5,-1,0,-1,0" "vips conv $in $out.ppm $work/sharpen.mat --precision integer"
row "sharpen3 (kernel)" focus3 "-convolve 0,-1,0,-1,5,-1,0,-1,0" \
  "-convolve 0,-1,0,-1,5,-1,0,-1,0" "vips conv $in $out.ppm $work/sharpen.mat --precision integer"
# Gaussian 5: ours is a 5x5 window whose weights fall to 1/255 at distance 5
# (sigma 1.5). IM/GM: radius 2, sigma 1.5. vips: sigma 1.5 cut at 1/255.
row gauss5 gauss5 "-gaussian-blur 2x1.5" "-gaussian 2x1.5" \
  "vips gaussblur $in $out.ppm 1.5 --min-ampl 0.0039"
# Medians of 3x3 and 5x5: -statistic median / gm -median radius / vips rank
# (window w x h, the middle of the w*h sorted values).
row median3 median3 "-statistic median 3x3" "-median 1" "vips rank $in $out.ppm 3 3 4"
row median5 median5 "-statistic median 5x5" "-median 2" "vips rank $in $out.ppm 5 5 12"
# Oil painting radius 3 (7x7 window): -paint 3. vips has none.
row oil3 oil3 "-paint 3" "-paint 3" ""
# Quarter turn clockwise: -rotate 90 / vips rot d90.
row turn90 turn90 "-rotate 90" "-rotate 90" "vips rot $in $out.ppm d90"
# Flip left-right: -flop / vips flip horizontal.
row flip flip "-flop" "-flop" "vips flip $in $out.ppm horizontal"
# Half size. Ours: area averaging (2x2 means). Nearest: IM/GM -scale 50%
# (box averaging), vips shrink 2 2 (box averaging).
row half half "-scale 50%" "-scale 50%" "vips shrink $in $out.ppm 2 2"

printf '\n(ratio peer/us: how many times faster we are than the fastest peer; us/copy: ours\n'
printf ' over the copy floor. The machine is shared: times vary from run to run.)\n'
