#!/usr/bin/env bash
# The tool bar's picture operations: rotate, flip and the conversions run
# with undo, and "to true colour" is off for a true-colour picture.
. "$(dirname "$0")/lib.sh" "$1"
$IM -size 20x40 gradient:black-white -rotate 90 -depth 8 "pgm:$WORK/grey.pgm"  # white left, black right
start "$WORK/grey.pgm"
view_windows
BAR=$(last_test toolbar)
button() { xwininfo -children -id "$BAR" | awk '/^ +0x/ {print $1}' | sed -n "$1p"; }
info() { wait_count "$OUT" '^TEST info ' "$1"; last_test info; }
press() {  # press N: clicks the N-th button (from 1) and waits for the new info line
  local n
  n=$(grep -c '^TEST info ' "$OUT")
  xdotool mousemove --window "$(button "$1")" 6 6 click 1
  wait_count "$OUT" '^TEST info ' $((n + 1))
}
expect "start" "$(info 1 | cut -d/ -f1)" "Width: 40  Height: 20  Depth: 8  (256 Grey Scale) "
press 20  # rotate right
expect "rotated" "$(last_test info | cut -d/ -f1)" "Width: 20  Height: 40  Depth: 8  (256 Grey Scale) "
press 13  # undo
expect "undone" "$(last_test info | cut -d/ -f1)" "Width: 40  Height: 20  Depth: 8  (256 Grey Scale) "
image_menu() {  # opens and closes the Image menu; prints the conversions offered
  local m
  m=$(grep -c '^TEST menu MenuImage$' "$OUT")
  keys F10 Right Down
  wait_count "$OUT" '^TEST menu MenuImage$' $((m + 1))
  last_test image
  xdotool key --delay 20 Escape
}
# (undo holds the rotated picture since the undo above)
expect "Image menu for a grey picture" "$(image_menu)" "undo 1 crop 0 conversions 32"
press 24  # to true colour
expect "true colour" "$(last_test info | cut -d/ -f1)" "Width: 40  Height: 20  Depth: 24  (True Colors) "
expect "Image menu for a true-colour picture" "$(image_menu)" "undo 1 crop 0 conversions 31"
# Info, Properties: what is known of the file and the picture.
keys F10 Left Down
wait_for "$OUT" '^TEST menu MenuInfo$'
xdotool key --delay 20 p
wait_for "$OUT" "^TEST message File: $WORK/grey.pgm\$"
expect "properties" "$(sed -n '/^TEST message File: /,/^Modified/p' "$OUT" | tail -n +2 | tr '\n' '|')" \
  "Format: PGM|File size: $(stat -c %s "$WORK/grey.pgm") bytes|Picture 1 of 1|Width: 40  Height: 20|Depth: 24 (True Colors)|Modified: Yes|"
shot properties "$(xdotool search --onlyvisible --name '^Properties$' | head -1)"
xdotool windowfocus --sync "$(xdotool search --onlyvisible --name '^Properties$' | head -1)" key Return
# Now the button is off: a click changes nothing.
n=$(grep -c '^TEST converted ' "$OUT")
xdotool mousemove --window "$(button 24)" 6 6 click 1
sleep 0.3
expect "no second conversion" "$(grep -c '^TEST converted ' "$OUT")" "$n"
layout=$(last_test layout); set -- $layout
ox=$7 oy=$8
sleep 0.2
capture "$AREA" "$WORK/before.png"
press 21  # flip: the left column goes right
sleep 0.2
capture "$AREA" "$WORK/flipped.png"
left=$(pixel "$WORK/before.png" "$ox" $((oy + 5)))
[ "$left" != "$(pixel "$WORK/before.png" $((ox + 39)) $((oy + 5)))" ] || fail "no gradient to flip"
expect "flipped right edge" "$(pixel "$WORK/flipped.png" $((ox + 39)) $((oy + 5)))" "$left"
echo PASS
