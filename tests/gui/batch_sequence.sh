#!/usr/bin/env bash
# "Sequence Convert" by keyboard and mouse: Ctrl+N opens it; "Go" refuses
# without an input and then without an output name template; img###.png from
# 1 to 5 by 2 becomes out001.bmp, out003.bmp, out005.bmp (checked with
# ImageMagick) and "Save Batch..." writes the sequence words. A slow
# sequence (oil painting, its radius set in the parameter editor) stopped
# after its first file leaves only whole files behind.
. "$(dirname "$0")/lib.sh" "$1"

mkdir -p "$WORK/seq" "$WORK/seqout" "$WORK/slow" "$WORK/slowout"
for n in 1 2 3 4 5; do
  $IM -size 30x20 xc:"rgb($((n * 40)),20,200)" -depth 8 "$WORK/seq/img00$n.png"
done
$IM -size 500x400 plasma:fractal -seed 5 -depth 8 "$WORK/slow/s1.png"
for n in 2 3 4 5 6; do cp "$WORK/slow/s1.png" "$WORK/slow/s$n.png"; done

start "$WORK/seq/img001.png"
view_windows

widget() { grep "^TEST batch widget $1 " "$OUT" | tail -1 | cut -d' ' -f5; }
ops_widget() { grep "^TEST advancedOps widget $1 " "$OUT" | tail -1 | cut -d' ' -f5; }
click() { xdotool mousemove --window "$1" 6 6 click 1; }
# fill FIELD TEXT: clicks a text field, empties it and types TEXT.
fill() {
  click "$(widget "$1")"
  xdotool windowfocus --sync "$D" key End key --repeat 12 BackSpace
  xdotool windowfocus --sync "$D" type --delay 5 "$2"
}
press() { xdotool windowfocus --sync "$D" key --delay 20 "$@"; }
# choose COMBO SHORTNAME: Tab has put the focus in the combo box; Up, then
# Down, until the format is chosen.
choose() {
  local key i n
  for key in Up Down; do
    for i in $(seq 60); do
      last_test batch | grep -q "^format $1 [0-9]* $2\$" && return 0
      n=$(grep -c '^TEST batch format ' "$OUT")
      press $key
      sleep 0.05
      [ "$(grep -c '^TEST batch format ' "$OUT")" -gt "$n" ] || break
    done
  done
  fail "$2 not chosen in $1"
}
# refused TEXT: Return in a text field presses "Go"; the message comes up.
refused() {
  local n
  n=$(grep -c '^TEST message ' "$OUT")
  press Return
  wait_count "$OUT" '^TEST message ' $((n + 1))
  expect "message" "$(last_test message)" "$1"
  grep -q '^TEST batch start' "$OUT" && fail "started without $1"
  close_message
}
# close_message: Return closes the error message on the screen.
close_message() {
  local m i
  m=$(xdotool search --onlyvisible --name '^Error$' | head -1)
  [ -n "$m" ] || fail "no message window"
  xdotool windowfocus --sync "$m" key Return
  for i in $(seq 100); do
    xdotool search --onlyvisible --name '^Error$' >/dev/null || return 0
    sleep 0.02
  done
  fail "message still shown"
}
open_dialog() {
  local n
  n=$(grep -c '^TEST batch dialog sequence 0x' "$OUT")
  keys ctrl+n
  wait_count "$OUT" '^TEST batch dialog sequence 0x' $((n + 1))
  D=$(grep '^TEST batch dialog sequence 0x' "$OUT" | tail -1 | cut -d' ' -f5)
}

open_dialog
xdotool search --onlyvisible --name '^Sequence Convert$' >/dev/null || fail "dialog title"
for name in fncvInputDir fncvInputFile fncvInputList fncvInputStart fncvInputEnd fncvInputStep \
  fncvOutputDir fncvOutputFile fncvOutputList fncvDelete fncvError fncvOp fncvOptions \
  fncvSaveBatch buttonGo buttonCancel; do
  [ -n "$(widget $name)" ] || fail "no $name"
done
shot sequence-empty "$D"

click "$(widget fncvInputDir)"
refused "The input filename is missing !!"
fill fncvInputFile 'img###.png'
refused "The output filename is missing !!"

fill fncvInputDir "$WORK/seq"
press Tab Tab
choose fncvInputList png
fill fncvInputStart 1
fill fncvInputEnd 5
fill fncvInputStep 2
fill fncvOutputDir "$WORK/seqout"
fill fncvOutputFile 'out###.bmp'
press Tab
choose fncvOutputList bmp

click "$(widget fncvSaveBatch)"
wait_for "$OUT" '^TEST fileselector 0x'
S=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
xdotool windowfocus --sync "$S" type --delay 5 "$WORK/seq.txt"
xdotool windowfocus --sync "$S" key Return
wait_for "$OUT" "^TEST batch script $WORK/seq.txt\$"
shot sequence-filled "$D"
expect "script" "$(cat "$WORK/seq.txt")" \
  "pixbatch -npcd 3 -size 0x0+0 -ctype rgb -corder inter -out bmp -o $WORK/seqout -in png -n 1 5 2 -outname out###.bmp $WORK/seq/img###.png "

