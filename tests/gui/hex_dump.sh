#!/usr/bin/env bash
# The hexadecimal dump: a file the library does not recognise opens in the
# dump dialog (OpenHexaViewIfNotPicture); Ctrl+H in a view dumps the file
# chosen in "View Files..." (the shown file to begin with); scrolling down
# by one line moves the drawn text up by one line step.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2

dump_line() { grep '^TEST dump 0x' "$OUT" | tail -1 | cut -d' ' -f3-; }

# Two lines of text: not a picture, so it is dumped.
printf 'Vimora dump test, line one.\n' >"$WORK/notes.txt"
start "$WORK/notes.txt"
wait_for "$OUT" '^TEST dump 0x'
wait_for "$OUT" '^TEST dump drawn'
read -r SHELL_W AREA_W LINES STEP CHAR <<<"$(dump_line)"
expect "lines of a 28-byte file" "$LINES" 2
expect "title" "$(xprop -id "$SHELL_W" WM_NAME | cut -d'"' -f2)" "Dump: $WORK/notes.txt"
shot text "$SHELL_W"
capture "$AREA_W" "$WORK/text.png"
# Text in the first two line bands, nothing below them.
[ "$(colours "$WORK/text.png" 560x30+0+0)" -gt 1 ] || fail "no text drawn"
expect "empty below the text" "$(colours "$WORK/text.png" 560x200+0+40)" 1
xdotool windowfocus --sync "$SHELL_W" key Return  # "O.K."
wait_for "$OUT" '^TEST start window'
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# From a view: Ctrl+H, Return takes the shown file.
start "$SAMPLES/wheel.png"
view_windows
keys ctrl+h
wait_for "$OUT" '^TEST fileselector 0x[0-9a-f]+ View Files\.\.\.$'
D=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
xdotool windowfocus --sync "$D" key Return
wait_for "$OUT" '^TEST dump 0x'
wait_for "$OUT" '^TEST dump drawn'
read -r SHELL_W AREA_W LINES STEP CHAR <<<"$(dump_line)"
size=$(stat -c %s "$SAMPLES/wheel.png")
expect "lines of wheel.png" "$LINES" $(( (size + 15) / 16 ))
shot picture "$SHELL_W"
sleep 0.2
capture "$AREA_W" "$WORK/before.png"
# The down arrow of the vertical scroll bar, right of the drawing area.
read -r ax ay aw ah < <(xwininfo -id "$AREA_W" | awk '/Absolute upper-left X/ {x=$4} /Absolute upper-left Y/ {y=$4} /Width:/ {w=$2} /Height:/ {h=$2} END {print x, y, w, h}')
xdotool mousemove $((ax + aw + 9)) $((ay + ah - 8)) click 1
wait_for "$OUT" '^TEST dump top 1$'
sleep 0.2
capture "$AREA_W" "$WORK/after.png"
$IM "$WORK/after.png" -crop "${aw}x$((ah - 2 * STEP))+0+0" +repage "$WORK/a.png"
$IM "$WORK/before.png" -crop "${aw}x$((ah - 2 * STEP))+0+${STEP}" +repage "$WORK/b.png"
expect "text moved up one line" "$(differing "$WORK/a.png" "$WORK/b.png")" 0

# Narrower than a line: the horizontal bar moves the text by whole
# characters (its right arrow sits below the drawing area's right end).
xdotool windowsize "$SHELL_W" 400 300
sleep 0.3
read -r ax ay aw ah < <(xwininfo -id "$AREA_W" | awk '/Absolute upper-left X/ {x=$4} /Absolute upper-left Y/ {y=$4} /Width:/ {w=$2} /Height:/ {h=$2} END {print x, y, w, h}')
capture "$AREA_W" "$WORK/before.png"
xdotool mousemove $((ax + aw - 8)) $((ay + ah + 9)) click 1
wait_for "$OUT" '^TEST dump left 1$'
sleep 0.2
capture "$AREA_W" "$WORK/after.png"
$IM "$WORK/after.png" -crop "$((aw - 2 * CHAR))x${ah}+0+0" +repage "$WORK/a.png"
$IM "$WORK/before.png" -crop "$((aw - 2 * CHAR))x${ah}+${CHAR}+0" +repage "$WORK/b.png"
expect "text moved left one character" "$(differing "$WORK/a.png" "$WORK/b.png")" 0
echo PASS
