# Shared steps of the GUI tests, sourced by every case:
#   . "$(dirname "$0")/lib.sh" "$VIMORA"
# Each case runs under tests/with-xvfb. The program runs with VIMORA_TEST set,
# so it prints "TEST ..." lines (view and drawing-area window ids, layout,
# information line, paint, commands) on standard output; the helpers wait on
# those lines in 20 ms steps instead of sleeping.
set -u
VIMORA=$1
IM=/usr/bin/convert
WORK=$(mktemp -d)
export HOME=$WORK/home
mkdir -p "$HOME"
unset XAPPLRESDIR XUSERFILESEARCHPATH XFILESEARCHPATH
export VIMORA_TEST=1
OUT=$WORK/out
ERR=$WORK/err
PID=
STATUS=

cleanup() {
  if [ -n "$PID" ] && kill -0 "$PID" 2>/dev/null; then
    kill "$PID" 2>/dev/null
    wait "$PID" 2>/dev/null
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*"
  echo "--- stdout"; cat "$OUT" 2>/dev/null
  echo "--- stderr"; cat "$ERR" 2>/dev/null
  exit 1
}

# start ARGS...: runs vimora in $WORK in the background.
start() {
  : >"$OUT"
  : >"$ERR"
  (cd "$WORK" && exec "$VIMORA" -xrm '*blinkRate: 0' "$@" >"$OUT" 2>"$ERR") &
  PID=$!
}

# wait_for FILE REGEX [SECONDS]: waits until a line of FILE matches.
wait_for() {
  local file=$1 regex=$2 limit=$(( ${3:-10} * 50 )) i=0
  while ! grep -Eq -- "$regex" "$file"; do
    i=$((i + 1))
    [ $i -gt $limit ] && fail "no line matching '$regex' in $(basename "$file")"
    kill -0 "$PID" 2>/dev/null || { grep -Eq -- "$regex" "$file" && return 0; fail "vimora ended before '$regex'"; }
    sleep 0.02
  done
}

# wait_exit: waits for the program's end and sets STATUS.
wait_exit() {
  local i=0
  while kill -0 "$PID" 2>/dev/null; do
    i=$((i + 1))
    [ $i -gt 500 ] && fail "vimora did not end"
    sleep 0.02
  done
  wait "$PID"
  STATUS=$?
  PID=
}

# last_test WORD: the last "TEST WORD ..." line, without "TEST WORD ".
last_test() { grep "^TEST $1 " "$OUT" | tail -1 | cut -d' ' -f3-; }

# view_windows: sets VIEW and AREA (shell and drawing-area window ids) of the
# last view opened, once it has painted.
view_windows() {
  wait_for "$OUT" '^TEST view '
  wait_for "$OUT" '^TEST paint '
  local line
  line=$(last_test view)
  VIEW=$(echo "$line" | cut -d' ' -f1)
  AREA=$(echo "$line" | cut -d' ' -f3)
}

# keys KEY...: focuses the view and types.
keys() { xdotool windowfocus --sync "$VIEW" key "$@"; }

# wait_count FILE REGEX N: waits until N lines match.
wait_count() {
  local i=0
  while [ "$(grep -Ec -- "$2" "$1")" -lt "$3" ]; do
    i=$((i + 1))
    [ $i -gt 500 ] && fail "fewer than $3 lines matching '$2'"
    sleep 0.02
  done
}

# area_size W H: resizes the view so that its drawing area is W x H.
area_size() {
  local layout aw ah sw sh n
  layout=$(last_test layout)
  aw=$(echo "$layout" | cut -d' ' -f1)
  ah=$(echo "$layout" | cut -d' ' -f2)
  sw=$(xwininfo -id "$VIEW" | awk '/Width:/ {print $2}')
  sh=$(xwininfo -id "$VIEW" | awk '/Height:/ {print $2}')
  n=$(grep -c '^TEST layout ' "$OUT")
  xdotool windowsize "$VIEW" $((sw + $1 - aw)) $((sh + $2 - ah))
  wait_count "$OUT" '^TEST layout ' $((n + 1))
  wait_for "$OUT" "^TEST layout $1 $2 "
}

# capture WINDOW FILE: the window's pixels as PNG (through its own colormap).
capture() { xwd -id "$1" -silent | $IM xwd:- -depth 8 "png:$2"; }

# shot NAME WINDOW: keeps a PNG of the window in $VIMORA_SHOTS (when set) as
# <script>-<depth>-NAME.png, for a person to look at after the run.
shot() {
  [ -n "${VIMORA_SHOTS:-}" ] || return 0
  local depth
  depth=$(xdpyinfo 2>/dev/null | awk '/depth of root window/ {print $5; exit}')
  mkdir -p "$VIMORA_SHOTS"
  capture "$2" "$VIMORA_SHOTS/$(basename "$0" .sh)-${depth:-x}-$1.png" ||
    fail "could not capture $1"
}

# pixel FILE X Y: "srgb(r,g,b)".
pixel() { $IM "$1" -format "%[pixel:p{$2,$3}]" info:; }

# differing A B: the number of differing pixels of two pictures of one size.
differing() { compare -metric AE "$1" "$2" null: 2>&1; }

# colours FILE [GEOMETRY]: the number of distinct colours (of a crop).
colours() {
  if [ $# -gt 1 ]; then $IM "$1" -crop "$2" +repage -format '%k' info:; else $IM "$1" -format '%k' info:; fi
}

# expect WHAT ACTUAL WANTED
expect() { [ "$2" = "$3" ] || fail "$1: got '$2', wanted '$3'"; }

# redrawn COMMAND...: runs COMMAND and waits until the view has handled the
# exposures that follow it.
redrawn() {
  local n
  n=$(grep -c '^TEST drawn' "$OUT")
  "$@"
  wait_count "$OUT" '^TEST drawn' $((n + 1))
}

# picture_in_area SHOT OUTFILE: the scaled picture's part of a drawing-area
# capture, from the last layout line ("W H scaled w h origin x y").
picture_in_area() {
  local l
  l=$(last_test layout)
  set -- "$1" "$2" $l
  $IM "$1" -crop "${6}x${7}+${9}+${10}" +repage "$2"
}
