#!/usr/bin/env bash
# On an 8-bit PseudoColor screen: one colour cube shared by two windows
# (allocated and announced once), mid grey dithered between neighbouring
# cube levels, and -own giving a private colormap that holds the picture's
# own palette exactly.
. "$(dirname "$0")/lib.sh" "$1"

$IM -size 64x64 xc:'rgb(128,128,128)' "PNG24:$WORK/grey.png"
start -all "$WORK/grey.png" "$WORK/grey.png"
wait_count "$OUT" '^TEST view ' 2
wait_count "$OUT" '^TEST paint ' 2
expect "cube lines" "$(grep -Ec '^Use [0-9]+x[0-9]+x[0-9]+ colormap $' "$ERR")" 1
view_windows
capture "$AREA" "$WORK/shot.png"
picture_in_area "$WORK/shot.png" "$WORK/shown.png"
n=$(colours "$WORK/shown.png")
[ "$n" -ge 2 ] && [ "$n" -le 8 ] || fail "mid grey shows $n colours"
mean=$($IM "$WORK/shown.png" -colorspace gray -format '%[fx:int(mean*255+0.5)]' info:)
[ "$mean" -ge 118 ] && [ "$mean" -le 138 ] || fail "dithered grey averages $mean"
# The pattern repeats every 8 pixels.
$IM "$WORK/shown.png" -crop 8x8+0+0 +repage "$WORK/tile.png"
$IM "$WORK/shown.png" -crop 8x8+16+24 +repage "$WORK/tile2.png"
expect "dither period" "$(differing "$WORK/tile.png" "$WORK/tile2.png")" 0
kill "$PID"; wait "$PID" 2>/dev/null; PID=

$IM -seed 3 -size 48x32 plasma: -colors 16 "$WORK/palette.gif"
$IM "$WORK/palette.gif" "PNG24:$WORK/palette.png"
start -own "$WORK/palette.gif"
view_windows
grep -Eq '^Use [0-9]+x[0-9]+x[0-9]+ colormap $' "$ERR" && fail "a cube was allocated with -own"
[ "$(xwininfo -id "$AREA" | awk '/Colormap:/ {print $2}')" != \
  "$(xwininfo -root | awk '/Colormap:/ {print $2}')" ] || fail "no private colormap"
capture "$AREA" "$WORK/shot.png"
picture_in_area "$WORK/shot.png" "$WORK/shown.png"
expect "own palette differing pixels" "$(differing "$WORK/shown.png" "$WORK/palette.png")" 0
echo PASS
