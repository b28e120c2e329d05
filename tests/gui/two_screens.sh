#!/usr/bin/env bash
# A server with a 24-bit screen 0 and an 8-bit screen 1: the usage text lists
# each screen's visuals, TrueColor is chosen on screen 0, "-visualid 0" takes
# the default visual, an unknown id falls back to the best visual.
. "$(dirname "$0")/lib.sh" "$1"
. "$(dirname "$0")/visual_list.sh"
PICTURE=$2
BASE=$DISPLAY

# used_visual ARGS...: the "Use ..." line of a run on $DISPLAY.
used_visual() {
  start "$@" "$PICTURE"
  wait_for "$OUT" '^TEST view '
  kill "$PID"; wait "$PID" 2>/dev/null; PID=
  grep '^Use .* visual' "$ERR"
}

for s in 0 1; do
  export DISPLAY=$BASE.$s
  "$VIMORA" -help >"$OUT" 2>"$ERR" || fail "-help on screen $s"
  sed -n '/Visual available/,/-own/p' "$OUT" | sed '1d;$d' >"$WORK/listed"
  expected_visuals >"$WORK/expected"
  [ -s "$WORK/expected" ] || fail "xdpyinfo gave no visuals for screen $s"
  diff "$WORK/expected" "$WORK/listed" >/dev/null || fail "visual list of screen $s"
done
export DISPLAY=$BASE.1
grep -q ': PseudoColor     /  8 planes$' "$WORK/listed" || fail "no PseudoColor on screen 1"

export DISPLAY=$BASE.0
expect "default choice" "$(used_visual)" "Use TrueColor visual (0x21) with 24 bits..."
expect "unknown id" "$(used_visual -visualid 7777)" "Use TrueColor visual (0x21) with 24 bits..."
expect "direct colour by id" "$(used_visual -visualid 0x22)" "Use DirectColor visual (0x22) with 24 bits..."

export DISPLAY=$BASE.1
default1=$(xdpyinfo | awk '/default screen number:/ {s=$4} /^screen #/ {c=$2; gsub("[#:]","",c)} c==s && /default visual id:/ {print $4}')
expect "-visualid 0" "$(used_visual -visualid 0)" "Use PseudoColor visual ($default1) with 8 bits..."
echo PASS
