#!/usr/bin/env bash
# Slide shows started from slide files ("-slide"): stepping by keys and
# buttons with the path in the title, loop in both directions, random
# rounds, a timer show that closes after its last picture, and the picture
# drawn centred at its own size.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2
A=$SAMPLES/wheel.png B=$SAMPLES/rings.pgm C=$SAMPLES/mandelbrot.gif

sld() {  # sld NAME LINE... : a slide file of the header, the lines and A B C
  local f=$WORK/$1.sld; shift
  { echo "# Slide Show Sequence"; printf '%s\n' "$@"; printf '"%s"\n' "$A" "$B" "$C"; } >"$f"
  echo "$f"
}
title() { xprop -id "$SHOW" WM_NAME | sed 's/^WM_NAME(STRING) = "\(.*\)"$/\1/'; }
shown() {  # shown N: waits for the N-th picture line, prints its path
  wait_count "$OUT" '^TEST slide picture ' "$1"
  grep '^TEST slide picture ' "$OUT" | sed -n "${1}p" | cut -d' ' -f6-
}
slide_line() { grep "^TEST slide $1 " "$OUT" | tail -1 | cut -d' ' -f4-; }
press() { xdotool windowfocus --sync "$SHOW" key "$@"; }

# Keyboard show, no loop: Right, any key and button 3 go on, Left and
# button 1 go back; past the last picture the show stays where it is.
start -slide "$(sld keys "Loop = 0")"
wait_for "$OUT" '^TEST slide show '
SHOW=$(slide_line show | cut -d' ' -f1)
AREA=$(slide_line show | cut -d' ' -f2)
expect "first" "$(shown 1)" "$A"
wait_for "$OUT" '^TEST slide drawn '
expect "title" "$(title)" "$A"
shot first "$SHOW"
# wheel.png is drawn at its own size, centred in the window made for it.
read -r pw ph < <(identify -format '%w %h' "$A")
expect "drawn size" "$(slide_line drawn)" "$pw $ph"
press Right; expect "second" "$(shown 2)" "$B"
expect "title follows" "$(title)" "$B"
press space; expect "third" "$(shown 3)" "$C"
n=$(grep -c '^TEST slide picture ' "$OUT")
press Right; sleep 0.3
expect "nothing past the end" "$(grep -c '^TEST slide picture ' "$OUT")" "$n"
press Left; expect "back" "$(shown 4)" "$B"
xdotool mousemove --window "$AREA" 5 5 click 1; expect "button 1 goes back" "$(shown 5)" "$A"
xdotool mousemove --window "$AREA" 5 5 click 3; expect "button 3 goes on" "$(shown 6)" "$B"
press Escape
wait_for "$OUT" '^TEST slide closed'
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# Loop: back from the first picture shows the last, on from the last the
# first.
start -slide "$(sld loop "Loop = 1")"
wait_for "$OUT" '^TEST slide show '
SHOW=$(slide_line show | cut -d' ' -f1)
expect "first" "$(shown 1)" "$A"
press Left; expect "wraps back" "$(shown 2)" "$C"
press Right; expect "wraps on" "$(shown 3)" "$A"
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# Random order with loop: each round of three shows every file once.
start -slide "$(sld random "RandomOrder = 1" "Loop = 1")"
wait_for "$OUT" '^TEST slide show '
SHOW=$(slide_line show | cut -d' ' -f1)
shown 1 >/dev/null
for i in 1 2 3 4 5; do press Right; done
shown 6 >/dev/null
for round in "1,3" "4,6"; do
  expect "round $round" "$(grep '^TEST slide picture ' "$OUT" | sed -n "${round}p" | cut -d' ' -f6- | sort | tr '\n' ' ')" \
    "$(printf '%s\n' "$A" "$B" "$C" | sort | tr '\n' ' ')"
done
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# Full screen: fitting all pictures scales wheel.png (256x256) to the
# screen's height; fitting large ones only leaves it at its own size.
read -r sw sh < <(xwininfo -root | awk '/Width:/ {w=$2} /Height:/ {h=$2} END {print w, h}')
for case in "2 $sh $sh" "1 $pw $ph"; do
  set -- $case
  start -slide "$(sld full$1 "FullScreen = 1" "View = $1")"
  wait_for "$OUT" '^TEST slide drawn '
  expect "full screen, View = $1" "$(slide_line drawn)" "$2 $3"
  [ "$1" = 2 ] && shot fullscreen "$(slide_line show | cut -d' ' -f1)"
  kill "$PID"; wait "$PID" 2>/dev/null; PID=
done

# Timer show from a file: "Timer = 40" steps every 40 ms and closes after
# the last picture; the start window keeps the program running.
start -slide "$(sld timer "Timer = 40" "Loop = 0")"
wait_for "$OUT" '^TEST slide closed'
expect "three pictures" "$(grep -c '^TEST slide picture ' "$OUT")" 3
kill -0 "$PID" || fail "the program ended with the show"

# A file without the header starts nothing.
printf '"%s"\n' "$A" >"$WORK/bad.sld"
start -slide "$WORK/bad.sld"
wait_for "$OUT" '^TEST slide '
sleep 0.3
grep -q '^TEST slide show' "$OUT" && fail "a show started without the header"
echo PASS
