#!/usr/bin/env bash
# Recent files: every picture shown in a view goes first in the list; the
# File menu shows at most nine of them and the settings file keeps nine.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2
names="a b c d e f g h i j k"
for n in $names; do cp "$SAMPLES/rings.pgm" "$WORK/$n.pgm"; done
start -all $(for n in $names; do echo "$WORK/$n.pgm"; done)
wait_count "$OUT" '^TEST view ' 11
view_windows
keys F10 Down
wait_for "$OUT" '^TEST menu MenuFile$'
expect "recent items in the menu" "$(last_test recent)" 9
# "Open All...": the pictures of a folder in one window stepping through them.
xdotool key --delay 20 a
wait_for "$OUT" '^TEST fileselector 0x[0-9a-f]+ Select Directory \.\.\.$'
S=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3)
echo "no picture" >"$WORK/notes.txt"
xdotool windowfocus --sync "$S" type --delay 5 "$WORK"
xdotool windowfocus --sync "$S" key Return
wait_count "$OUT" '^TEST view ' 12
view_windows
expect "first of the folder" "$(grep '^TEST load ' "$OUT" | tail -1)" "TEST load $WORK/a.pgm 0"
keys End
wait_for "$OUT" "^TEST load $WORK/k.pgm 0\$"
keys ctrl+q
wait_exit
expect "exit status" "$STATUS" 0
# The last shown first (k.pgm, shown last in the folder's window, then
# a.pgm, shown first there); the two opened first on the command line fell off.
expected=$(i=0; for n in k a j i h g f e d; do echo "FileName_$i = $WORK/$n.pgm"; i=$((i + 1)); done)
expect "recent files kept" "$(grep '^FileName_' "$HOME/.vimorarc")" "$expected"
echo PASS
