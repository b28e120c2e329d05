#!/usr/bin/env bash
# The file selector from a view window, by keyboard: Ctrl+O opens it, a typed
# directory is entered, a typed or listed file shows its information (checked
# against ImageMagick) and its preview, the filter rows filter, Return opens
# the file in a new view; the directory is remembered, Escape leaves nothing
# behind; Ctrl+S saves under a chosen name in the picture's format.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2

mkdir -p "$WORK/pics/sub"
cp "$SAMPLES/sunset.jpg" "$SAMPLES/wheel.png" "$SAMPLES/mandelbrot.gif" "$SAMPLES/rings.pgm" \
  "$WORK/pics/"
echo "not a picture" >"$WORK/pics/notes.txt"

start "$WORK/pics/wheel.png"
view_windows

# dialog_opened N: waits for the N-th file selector and sets D to its window.
dialog_opened() {
  wait_count "$OUT" '^TEST fileselector 0x' "$1"
  D=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
}
type_in() { xdotool windowfocus --sync "$D" type --delay 5 "$1"; }
press() { xdotool windowfocus --sync "$D" key --delay 20 "$@"; }
# gone WINDOW: waits until the window no longer exists.
gone() {
  local i=0
  while xwininfo -id "$1" >/dev/null 2>&1; do
    i=$((i + 1))
    [ $i -gt 100 ] && fail "window $1 still exists"
    sleep 0.02
  done
}
last_info() { grep '^TEST fileselector info ' "$OUT" | tail -1 | cut -d' ' -f4-; }
# info_of FILE: the information line expected for a picture, from ImageMagick.
info_of() {
  local m w h channels depth planes
  read -r m w h channels depth <<<"$(identify -format '%m %w %h %[channels] %z' "$1")"
  case $channels in gray) planes=1 ;; srgb) planes=3 ;; srgba) planes=4 ;; esac
  local colours="# Colors: 16 Millions"
  [ $((planes * depth)) -lt 24 ] && colours="# Colors:  $((1 << (planes * depth)))"
  echo "$m|Width: $w|Height: $h|# Planes: $planes|Bits Per Plane: $depth|$colours"
}

keys ctrl+o
dialog_opened 1
expect "title" "$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f4-)" "Load Files..."
# No remembered directory yet: the working directory.
wait_for "$OUT" "^TEST fileselector directory $WORK dirs 3 files [0-9]+\$"
shot open "$D"

# A directory typed as the name is entered; "Automatic" lists every file.
type_in pics
press Return
wait_for "$OUT" "^TEST fileselector directory $WORK/pics dirs 2 files 5\$"

# Typing a listed name selects it and shows what it is.
type_in sunset.jpg
wait_for "$OUT" '^TEST fileselector info '
expect "sunset.jpg" "$(last_info)" \
  "$(info_of "$WORK/pics/sunset.jpg")"
wait_for "$OUT" '^TEST fileselector preview '
read -r PREVIEW SIZE <<<"$(grep '^TEST fileselector preview ' "$OUT" | tail -1 | cut -d' ' -f4-)"
# Reduced while read to fit the 160x120 area, aspect kept (480x320 / 3).
expect "preview size" "$SIZE" "160x107"
capture "$PREVIEW" "$WORK/preview.png"
colours=$(colours "$WORK/preview.png")
[ "$colours" -gt 20 ] || fail "the preview shows $colours colours"
black=$($IM "$WORK/preview.png" -fill white +opaque black -fill black -opaque black \
  -format '%[fx:round(100*(1-mean))]' info:)
[ "$black" -lt 50 ] || fail "the preview is $black% black"
shot info "$D"

# Tab to the filter: "All Files" lists the same, "All Graphics Files" leaves
# out the text file.
press Tab
press Down
wait_for "$OUT" '^TEST fileselector filter All Files$'
press Down
wait_for "$OUT" '^TEST fileselector filter All Graphics Files$'
wait_for "$OUT" "^TEST fileselector directory $WORK/pics dirs 2 files 4\$"

