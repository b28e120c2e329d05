#!/usr/bin/env bash
# The options dialog by keyboard: Ctrl+G opens it on the first page, the
# category list turns the pages, a toggle, an option menu and a number are
# changed; OK keeps them for the settings file written at exit, Cancel and
# Escape change nothing.
. "$(dirname "$0")/lib.sh" "$1"
PICTURE=$2
RC=$HOME/.vimorarc
PAGES=(Start View Resize Browser Save Load Slide Rename Html Process Convert)

# open_options: Ctrl+G in the view; sets DLG to the dialog's shell window.
open_options() {
  local n
  n=$(grep -c '^TEST optionsDialog 0x' "$OUT")
  keys ctrl+g
  wait_count "$OUT" '^TEST optionsDialog 0x' $((n + 1))
  DLG=$(grep '^TEST optionsDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3)
  page_now=0
  expect "first page" "$(grep '^TEST optionsDialog 0x' "$OUT" | tail -1 | cut -d' ' -f5)" 0
}
dkeys() { xdotool windowfocus --sync "$DLG" key --delay 20 "$@"; }
# page N: the list has the focus; moves to page N from the page shown.
page() {
  local i=0
  if [ "$1" -gt "$page_now" ]; then
    dkeys --repeat $(($1 - page_now)) Down
  else
    dkeys --repeat $((page_now - $1)) Up
  fi
  until [ "$(last_test optionsPage)" = "$1 ${PAGES[$1]}" ]; do
    i=$((i + 1))
    [ $i -gt 250 ] && fail "page $1 not shown"
    sleep 0.02
  done
  page_now=$1
}

# The three changes: View's first toggle (popup menu), Resize's option menu
# (the second choice, "Quick") and Save's first number (JPEG quality 75).
# Each control is reached with Tab from the list and left with Shift+Tab.
make_changes() {
  page 1
  dkeys Tab space shift+Tab
  page 2
  dkeys Tab space Down Return shift+Tab
  page 4
  dkeys Tab Home shift+End 7 5 shift+Tab
}

# A first run: every page is shown (and kept as a screenshot), the changes
# are made and OK is pressed; the program ends with Ctrl+Q.
start "$PICTURE"
view_windows
open_options
shot page-Start "$DLG"
for i in $(seq 1 10); do
  page "$i"
  shot "page-${PAGES[$i]}" "$DLG"
done
make_changes
dkeys Return
wait_for "$OUT" '^TEST optionsDialog ok$'
i=0
while xdotool search --onlyvisible --name '^Options$' >/dev/null 2>&1; do
  i=$((i + 1))
  [ $i -gt 250 ] && fail "dialog left open"
  sleep 0.02
done
keys ctrl+q
wait_exit
expect "status" "$STATUS" 0
cp "$RC" "$WORK/ok.rc"
grep -qx 'ViewUsePopupInView = True' "$WORK/ok.rc" || fail "toggle not kept"
grep -qx 'ResizeResample = 1' "$WORK/ok.rc" || fail "option not kept"
grep -qx 'SaveJpegQuality = 75' "$WORK/ok.rc" || fail "number not kept"

# A second run with the same changes, left with Escape, then again with the
# Cancel button (reached with Shift+Tab from the list): the file holds the
# defaults, and differs from the first run's in exactly the three lines.
rm -f "$RC"
start "$PICTURE"
view_windows
open_options
make_changes
dkeys Escape
wait_for "$OUT" '^TEST optionsDialog cancel$'
open_options
make_changes
dkeys shift+Tab space
wait_count "$OUT" '^TEST optionsDialog cancel$' 2
grep -q '^TEST optionsDialog ok' "$OUT" && fail "cancelled dialog applied"
keys ctrl+q
wait_exit
expect "status" "$STATUS" 0
grep -qx 'ViewUsePopupInView = False' "$RC" || fail "toggle changed by cancel"
grep -qx 'ResizeResample = 0' "$RC" || fail "option changed by cancel"
grep -qx 'SaveJpegQuality = 90' "$RC" || fail "number changed by cancel"
expect "lines changed by OK" "$(diff "$RC" "$WORK/ok.rc" | grep -c '^>')" 3
expect "lines of the file" "$(wc -l <"$WORK/ok.rc")" "$(wc -l <"$RC")"
echo PASS
