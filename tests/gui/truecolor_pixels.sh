#!/usr/bin/env bash
# On a TrueColor screen the picture's pixels appear exactly: at 100%, at 200%
# (each pixel repeated), and fitted into a 400x400 area (a 100x50 picture
# drawn 400x200, centred vertically, on the drawing area's background).
. "$(dirname "$0")/lib.sh" "$1"

$IM -seed 7 -size 60x40 xc:gray +noise Random "PNG24:$WORK/noise.png"
start "$WORK/noise.png"
view_windows
capture "$AREA" "$WORK/shot.png"
picture_in_area "$WORK/shot.png" "$WORK/shown.png"
expect "100% differing pixels" "$(differing "$WORK/shown.png" "$WORK/noise.png")" 0

redrawn keys plus
wait_for "$OUT" 'Percentage 200%$'
capture "$AREA" "$WORK/shot.png"
picture_in_area "$WORK/shot.png" "$WORK/shown.png"
$IM "$WORK/noise.png" -sample 200% "$WORK/expected.png"
expect "200% differing pixels" "$(differing "$WORK/shown.png" "$WORK/expected.png")" 0
kill "$PID"; wait "$PID" 2>/dev/null; PID=

$IM -seed 8 -size 100x50 xc:gray +noise Random "PNG24:$WORK/wide.png"
start "$WORK/wide.png"
view_windows
area_size 400 400
redrawn keys ctrl+w
wait_for "$OUT" '^TEST layout 400 400 scaled 400 200 origin 0 100$'
capture "$AREA" "$WORK/shot.png"
$IM "$WORK/shot.png" -crop 400x200+0+100 +repage "$WORK/shown.png"
$IM "$WORK/wide.png" -sample '400x200!' "$WORK/expected.png"
expect "fit differing pixels" "$(differing "$WORK/shown.png" "$WORK/expected.png")" 0
for band in 400x100+0+0 400x100+0+300; do
  expect "background band $band" "$($IM "$WORK/shot.png" -crop $band +repage -unique-colors \
    -format '%k %[pixel:p{0,0}]' info:)" "1 srgb(144,171,177)"
done
echo PASS
