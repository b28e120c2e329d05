#!/usr/bin/env bash
# The slide-show dialog: files added with Insert (file selector) and
# "Add Folder...", removed with Delete and "Remove All", the show saved as a
# slide file and loaded back (with the title bar's known disagreement), and
# "Start" beginning a show of the listed files.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2
mkdir -p "$WORK/pics"
cp "$SAMPLES/wheel.png" "$SAMPLES/rings.pgm" "$WORK/pics/"
echo "not a picture" >"$WORK/pics/notes.txt"

files() { wait_for "$OUT" "^TEST slideDialog files $1\$"; }
selector() {  # selector N TITLE: waits for the N-th file selector
  wait_count "$OUT" '^TEST fileselector 0x' "$1"
  local line
  line=$(grep '^TEST fileselector 0x' "$OUT" | tail -1)
  expect "selector title" "$(echo "$line" | cut -d' ' -f4-)" "$2"
  S=$(echo "$line" | cut -d' ' -f3)
}
button() { echo "$BUTTONS" | tr ' ' '\n' | sed -n "s/^$1=//p"; }
click() { xdotool mousemove --window "$(button "$1")" 4 4 click 1; }

start "$SAMPLES/mandelbrot.gif"
view_windows
keys ctrl+l
wait_for "$OUT" '^TEST slideDialog 0x'
D=$(grep '^TEST slideDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3)
wait_for "$OUT" '^TEST slideDialog buttons '
BUTTONS=$(grep '^TEST slideDialog buttons ' "$OUT" | cut -d' ' -f4-)

# Insert in the list: "Select Multi File ..." adds the chosen files.
xdotool windowfocus --sync "$D" key Insert
selector 1 "Select Multi File ..."
xdotool windowfocus --sync "$S" type --delay 5 "\"$WORK/pics/wheel.png\" \"$SAMPLES/mandelbrot.gif\""
xdotool windowfocus --sync "$S" key Return
files 2
# "Add Folder...": the pictures of the folder, not the text file.
click addFolder
selector 2 "Select Directory ..."
xdotool windowfocus --sync "$S" type --delay 5 "$WORK/pics"
xdotool windowfocus --sync "$S" key Return
files 4
shot dialog "$D"
# Delete removes the selected entry (the first, clicked).
xdotool mousemove --window "$(button list)" 20 6 click 1
xdotool windowfocus --sync "$D" key Delete
files 3

# Save the show, then empty the list and load it back.
click save
selector 3 "Save Slide File..."
xdotool windowfocus --sync "$S" type --delay 5 "$WORK/show"
xdotool windowfocus --sync "$S" key Return
wait_for "$OUT" "^TEST slideDialog saved $WORK/show.sld\$"
printf '%s\n' "# Slide Show Sequence" "Timer = 5" "Loop = 1" "CenterWindow = 1" "RandomOrder = 0" \
  "ReadErrors = 1" "TitleBar = 1" "FullScreen = 0" "View = 1" "\"$SAMPLES/mandelbrot.gif\"" \
  "\"$WORK/pics/rings.pgm\"" "\"$WORK/pics/wheel.png\"" >"$WORK/expected.sld"
cmp -s "$WORK/show.sld" "$WORK/expected.sld" || fail "slide file: $(diff "$WORK/expected.sld" "$WORK/show.sld")"

click removeAll
files 0
n=$(grep -c '^TEST slide show' "$OUT")
click go  # nothing to show: nothing starts
sleep 0.3
expect "no show from an empty list" "$(grep -c '^TEST slide show' "$OUT")" "$n"

click load
selector 4 "Load Slide File..."
xdotool windowfocus --sync "$S" type --delay 5 "$WORK/show.sld"
xdotool windowfocus --sync "$S" key Return
wait_for "$OUT" "^TEST slideDialog loaded $WORK/show.sld "
files 3
# Timer, loop, centre, fit large, and "No Title Bar" on: the file's
# "TitleBar" line is no key the reader knows.
expect "flags after loading" "$(grep '^TEST slideDialog loaded' "$OUT" | tail -1 | awk '{print $6}')" 0x6b

# Start: a show of the three files, the first one shown first.
click go
wait_for "$OUT" '^TEST slide show 0x[0-9a-f]+ 0x[0-9a-f]+ 3$'
wait_for "$OUT" "^TEST slide picture 0 0 $SAMPLES/mandelbrot.gif\$"
echo PASS
