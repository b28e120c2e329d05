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
# through BUTTON TEXT: clicks a button of the dialog that opens a file
# selector and answers it with TEXT.
through() {
  local n S
  n=$(grep -c '^TEST fileselector 0x' "$OUT")
  click "$(widget "$1")"
  wait_count "$OUT" '^TEST fileselector 0x' $((n + 1))
  S=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
  # The name field may hold a name from before: replace it.
  xdotool windowfocus --sync "$S" key End shift+Home BackSpace
  xdotool windowfocus --sync "$S" type --delay 5 "$2"
  xdotool windowfocus --sync "$S" key Return
}
# open_dialog: Ctrl+U in the view; D is the new dialog's window.
open_dialog() {
  local n
  n=$(grep -c '^TEST batch dialog multi 0x' "$OUT")
  keys ctrl+u
  wait_count "$OUT" '^TEST batch dialog multi 0x' $((n + 1))
  D=$(grep '^TEST batch dialog multi 0x' "$OUT" | tail -1 | cut -d' ' -f5)
}
# choose SHORTNAME: Tab has put the focus in the format box; Up, then Down,
# until the format is chosen.
choose() {
  local key i n
  for key in Up Down; do
    for i in $(seq 60); do
      last_test batch | grep -q "^format fncvOutputList [0-9]* $1\$" && return 0
      n=$(grep -c '^TEST batch format ' "$OUT")
      xdotool windowfocus --sync "$D" key $key
      sleep 0.05
      [ "$(grep -c '^TEST batch format ' "$OUT")" -gt "$n" ] || break
    done
  done
  fail "$1 not chosen"
}

open_dialog
xdotool search --onlyvisible --name '^Multi Convert$' >/dev/null || fail "dialog title"
shot multi-empty "$D"

# Every named control is there.
for name in fncvInputFilename buttonAdd buttonAddFolder buttonRemove buttonRemoveAll \
  fncvOutputDir fncvOutputList fncvDelete fncvError fncvOp fncvOptions fncvSaveBatch buttonGo \
  buttonCancel; do
  [ -n "$(widget $name)" ] || fail "no $name"
done

# "Add Folder..." adds the three pictures.
through buttonAddFolder "$WORK/in"
wait_for "$OUT" '^TEST batch inputs 3$'

click "$(widget fncvOutputDir)"
xdotool windowfocus --sync "$D" type --delay 5 "$WORK/out1"

# The output format: Tab to the combo box, Up or Down until BMP is chosen.
xdotool windowfocus --sync "$D" key Tab
choose bmp

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
through fncvSaveBatch "$WORK/job.txt"
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
open_dialog
through buttonAddFolder "$WORK/del"
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

# Read errors are reported, unless "Suppress read errors" is on; the other
# file is converted either way (in place: same name, same format).
mkdir "$WORK/unread"
# A PNG cut short: recognised from its header, unreadable.
$IM -size 64x64 plasma:fractal "$WORK/whole.png"
head -c 200 "$WORK/whole.png" >"$WORK/unread/bad.png"
$IM -size 8x8 xc:white "$WORK/unread/good.png"
for suppress in 0 1; do
  open_dialog
  through buttonAddFolder "$WORK/unread"
  wait_count "$OUT" '^TEST batch inputs 2$' $((suppress + 1))
  [ $suppress = 1 ] && click "$(widget fncvError)"
  n=$(grep -c '^TEST message ' "$OUT")
  click "$(widget buttonGo)"
  wait_count "$OUT" '^TEST batch done converted 1 of 2$' $((suppress + 1))
  expect "messages, suppress=$suppress" "$(grep -c '^TEST message ' "$OUT")" $((n + 1 - suppress))
done

# Grey pictures into PPM, which holds only true colour: the conversion is
# asked for the first file only and reused for the second.
mkdir "$WORK/grey" "$WORK/ppm"
$IM -size 16x8 gradient: -colorspace gray -depth 8 "$WORK/grey/g1.pgm"
$IM -size 16x8 gradient: -colorspace gray -depth 8 -flip "$WORK/grey/g2.pgm"
open_dialog
through buttonAddFolder "$WORK/grey"
click "$(widget fncvOutputDir)"
xdotool windowfocus --sync "$D" type --delay 5 "$WORK/ppm"
xdotool windowfocus --sync "$D" key Tab
choose ppm
n=$(grep -c '^TEST conversionDialog 0x' "$OUT")
click "$(widget buttonGo)"
wait_count "$OUT" '^TEST conversionDialog 0x' $((n + 1))
C=$(grep '^TEST conversionDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3)
xdotool windowfocus --sync "$C" key Return
wait_for "$OUT" '^TEST batch done converted 2 of 2$'
expect "questions" "$(grep -c '^TEST conversionDialog 0x' "$OUT")" $((n + 1))
for g in g1 g2; do
  expect "$g.ppm" "$(identify -format '%m %wx%h' "$WORK/ppm/$g.ppm")" "PPM 16x8"
done

# "Options..." opens the options on their Save page; Escape leaves them.
open_dialog
click "$(widget fncvOptions)"
wait_for "$OUT" '^TEST optionsDialog 0x[0-9a-f]+ page 4$'
expect "page" "$(last_test optionsPage)" "4 Save"
O=$(grep '^TEST optionsDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3)
xdotool windowfocus --sync "$O" key Escape
wait_for "$OUT" '^TEST optionsDialog cancel$'
xdotool windowfocus --sync "$D" key Escape

# Escape closes a dialog and leaves nothing behind.
open_dialog
n=$(grep -c '^TEST batch dialog closed$' "$OUT")
xdotool windowfocus --sync "$D" key Escape
wait_count "$OUT" '^TEST batch dialog closed$' $((n + 1))
[ -z "$(xdotool search --onlyvisible --name '^Multi Convert$')" ] || fail "dialog left open"
exit 0
