#!/usr/bin/env bash
# Start-up from the command line: usage text and status, the version check,
# the banner, -visualid, options after the first file, a directory argument,
# WM_COMMAND.
. "$(dirname "$0")/lib.sh" "$1"
. "$(dirname "$0")/visual_list.sh"
FAKE_LIB=$2
PICTURE=$3

banner='** VIMORA v1.12 (Dec 16 1999/14:43:45) **'

for flag in -help -h; do
  "$VIMORA" $flag >"$OUT" 2>"$ERR"
  expect "$flag status" $? 0
  {
    echo "$banner"
    sed -n 2,4p "$OUT"   # rights and terms lines, checked below
    echo "Usage : $VIMORA [options] file ..."
    echo "        Options :"
    echo "          -visualid <id> : Use this visual number"
    echo "              Visual available : "
    expected_visuals
    echo "          -own           : Use own colormap (8 bits only)"
    echo "          -popup         : Use popup menu"
    echo "          -browser       : Launch the browser"
    echo "          -slide <file>  : Launch slide show"
    echo "          -all           : Open a window for each picture"
    echo "          -full          : Full screen"
    echo "          -ini <file>    : Ini file"
  } >"$WORK/expected"
  diff "$WORK/expected" "$OUT" >"$WORK/diff" || fail "$flag text: $(cat "$WORK/diff")"
  sed -n 2p "$OUT" | grep -q '^        Version for Lesstif' || fail "second banner line"
  expect "empty fourth banner line" "$(sed -n 4p "$OUT")" ""
done

# A codec library of another version stops the program before anything else.
LD_PRELOAD=$FAKE_LIB ASAN_OPTIONS=${ASAN_OPTIONS:-}:verify_asan_link_order=0 \
  "$VIMORA" "$PICTURE" >"$OUT" 2>"$ERR"
expect "bad version status" $? 0
expect "bad version text" "$(cat "$OUT")" "Bad version of libimgkit"

# The banner, then the hint; -visualid in hexadecimal; -own after the first
# file is a file name (it cannot be read: an error message).
default_id=$(xdpyinfo | awk '/default visual id:/ {print $4; exit}')
start -visualid "${default_id#0x}" "$PICTURE" -own
wait_for "$OUT" '^TEST view '
expect "banner" "$(head -1 "$OUT")" "$banner"
expect "hint" "$(sed -n 5p "$OUT")" "     Type $VIMORA -help, for more information"
grep -q "^Use [A-Za-z]* visual ($default_id) with [0-9]* bits...\$" "$ERR" ||
  fail "visual $default_id not used"
expect "options" "$(last_test options)" "visualid=$((default_id)) own=0 popup=0 browser=0 all=0 full=0 slide= files=2"
VIEW=$(last_test view | cut -d' ' -f1)
expect "WM_COMMAND" "$(xprop -id "$VIEW" WM_COMMAND)" \
  "WM_COMMAND(STRING) = { \"$VIMORA\", \"-visualid\", \"${default_id#0x}\", \"$PICTURE\", \"-own\" }"
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# -full: the view covers the screen.
start -full "$PICTURE"
view_windows
expect "full-screen geometry" "$(xwininfo -id "$VIEW" | awk '/Absolute|Width:|Height:/ {printf "%s ", $NF}')" \
  "0 0 $(xwininfo -root | awk '/Width:|Height:/ {printf "%s ", $NF}')"
kill "$PID"; wait "$PID" 2>/dev/null; PID=

# A directory alone opens no view window.
start "$(dirname "$PICTURE")"
wait_for "$OUT" '^TEST browser '
wait_for "$OUT" '^TEST start window '
grep -q '^TEST view ' "$OUT" && fail "a view window was opened for a directory"
kill "$PID"; wait "$PID" 2>/dev/null; PID=
echo PASS
