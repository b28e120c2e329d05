#!/usr/bin/env bash
# The processing items of the Image and Filter menus, driven by keyboard
# only: parameterless items apply at once, each kind of parameter dialog
# (one scale, three scales, filter size, user filter matrix, de-interlace
# radios, resize, canvas) takes values from the keyboard, OK changes the
# picture as expected and Ctrl+Z undoes it, Escape changes nothing and
# leaves no dialog window, and the values chosen are offered again and
# written to the settings file at exit.
. "$(dirname "$0")/lib.sh" "$1"

# A uniform 40x30 picture: every pixel (100,150,200), so each result is known
# from the operation's definition alone.
$IM -size 40x30 'xc:rgb(100,150,200)' "PNG24:$WORK/plain.png"
start "$WORK/plain.png"
view_windows
DEPTH=$(xdpyinfo | awk '/depth of root window/ {print $5; exit}')

# menu KEY...: opens a menu from the view by keyboard (F10 reaches the menu
# bar) and types the keys one by one, giving each menu time to post.
menu() { xdotool windowfocus --sync "$VIEW" key --delay 150 F10 "$@"; }
IMAGE="Right Down"
FILTER="Right Right Down"

# open_dialog SHELL NAME MENUKEYS...: opens a dialog, sets D to its window
# and keeps a screenshot of it.
open_dialog() {
  local shell=$1 name=$2 n
  shift 2
  n=$(grep -c "^TEST dialog $shell 0x" "$OUT")
  menu "$@"
  wait_count "$OUT" "^TEST dialog $shell 0x" $((n + 1))
  D=$(grep "^TEST dialog $shell 0x" "$OUT" | tail -1 | cut -d' ' -f4)
  xdotool windowfocus --sync "$D"
  shot "$name" "$D"
}

# in_dialog KEY...: types into the open dialog.
in_dialog() { xdotool windowfocus --sync "$D" key --delay 30 "$@"; }

# closed TITLE: no window with this title is left after the dialog's end.
closed() {
  local i=0
  while [ -n "$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null)" ]; do
    i=$((i + 1))
    [ $i -gt 100 ] && fail "a '$1' window is left behind"
    sleep 0.02
  done
}

# mark, then result: the first result after the mark, "NAME WxH pixel
# B0,B1,B2" (the top-left pixel's bytes).
mark() { P=$(grep -c '^TEST processed ' "$OUT"); }
result() {
  wait_count "$OUT" '^TEST processed ' $((P + 1))
  grep '^TEST processed ' "$OUT" | sed -n "$((P + 1))p" | cut -d' ' -f3-
}

# undo: Ctrl+Z, waiting until the window has shown the picture again.
undo() {
  local n
  n=$(grep -c '^TEST info ' "$OUT")
  keys ctrl+z
  wait_count "$OUT" '^TEST info ' $((n + 1))
}

# shown_pixel: the colour in the middle of the picture as the window shows it.
shown_pixel() {
  capture "$AREA" "$WORK/area.png"
  picture_in_area "$WORK/area.png" "$WORK/shown.png"
  pixel "$WORK/shown.png" 20 15
}

# Parameterless: Image > Map > Negative.
mark
menu $IMAGE m n
expect "negative" "$(result)" "Negative 40x30 pixel 155,105,55"
undo

# One scale: Brightness +5 by the arrow keys; the pixel rises by 5.
mark
open_dialog VmoraBrightness brightness $IMAGE a b
wait_for "$OUT" '^TEST preview VmoraBrightness 0$'
in_dialog Right Right Right Right Right
# The preview follows: the reduced copy is drawn brightened in the dialog.
wait_for "$OUT" '^TEST preview VmoraBrightness 5$'
if [ "$DEPTH" = 24 ]; then
  PREVIEW=$(xwininfo -tree -id "$D" | awk '/ 160x160\+/ {print $1; exit}')
  [ -n "$PREVIEW" ] || fail "no preview area"
  capture "$PREVIEW" "$WORK/preview.png"
  expect "preview pixel" "$(pixel "$WORK/preview.png" 80 80)" "srgb(105,155,205)"
fi
in_dialog Return
wait_for "$OUT" '^TEST dialog VmoraBrightness ok 5$'
expect "brightness +5" "$(result)" "Brightness 40x30 pixel 105,155,205"
closed 'Brightness...'
if [ "$DEPTH" = 24 ]; then
  expect "brighter on screen" "$(shown_pixel)" "srgb(105,155,205)"
