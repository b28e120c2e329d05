#!/usr/bin/env bash
# Closing a changed picture and answering Yes saves it in place, in its own
# format: a PBM turned grey through the Image menu must be converted back to
# binary in the "Convert ..." dialog first. Cancelling that dialog writes
# nothing and keeps the window.
. "$(dirname "$0")/lib.sh" "$1"
PIC=$WORK/pic.pbm
# Black and white bands: through grey and back to binary they stay the same.
$IM -size 48x24 pattern:leftshingle -monochrome "pbm:$PIC"
cp "$PIC" "$WORK/original.pbm"
touch -d '2001-01-01 00:00' "$PIC"

# to_grey: Image menu (F10, Right, Down), "Convert to Grey" (g), its seventh item
# "256 Grey scale" (item 11). The menu's keys wait until it has opened.
to_grey() {
  local n m
  n=$(grep -c '^TEST converted 11$' "$OUT")
  m=$(grep -c '^TEST menu MenuImage$' "$OUT")
  keys F10 Right Down
  wait_count "$OUT" '^TEST menu MenuImage$' $((m + 1))
  xdotool key --delay 20 g
  xdotool key --delay 20 --repeat 6 Down
  xdotool key Return
  wait_count "$OUT" '^TEST converted 11$' $((n + 1))
}

# close_yes: Ctrl+C, then Yes (the default button) in the question.
close_yes() {
  local n q
  n=$(grep -c '^TEST conversionDialog 0x' "$OUT")
  keys ctrl+c
  wait_for "$OUT" '^TEST question Do you want to save changes to '
  q=$(xdotool search --onlyvisible --name '^Question$' | head -1)
  [ -n "$q" ] || fail "no question"
  xdotool windowfocus --sync "$q" key Return
  wait_count "$OUT" '^TEST conversionDialog 0x' $((n + 1))
  DLG=$(grep '^TEST conversionDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3)
  xdotool search --onlyvisible --name "^Convert \"$PIC\"\$" >/dev/null || fail "dialog title"
}

# Cancelled with Escape: nothing written, the window stays.
start "$PIC"
view_windows
to_grey
close_yes
# A grey picture is offered all 32 items.
expect "items" "$(last_test conversionDialog | cut -d' ' -f3)" 32
xdotool windowfocus --sync "$DLG" key Escape
wait_for "$OUT" '^TEST conversion 0$'
wait_for "$OUT" "^TEST saved $PIC 255\$"
sleep 0.2
kill -0 "$PID" 2>/dev/null || fail "program ended"
grep -q '^TEST closed' "$OUT" && fail "window closed after cancel"
cmp -s "$PIC" "$WORK/original.pbm" || fail "file changed after cancel"
expect "time after cancel" "$(stat -c %Y "$PIC")" "$(date -d '2001-01-01 00:00' +%s)"

# The same with the Cancel button (bottom right of the dialog) clicked.
close_yes
geometry=$(xwininfo -id "$DLG")
w=$(echo "$geometry" | awk '/Width:/ {print $2}')
h=$(echo "$geometry" | awk '/Height:/ {print $2}')
xdotool mousemove --window "$DLG" $((w - 50)) $((h - 20)) click 1
wait_count "$OUT" '^TEST conversion 0$' 2
wait_count "$OUT" "^TEST saved $PIC 255\$" 2
cmp -s "$PIC" "$WORK/original.pbm" || fail "file changed after Cancel"
grep -q '^TEST closed' "$OUT" && fail "window closed after Cancel"

# Yes again, "Binary (Floyd Steinberg)" (second item) chosen with Down and
# Return: the file is rewritten as a PBM and the window closes.
close_yes
shot convert "$DLG"
xdotool windowfocus --sync "$DLG" key Down Return
wait_for "$OUT" '^TEST conversion 2$'
wait_for "$OUT" "^TEST saved $PIC 0\$"
wait_exit
expect "status" "$STATUS" 0
grep -q '^TEST closed' "$OUT" || fail "window not closed"
[ "$(stat -c %Y "$PIC")" -gt "$(date -d '2001-01-02' +%s)" ] || fail "file not rewritten"
expect "written file" "$(identify -format '%m %wx%h %[type]' "$PIC")" "PBM 48x24 Bilevel"
expect "first bytes" "$(head -c 2 "$PIC")" "P4"
expect "differing pixels" "$(differing "$PIC" "$WORK/original.pbm")" 0
echo PASS
