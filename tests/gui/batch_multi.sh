#!/usr/bin/env bash
# "Multi Convert" driven by mouse and keyboard: Ctrl+U opens it, "Add
# Folder..." fills the list, two advanced operations are chosen in their
# editor, "Save Batch..." writes the script and "Go" converts three pictures
# to BMP (checked with ImageMagick). The script run by pixbatch into another
# directory gives the same bytes. Then "Delete Original": removed after a
# conversion to another path, kept when the result replaced it in place or
# when the save failed.
. "$(dirname "$0")/lib.sh" "$1"
PIXBATCH=$2

mkdir -p "$WORK/in" "$WORK/out1" "$WORK/out2" "$WORK/del"
$IM -size 40x30 gradient:red-blue -depth 8 "$WORK/in/a.png"
$IM -size 24x18 plasma:fractal -seed 3 -depth 8 "$WORK/in/b.png"
$IM -size 33x17 xc:white -fill green -draw 'rectangle 0,0 10,16' "$WORK/in/c.png"

# Load settings that every word of the script's head depends on.
printf '%s\n' 'LoadPcdBase = 2' 'LoadGrobBpp = 3' 'LoadWidth = 64' 'LoadHeight = 32' \
  'LoadOffset = 8' 'LoadChannelOrder = 1' 'LoadChannelType = 2' >"$HOME/.vimorarc"

start "$WORK/in/a.png"
view_windows

# widget NAME: the window of a control of the last batch dialog.
widget() { grep "^TEST batch widget $1 " "$OUT" | tail -1 | cut -d' ' -f5; }
ops_widget() { grep "^TEST advancedOps widget $1 " "$OUT" | tail -1 | cut -d' ' -f5; }
click() { xdotool mousemove --window "$1" 6 6 click 1; }
# selector_answer TEXT: types TEXT into the file selector that opens next.
selector_answer() {
  local n=$1 D
  wait_count "$OUT" '^TEST fileselector 0x' "$n"
  D=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
  xdotool windowfocus --sync "$D" type --delay 5 "$2"
  xdotool windowfocus --sync "$D" key Return
}

keys ctrl+u
wait_for "$OUT" '^TEST batch dialog multi 0x'
D=$(grep '^TEST batch dialog multi 0x' "$OUT" | tail -1 | cut -d' ' -f5)
xdotool search --onlyvisible --name '^Multi Convert$' >/dev/null || fail "dialog title"
shot multi-empty "$D"

# Every named control is there.
for name in fncvInputFilename buttonAdd buttonAddFolder buttonRemove buttonRemoveAll \
  fncvOutputDir fncvOutputList fncvDelete fncvError fncvOp fncvOptions fncvSaveBatch buttonGo \
  buttonCancel; do
  [ -n "$(widget $name)" ] || fail "no $name"
done

# "Add Folder..." adds the three pictures.
click "$(widget buttonAddFolder)"
selector_answer 1 "$WORK/in"
wait_for "$OUT" '^TEST batch inputs 3$'

click "$(widget fncvOutputDir)"
xdotool windowfocus --sync "$D" type --delay 5 "$WORK/out1"

# The output format: Tab to the combo box, Up or Down until BMP is chosen.
xdotool windowfocus --sync "$D" key Tab
for key in Up Down; do
  for i in $(seq 60); do
    last_test batch | grep -q '^format fncvOutputList [0-9]* bmp$' && break 2
    n=$(grep -c '^TEST batch format ' "$OUT")
    xdotool windowfocus --sync "$D" key $key
    sleep 0.05
    [ "$(grep -c '^TEST batch format ' "$OUT")" -gt "$n" ] || break
  done
done
last_test batch | grep -q '^format fncvOutputList [0-9]* bmp$' || fail "bmp not chosen"

# The operations editor: -xflip then -negate from the vocabulary.
click "$(widget fncvOp)"
wait_for "$OUT" '^TEST advancedOps 0x'
E=$(grep '^TEST advancedOps 0x' "$OUT" | tail -1 | cut -d' ' -f3)
xdotool search --onlyvisible --name '^Advanced Operations$' >/dev/null || fail "editor title"
# pick WORD: from the top of the vocabulary, Down until WORD is selected.
pick() {
  click "$(ops_widget listVocabulary)"
  for i in $(seq 60); do
    [ "$(last_test advancedOps | cut -d' ' -f1-2)" = "pick $1" ] && return 0
    xdotool windowfocus --sync "$E" key Down
    sleep 0.03
  done
  fail "could not pick $1"
}
pick -xflip
click "$(ops_widget buttonAdd)"
pick -negate
click "$(ops_widget buttonAdd)"
wait_for "$OUT" '^TEST advancedOps list 2 \[-xflip\] \[-negate\]$'
shot operations "$E"
click "$(ops_widget buttonOK)"
wait_for "$OUT" '^TEST advancedOps ok 2$'