# Return in the output name starts the conversion.
click "$(widget fncvOutputFile)"
press Return
wait_for "$OUT" '^TEST batch start 3 Sequence Converting\.\.\.$'
wait_for "$OUT" '^TEST batch done converted 3 of 3$'
for n in 1 3 5; do
  expect "out00$n.bmp" "$(identify -format '%m %wx%h' "$WORK/seqout/out00$n.bmp")" "BMP3 30x20"
  expect "out00$n.bmp pixel" "$(pixel "$WORK/seqout/out00$n.bmp" 4 4)" "srgb($((n * 40)),20,200)"
done
[ ! -e "$WORK/seqout/out002.bmp" ] && [ ! -e "$WORK/seqout/out004.bmp" ] || fail "a number off the step"

# The slow sequence, s#.png 1 to 6, each painted in oil with radius 3.
open_dialog
fill fncvInputDir "$WORK/slow"
fill fncvInputFile 's#.png'
fill fncvInputStart 1
fill fncvInputEnd 6
fill fncvOutputDir "$WORK/slowout"
fill fncvOutputFile 'r#.png'
click "$(widget fncvOp)"
wait_for "$OUT" '^TEST advancedOps 0x'
E=$(grep '^TEST advancedOps 0x' "$OUT" | tail -1 | cut -d' ' -f3)
# pick WORD: from the top of the vocabulary, Down until WORD is selected.
pick() {
  click "$(ops_widget listVocabulary)"
  for i in $(seq 60); do
    [ "$(last_test advancedOps)" = "pick $1" ] && return 0
    xdotool windowfocus --sync "$E" key Down
    sleep 0.03
  done
  fail "could not pick $1"
}
# -colors has no processing dialog: its words are typed, out of range first
# (refused with a message, the editor stays), then right.
pick -colors
click "$(ops_widget buttonAdd)"
wait_for "$OUT" '^TEST advancedOps list 1 \[-colors [^]]*\]$'
click "$(ops_widget buttonEdit)"
wait_for "$OUT" '^TEST advancedOps params 0x[0-9a-f]+ -colors$'
P=$(grep '^TEST advancedOps params 0x' "$OUT" | tail -1 | cut -d' ' -f4)
shot parameters "$P"
xdotool windowfocus --sync "$P" key End key --repeat 20 BackSpace
xdotool windowfocus --sync "$P" type '500 dither'
xdotool windowfocus --sync "$P" key Return
wait_for "$OUT" '^TEST message -colors: .*"500"$'
close_message
xdotool windowfocus --sync "$P" key End key --repeat 20 BackSpace
xdotool windowfocus --sync "$P" type '16 dither'
xdotool windowfocus --sync "$P" key Return
wait_for "$OUT" '^TEST advancedOps params ok$'
wait_for "$OUT" '^TEST advancedOps list 1 \[-colors 16 dither\]$'
# -oil through the Oil Painting dialog: two steps up from where it starts.
pick -oil
click "$(ops_widget buttonAdd)"
wait_for "$OUT" '^TEST advancedOps list 2 '
click "$(ops_widget buttonEdit)"
wait_for "$OUT" '^TEST dialog VmoraOilPaint 0x'
Q=$(grep '^TEST dialog VmoraOilPaint 0x' "$OUT" | tail -1 | cut -d' ' -f4)
shot oil-dialog "$Q"
xdotool windowfocus --sync "$Q" key --delay 30 Right Right Return
wait_for "$OUT" '^TEST dialog VmoraOilPaint ok [0-9]+$'
R=$(grep '^TEST dialog VmoraOilPaint ok' "$OUT" | tail -1 | cut -d' ' -f5)
wait_for "$OUT" "^TEST advancedOps list 2 \\[-colors 16 dither\\] \\[-oil $R\\]\$"
# Move Up, Move Down, then the first row (-colors) removed: only the oil
# painting is left.
click "$(ops_widget buttonUp)"
wait_for "$OUT" "^TEST advancedOps list 2 \\[-oil $R\\] \\[-colors 16 dither\\]\$"
click "$(ops_widget scrolledList)"
click "$(ops_widget buttonDown)"
wait_for "$OUT" "^TEST advancedOps list 2 \\[-colors 16 dither\\] \\[-oil $R\\]\$"
click "$(ops_widget scrolledList)"
click "$(ops_widget buttonRemove)"
wait_for "$OUT" "^TEST advancedOps list 1 \\[-oil $R\\]\$"
click "$(ops_widget buttonOK)"
wait_for "$OUT" '^TEST advancedOps ok 1$'

click "$(widget buttonGo)"
wait_for "$OUT" '^TEST batch start 6 '
wait_for "$OUT" '^TEST progress 0x'
G=$(last_test progress | cut -d' ' -f1)
wait_for "$OUT" '^TEST batch file 0 '
xdotool windowfocus --sync "$G" key Escape
wait_for "$OUT" '^TEST progress stop$'
wait_for "$OUT" '^TEST batch done converted [0-9] of 6 stopped$' 30
done=$(last_test batch | cut -d' ' -f3)
[ "$done" -ge 1 ] && [ "$done" -lt 6 ] || fail "$done files converted before the stop"
expect "files written" "$(ls "$WORK/slowout" | wc -l)" "$done"
for f in "$WORK"/slowout/*; do
  expect "$(basename "$f")" "$(identify -format '%m %wx%h' "$f")" "PNG 500x400"
done
# The stop came between files: the results are r1.png .. r<done>.png.
expect "names" "$(ls "$WORK/slowout" | tr '\n' ' ')" "$(seq -f 'r%g.png' 1 "$done" | tr '\n' ' ')"
exit 0
