#!/usr/bin/env bash
# The information line, the zoom steps, scrolling by key (copy plus the
# uncovered strip), the selection text, and stepping through a file list
# with keys and mouse.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2

$IM -seed 5 -size 16x16 xc:gray +noise Random "PNG24:$WORK/small.png"
start "$WORK/small.png"
view_windows
info() { wait_count "$OUT" '^TEST info ' "$1"; last_test info; }
expect "first line" "$(info 1)" "Width: 16  Height: 16  Depth: 24  (True Colors) / Percentage 100%"
keys plus;  expect "zoom in" "$(info 2)" "Width: 16  Height: 16  Depth: 24  (True Colors) / Percentage 200%"
keys minus; expect "back" "$(info 3 | sed 's/.*Percentage //')" "100%"
keys minus; expect "zoom out" "$(info 4 | sed 's/.*Percentage //')" "50%"
keys plus;  expect "back again" "$(info 5 | sed 's/.*Percentage //')" "100%"
xdotool windowfocus --sync "$VIEW" key --delay 0 --repeat 17 plus
expect "seventeen zoom-ins" "$(info 22 | sed 's/.*Percentage //')" "1600%"
wait_for "$OUT" '^TEST layout [0-9]+ [0-9]+ scaled 256 256 '
sleep 0.2

# Down scrolls by the increment (10): the picture moves up 10 pixels.
layout=$(last_test layout)
set -- $layout
aw=$1 ah=$2 ox=$7
[ "$ah" -lt 256 ] || fail "the area is too high to scroll ($ah)"
capture "$AREA" "$WORK/before.png"
redrawn keys Down
wait_for "$OUT" '^TEST scrolled 0 10$'
capture "$AREA" "$WORK/after.png"
$IM "$WORK/after.png" -crop "256x$((ah - 10))+${ox}+0" +repage "$WORK/shown.png"
$IM "$WORK/before.png" -crop "256x$((ah - 10))+${ox}+10" +repage "$WORK/expected.png"
expect "copied part" "$(differing "$WORK/shown.png" "$WORK/expected.png")" 0
if [ "$(xwininfo -root | awk '/Depth:/ {print $2}')" = 24 ]; then
  # The uncovered strip too: the whole area against ImageMagick.
  $IM "$WORK/after.png" -crop "256x${ah}+${ox}+0" +repage "$WORK/shown.png"
  $IM "$WORK/small.png" -sample 1600% -crop "256x${ah}+0+10" +repage "$WORK/expected.png"
  expect "scrolled picture" "$(differing "$WORK/shown.png" "$WORK/expected.png")" 0
fi
redrawn keys Up
wait_for "$OUT" '^TEST scrolled 0 0$'

# A selection from picture pixel (2,1) to (6,5): 16 screen pixels a pixel.
xdotool mousemove --window "$AREA" $((ox + 32 + 8)) 24 mousedown 1 \
  mousemove --window "$AREA" $((ox + 96 + 8)) 88 mouseup 1
wait_for "$OUT" '^TEST selection 2 1 \(4x4\)$'

# Crop keeps the selection, undo swaps back; a modified picture asks before
# closing (the question's default button answers it).
keys ctrl+y
expect "cropped" "$(info 23 | sed 's/  Depth.*//')" "Width: 4  Height: 4"
keys ctrl+z
expect "undone" "$(info 24 | sed 's/  Depth.*//')" "Width: 16  Height: 16"
keys Escape
wait_for "$OUT" "^TEST question Do you want to save changes to \$"
wait_for "$OUT" "^  '$WORK/small.png' \?\$"
D=$(xdotool search --onlyvisible --name '^Question$' | head -1)
[ -n "$D" ] || fail "no question dialog"
xdotool windowfocus --sync "$D" key Return
wait_exit
expect "status after the question" "$STATUS" 0

# Kinds of pictures, and a list of two files: PageDown, Home, mouse button 3.
# A PGM of maximum value 255 is a grey picture of 256 levels.
$IM -size 40x30 gradient: -depth 8 "$WORK/ramp.pgm"
start "$SAMPLES/mandelbrot.gif" "$WORK/ramp.pgm"
view_windows
expect "colour-mapped" "$(info 1 | sed 's/ \/ .*//')" \
  "Width: $($IM "$SAMPLES/mandelbrot.gif" -format '%w  Height: %h' info:)  Depth: 8  ($(identify -verbose "$SAMPLES/mandelbrot.gif" | awk '/Colormap entries:/ {print $3}') Colors)"
keys Next
expect "next file" "$(info 2 | sed 's/ \/ .*//')" \
  "Width: 40  Height: 30  Depth: 8  (256 Grey Scale)"
keys Home
expect "first file" "$(info 3 | sed 's/  Depth.*//')" "$(info 1 | sed 's/  Depth.*//')"
xdotool mousemove --window "$AREA" 20 20 click 3
expect "button 3: next file" "$(info 4)" "$(info 2)"
echo PASS