# Back to the file list (Shift+Tab twice), one file down, Return opens it.
press shift+Tab shift+Tab
press Down
wait_for "$OUT" '^TEST fileselector info PNG'
expect "wheel.png" "$(last_info)" \
  "$(info_of "$WORK/pics/wheel.png")"
press Return
wait_for "$OUT" "^TEST fileselector accept $WORK/pics/wheel.png\$"
wait_for "$OUT" '^TEST fileselector closed$'
gone "$D"
wait_count "$OUT" "^TEST load $WORK/pics/wheel.png 0\$" 2
wait_count "$OUT" '^TEST view ' 2
[ -z "$(xdotool search --onlyvisible --name '^Load Files\.\.\.$')" ] || fail "dialog left open"

# The second time it starts in the remembered directory. A double click on
# "sub" (the directory list's second row) enters it, Return on ".." goes up;
# Escape cancels and leaves nothing.
view_windows
keys ctrl+o
dialog_opened 2
wait_count "$OUT" "^TEST fileselector directory $WORK/pics " 4
xdotool mousemove --window "$D" 30 73 click --repeat 2 --delay 60 1
wait_for "$OUT" "^TEST fileselector directory $WORK/pics/sub dirs 1 files 0\$"
press ctrl+Home Return
wait_count "$OUT" "^TEST fileselector directory $WORK/pics " 5
press ctrl+Home Return
wait_for "$OUT" "^TEST fileselector directory $WORK dirs 3 "
shot directory "$D"
press Escape
wait_for "$OUT" '^TEST fileselector cancel$'
wait_count "$OUT" '^TEST fileselector closed$' 2
gone "$D"
[ -z "$(xdotool search --onlyvisible --name '^Load Files\.\.\.$')" ] || fail "dialog left after Escape"

# Ctrl+S: the name starts as the picture's; a new name without an extension
# takes the format's.
keys ctrl+s
dialog_opened 3
expect "save title" "$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f4-)" \
  "Save File..."
# The picture's own file is selected and previewed, fitted to 160x120.
wait_for "$OUT" '^TEST fileselector preview 0x[0-9a-f]{2,} 120x120$'
shot save "$D"
xdotool windowfocus --sync "$D" key --delay 5 --repeat 12 BackSpace
type_in copy
press Return
wait_for "$OUT" "^TEST saved $WORK/pics/copy.png 0\$"
expect "saved picture" "$(identify -format '%m %wx%h' "$WORK/pics/copy.png")" "PNG 256x256"
expect "saved pixels" "$(differing "$WORK/pics/copy.png" "$WORK/pics/wheel.png")" 0

# Saving over an existing file asks first; No leaves it as it was.
echo "keep me" >"$WORK/pics/keep.png"
keys ctrl+s
dialog_opened 4
xdotool windowfocus --sync "$D" key --delay 5 --repeat 12 BackSpace
type_in keep.png
press Return
wait_for "$OUT" "^TEST question Replace the existing file "
Q=$(xdotool search --onlyvisible --name '^Question$' | head -1)
[ -n "$Q" ] || fail "no question before replacing a file"
xdotool windowfocus --sync "$Q" key Escape
sleep 0.3
expect "file kept" "$(cat "$WORK/pics/keep.png")" "keep me"
grep -q "^TEST saved $WORK/pics/keep.png" "$OUT" && fail "saved over the file after No"

# The remembered directories reach the settings file; the cancelled dialog
# changed nothing.
keys ctrl+q
wait_exit
expect "exit status" "$STATUS" 0
grep -qx "PathLoad = $WORK/pics" "$HOME/.vimorarc" || fail "PathLoad not remembered"
grep -qx "PathSave = $WORK/pics" "$HOME/.vimorarc" || fail "PathSave not remembered"
grep -qx "DirName_0 = $WORK/pics" "$HOME/.vimorarc" || fail "recent directory not remembered"
grep -qx "DirName_1 = " "$HOME/.vimorarc" || fail "one directory listed twice"
echo PASS
