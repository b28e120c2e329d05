#!/usr/bin/env bash
# "-popup": the view has no menu bar; button 3 on the picture posts the
# popup menu with the five menus, built when first opened, and its items
# work (Quit by its mnemonic).
. "$(dirname "$0")/lib.sh" "$1"
start -popup "$2"
view_windows
xdotool mousemove --window "$AREA" 50 50 click 3
sleep 0.3
# The first entry of the popup ("File") sits just below and right of the pointer.
xdotool mousemove --window "$AREA" 60 58 click 1
wait_for "$OUT" '^TEST menu MenuFile$'
shot popup "$VIEW"
grep -q '^TEST recent 1$' "$OUT" || fail "the recent file is not listed"
xdotool key --delay 20 q
wait_exit
expect "quit from the popup menu" "$STATUS" 0
grep -q '^TEST command quit$' "$OUT" || fail "quit did not run"
echo PASS