# "Save Batch..." writes the job as one line.
click "$(widget fncvSaveBatch)"
selector_answer 2 "$WORK/job.txt"
wait_for "$OUT" "^TEST batch script $WORK/job.txt\$"
shot multi-filled "$D"
expect "script" "$(cat "$WORK/job.txt")" \
  "pixbatch -npcd 2 -npcd 4 -size 64x32+8 -ctype bgr -corder seq -out bmp -o $WORK/out1 -xflip -negate $WORK/in/a.png $WORK/in/b.png $WORK/in/c.png "

# "Go": three BMP files, flipped and negated (ImageMagick's -flop -negate).
click "$(widget buttonGo)"
wait_for "$OUT" '^TEST batch done converted 3 of 3$'
wait_for "$OUT" '^TEST batch dialog closed$'
for f in a b c; do
  expect "$f format and size" "$(identify -format '%m %wx%h' "$WORK/out1/$f.bmp")" \
    "BMP3 $(identify -format '%wx%h' "$WORK/in/$f.png")"
  $IM "$WORK/in/$f.png" -flop -negate "$WORK/expect.png"
  expect "$f pixels" "$(compare -metric AE "$WORK/out1/$f.bmp" "$WORK/expect.png" null: 2>&1)" 0
done
expect "a pixel" "$(pixel "$WORK/out1/a.bmp" 0 0)" "srgb(0,255,255)"

# The script run by pixbatch into another directory writes the same bytes.
read -ra words <"$WORK/job.txt"
words=("${words[@]/#$WORK\/out1/$WORK/out2}")
(cd "$WORK" && "$PIXBATCH" "${words[@]:1}" >"$WORK/pixbatch.log" 2>&1) ||
  fail "pixbatch: $(cat "$WORK/pixbatch.log")"
for f in a b c; do cmp "$WORK/out1/$f.bmp" "$WORK/out2/$f.bmp" || fail "$f differs from pixbatch"; done

# "Delete Original", results beside the inputs in PNG: same.png is rewritten
# in place and kept; other.bmp becomes other.png and is removed; for
# blocked.bmp a directory stands where blocked.png would go, the save fails
# and the original stays.
$IM -size 20x10 xc:blue "$WORK/del/same.png"
$IM -size 20x10 xc:red "$WORK/del/other.bmp"
$IM -size 20x10 xc:yellow "$WORK/del/blocked.bmp"
mkdir "$WORK/del/blocked.png"
keys ctrl+u
wait_count "$OUT" '^TEST batch dialog multi 0x' 2
D=$(grep '^TEST batch dialog multi 0x' "$OUT" | tail -1 | cut -d' ' -f5)
click "$(widget buttonAddFolder)"
selector_answer 3 "$WORK/del"
wait_for "$OUT" '^TEST batch inputs 3$'
click "$(widget fncvDelete)"
click "$(widget buttonGo)"
wait_for "$OUT" '^TEST batch done converted 2 of 3$'
wait_for "$OUT" '^TEST message '
[ -f "$WORK/del/same.png" ] || fail "converted in place, yet removed"
[ -f "$WORK/del/blocked.bmp" ] || fail "removed although the save failed"
[ ! -e "$WORK/del/other.bmp" ] || fail "original kept after a conversion"
expect "other.png" "$(identify -format '%m %wx%h' "$WORK/del/other.png")" "PNG 20x10"
expect "other pixel" "$(pixel "$WORK/del/other.png" 3 3)" "srgb(255,0,0)"
grep -q "^TEST batch file 2 $WORK/del/same.png -> $WORK/del/same.png status 0 code 0 deleted 0\$" \
  "$OUT" || fail "same.png line"

# Escape closes a dialog and leaves nothing behind.
keys ctrl+u
wait_count "$OUT" '^TEST batch dialog multi 0x' 3
D=$(grep '^TEST batch dialog multi 0x' "$OUT" | tail -1 | cut -d' ' -f5)
xdotool windowfocus --sync "$D" key Escape
wait_count "$OUT" '^TEST batch dialog closed$' 3
[ -z "$(xdotool search --onlyvisible --name '^Multi Convert$')" ] || fail "dialog left open"
exit 0
