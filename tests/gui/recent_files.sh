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
xdotool key --delay 20 q  # "Quit", by its mnemonic
wait_exit
expect "exit status" "$STATUS" 0
# The last opened first; the two opened first fell off.
expected=$(i=0; for n in k j i h g f e d c; do echo "FileName_$i = $WORK/$n.pgm"; i=$((i + 1)); done)
expect "recent files kept" "$(grep '^FileName_' "$HOME/.vimorarc")" "$expected"
echo PASS