fi
undo
if [ "$DEPTH" = 24 ]; then
  expect "undone on screen" "$(shown_pixel)" "srgb(100,150,200)"
fi

# The remembered value comes back; Escape leaves the picture alone.
p=$(grep -c '^TEST preview VmoraBrightness' "$OUT")
open_dialog VmoraBrightness brightness-again $IMAGE a b
wait_count "$OUT" '^TEST preview VmoraBrightness' $((p + 1))
expect "brightness starts at the last value" \
  "$(grep '^TEST preview VmoraBrightness' "$OUT" | sed -n "$((p + 1))p")" \
  "TEST preview VmoraBrightness 5"
in_dialog Right Escape
wait_for "$OUT" '^TEST dialog VmoraBrightness cancel$'
closed 'Brightness...'

# A mapped scale: gamma shown as "%d.%02d"; looked at, then cancelled.
open_dialog VmoraGamma gamma $IMAGE a g
in_dialog Right Escape
wait_for "$OUT" '^TEST dialog VmoraGamma cancel$'
closed 'Change Gamma'

# Three scales, Tab between them: red +2, green -1, blue +3.
mark
open_dialog VmoraBalance balance $IMAGE a o
in_dialog Right Right Tab Left Tab Right Right Right Return
wait_for "$OUT" '^TEST dialog VmoraBalance ok 2 -1 3$'
expect "balance" "$(result)" "ColorsBalance 40x30 pixel 102,149,203"
closed 'Colors Balance...'

# Filter size: the second choice (5X5); a uniform picture stays uniform.
mark
open_dialog VmoraAverage filter-size $FILTER a
in_dialog Down space Return
wait_for "$OUT" '^TEST dialog VmoraAverage ok 1$'
expect "average 5x5" "$(result)" "Average 40x30 pixel 102,149,203"
closed 'Average...'

# User filter: the identity matrix with a bias of 10 (the last field).
mark
open_dialog VmoraUserFilter user-filter $FILTER t
in_dialog $(printf 'Tab %.0s' $(seq 26)) End BackSpace 1 0 Return
wait_for "$OUT" '^TEST dialog VmoraUserFilter ok 0 0 0 0 0 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 0 0 0 0 0 1 10$'
expect "user filter" "$(result)" "UserFilter 40x30 pixel 112,159,213"
closed 'User filter...'

# De-interlace radios, cancelled: nothing is applied.
mark
open_dialog VmoraDeinterlace deinterlace $FILTER E d
in_dialog Down space Escape
wait_for "$OUT" '^TEST dialog VmoraDeinterlace cancel$'
closed 'De-Interlace...'
expect "nothing applied after cancel" "$(grep -c '^TEST processed' "$OUT")" "$P"

# Resize with the aspect kept: width 20 gives height 15.
mark
open_dialog VmoraResize resize $IMAGE s
in_dialog End BackSpace BackSpace 2 0 Return
wait_for "$OUT" '^TEST dialog VmoraResize ok 20 15 1 '
expect "resize" "$(result | cut -d' ' -f1-2)" "Resize 20x15"
closed 'Resize...'

# Canvas: width 30, height kept; the information line shows the new size.
open_dialog VmoraCanvas canvas $IMAGE v
in_dialog End BackSpace BackSpace 3 0 Return
wait_for "$OUT" '^TEST dialog VmoraCanvas ok 30 15$'
wait_for "$OUT" '^TEST info Width: 30  Height: 15 '
closed 'Canvas size...'
undo
expect "canvas undone" "$(last_test info | sed 's/  Depth.*//')" "Width: 20  Height: 15"

# The values are written at exit, one line per slot.
keys ctrl+q
wait_for "$OUT" '^TEST question '
Q=$(xdotool search --onlyvisible --name '^Question$' | head -1)
[ -n "$Q" ] || fail "no question dialog"
xdotool windowfocus --sync "$Q" key Return
wait_exit
RC=$HOME/.vimorarc
for line in "ProcessLastValue_0 = 128" "ProcessLastValue_2 = 5" "ProcessLastValue_5 = 2" \
  "ProcessLastValue_6 = -1" "ProcessLastValue_7 = 3" "ProcessLastValue_12 = 1" \
  "ProcessLastValue_59 = 10" "ProcessLastValue_15 = 0"; do
  grep -qx "$line" "$RC" || fail "'$line' not in the settings file"
done
echo PASS
