#!/usr/bin/env bash
# Bubble help on a tool-bar button; a long load shows the "VmoraProgress"
# dialog and stops on Escape and on "Stop" without a message; a load error
# still shows its message; the window stays usable throughout.
. "$(dirname "$0")/lib.sh" "$1"

# A large picture whose reader reports progress row by row, so that the load
# is still running when the test answers the dialog.
$IM -size 16x16 xc:red "PNG24:$WORK/small.png"
ppmmake red 5000 4000 | pnmtopng >"$WORK/big.png"
cp "$WORK/big.png" "$WORK/big2.png"
echo "not a picture" >"$WORK/bad.png"
start "$WORK/small.png" "$WORK/big.png" "$WORK/big2.png" "$WORK/bad.png"
view_windows
info() { wait_count "$OUT" '^TEST info ' "$1"; last_test info; }
expect "first picture" "$(info 1)" "Width: 16  Height: 16  Depth: 24  (True Colors) / Percentage 100%"
# Even the first load, before any window exists, went through the dialog.
expect "first load" "$(grep -c "^TEST load $WORK/small.png 0\$" "$OUT")" 1
expect "dialog shown" "$(grep -c '^TEST progress 0x' "$OUT")" 1
expect "dialog closed" "$(grep -c '^TEST progress closed$' "$OUT")" 1

# Bubble help: the ninth button of the tool bar is "zoom+".
BAR=$(last_test toolbar)
BUTTON=$(xwininfo -children -id "$BAR" | awk '/^ +0x/ {print $1}' | sed -n 9p)
[ -n "$BUTTON" ] || fail "no ninth tool-bar button"
# It shows only after the pointer has rested 600 ms.
before=$(date +%s%N)
xdotool mousemove --window "$BUTTON" 6 6
wait_for "$OUT" '^TEST bubble 0x[0-9a-f]+ Zoom in$'
waited=$(( ($(date +%s%N) - before) / 1000000 ))
[ "$waited" -ge 600 ] || fail "the bubble came after $waited ms"
BUBBLE=$(last_test bubble | cut -d' ' -f1)
xwininfo -id "$BUBBLE" | grep -q 'IsViewable' || fail "the bubble is not shown"
shot bubble "$BUBBLE"
xdotool mousemove --window "$AREA" 100 100
wait_for "$OUT" '^TEST bubble hidden$'
# Pressing the button hides it as well (and runs the button's command).
xdotool mousemove --window "$BUTTON" 8 8
wait_count "$OUT" '^TEST bubble 0x' 2
xdotool click 1
wait_count "$OUT" '^TEST bubble hidden$' 2
wait_for "$OUT" '^TEST command zoom\+$'
expect "zoom by the button" "$(info 2 | sed 's/.*Percentage //')" "200%"
xdotool mousemove --window "$AREA" 100 100

# stop_load KEY HOW: a load started by KEY is stopped with Escape ("escape")
# or by clicking "Stop" ("click"). The program is held still (SIGSTOP, sent by
# a watcher the moment the dialog's line appears) while the answer is given,
# so the load cannot end first; the answer waits in its event queue until the
# next progress call handles it.
stop_load() {
  local n line dialog button size
  n=$(grep -c '^TEST progress 0x' "$OUT")
  size=$(stat -c %s "$OUT")
  (tail --pid="$PID" -c +$((size + 1)) -f "$OUT" | grep -m1 -q '^TEST progress 0x' &&
    kill -STOP "$PID") >/dev/null 2>&1 &
  keys "$1"
  wait_count "$OUT" '^TEST progress 0x' $((n + 1))
  wait $!
  line=$(grep '^TEST progress 0x' "$OUT" | tail -1)
  dialog=$(echo "$line" | cut -d' ' -f3)
  button=$(echo "$line" | cut -d' ' -f5)
  [ "$(xdotool search --onlyvisible --classname VmoraProgress | grep -c .)" -ge 1 ] ||
    { kill -CONT "$PID"; fail "no VmoraProgress window"; }
  xwininfo -id "$dialog" | grep -q 'IsViewable' || { kill -CONT "$PID"; fail "dialog not shown"; }
  if [ "$2" = escape ]; then
    shot progress "$dialog"
    xdotool windowfocus --sync "$dialog" key Escape
  else
    xdotool mousemove --window "$button" 5 5 click 1
  fi
  kill -CONT "$PID"
}

stop_load Next escape
wait_for "$OUT" "^TEST load $WORK/big.png 15\$"
wait_for "$OUT" '^TEST progress closed$'
grep -q '^TEST progress stop$' "$OUT" || fail "Escape did not ask to stop"
# The window still shows the small picture and answers keys.
keys minus
expect "zoom after a stopped load" "$(info 3)" \
  "Width: 16  Height: 16  Depth: 24  (True Colors) / Percentage 100%"

stop_load Next click
wait_for "$OUT" "^TEST load $WORK/big2.png 15\$"
expect "stop requests" "$(grep -c '^TEST progress stop$' "$OUT")" 2
grep -q '^TEST message' "$OUT" && fail "a stopped load showed a message"

# A file the library does not know: its message, over the view.
keys Next
wait_for "$OUT" "^TEST load $WORK/bad.png 2\$"
wait_for "$OUT" "^TEST message Don't know how to read \$"
wait_for "$OUT" "^<$WORK/bad.png>\$"
for i in $(seq 100); do
  E=$(xdotool search --onlyvisible --name '^Error$' | head -1)
  [ -n "$E" ] && break
  sleep 0.02
done
[ -n "$E" ] || fail "no error dialog"
shot error "$E"
xdotool windowfocus --sync "$E" key Return
keys minus
expect "zoom after the error" "$(info 4 | sed 's/.*Percentage //')" "50%"
# Closing the window while a bubble is shown takes the bubble along; the
# last window closed ends the program.
xdotool mousemove --window "$BUTTON" 7 7
wait_count "$OUT" '^TEST bubble 0x' 3
keys Escape
wait_exit
expect "exit status" "$STATUS" 0
grep -q 'Warning' "$ERR" && fail "toolkit warnings on stderr"
exit 0
