#!/usr/bin/env bash
# The end of the program: three Ctrl+C end it with status 1 and leave the
# settings file alone; closing the last window writes the settings once.
. "$(dirname "$0")/lib.sh" "$1"
PICTURE=$2
RC=$HOME/.vimorarc

echo "ViewFitToWindow = True" >"$RC"
touch -d '2001-01-01 00:00' "$RC"
start "$PICTURE"
view_windows
for left in 2 1; do
  kill -INT "$PID"
  wait_for "$OUT" "^\*\*\*\*\*\* Hit $left Ctrl\+C for exiting without saving \*\*\*\*\*\*\$"
done
kill -INT "$PID"
wait_exit
expect "status after three Ctrl+C" "$STATUS" 1
expect "interrupt lines" "$(grep -c '^\*\*\*\*\*\* Interrupt detected \*\*\*\*\*\*$' "$OUT")" 3
expect "settings untouched" "$(cat "$RC")" "ViewFitToWindow = True"
expect "settings time" "$(stat -c %Y "$RC")" "$(date -d '2001-01-01 00:00' +%s)"
# The setting was read: the picture opened fitted (the scroll bars idle).
grep -q '^TEST layout .* scaled ' "$OUT" || fail "no layout"

# Escape closes the only window: the settings are written once, the
# program ends with 0.
start "$PICTURE"
view_windows
keys Escape
wait_exit
expect "status after close" "$STATUS" 0
expect "settings writes" "$(grep -c '^TEST settings written' "$OUT")" 1
grep -q '^ViewFitToWindow = True$' "$RC" || fail "setting not kept"
grep -q '^StartWidth = ' "$RC" || fail "settings not written in full"
[ "$(stat -c %Y "$RC")" -gt "$(date -d '2001-01-02' +%s)" ] || fail "settings file not rewritten"

# -ini names another settings file, read and written.
echo "ViewStatusBar = False" >"$WORK/other.rc"
start -ini "$WORK/other.rc" "$PICTURE"
view_windows
keys ctrl+q
wait_exit
expect "status after quit" "$STATUS" 0
grep -q '^ViewStatusBar = False$' "$WORK/other.rc" || fail "-ini file not written"
echo PASS
