#!/usr/bin/env bash
# Every key of the view's translation table reaches its command word: each
# key is pressed on a view over a list of two files (the first with several
# pages), the "TEST command" line it produces is checked, and the dialog it
# opens (if any) is dismissed with Escape. Toggles are pressed twice so the
# window is back as it was; quit comes last.
. "$(dirname "$0")/lib.sh" "$1"
SAMPLES=$2

start "$SAMPLES/pages.tif" "$SAMPLES/wheel.png"
view_windows

# key, word, what appears and must be dismissed (- for nothing).
TABLE="
ctrl+o open selector
ctrl+h viewHexa selector
ctrl+b browseFiles message
ctrl+r reopenFiles -
ctrl+s saveFiles selector
ctrl+l slideShow -
ctrl+n sequenceConvert seqconvert
ctrl+u multiConvert multiconvert
ctrl+z undo -
ctrl+y crop -
ctrl+g options options
ctrl+a adaptiveSize -
ctrl+a adaptiveSize -
ctrl+w fitImage -
ctrl+w fitImage -
ctrl+f fullScreen -
ctrl+f fullScreen -
ctrl+shift+s statusBar -
ctrl+shift+s statusBar -
ctrl+shift+t toolBar -
ctrl+shift+t toolBar -
plus zoom+ -
minus zoom- -
alt+plus zoom+ -
alt+minus zoom- -
shift+End pageLast -
shift+Prior pagePrev -
shift+Home pageFirst -
shift+Next pageNext -
End last -
Prior prev -
Next next -
Home first -
ctrl+q quit -
"

count() { grep -c "^TEST $1" "$OUT"; }
# dismiss KIND N: waits for what the command opened and closes it.
dismiss() {
  local w=
  case $1 in
    selector)
      wait_count "$OUT" '^TEST fileselector 0x' "$2"
      w=$(grep '^TEST fileselector 0x' "$OUT" | tail -1 | cut -d' ' -f3) ;;
    options)
      wait_count "$OUT" '^TEST optionsDialog 0x' "$2"
      w=$(grep '^TEST optionsDialog 0x' "$OUT" | tail -1 | cut -d' ' -f3) ;;
    message)
      wait_count "$OUT" '^TEST message ' "$2"
      sleep 0.2
      w=$(xdotool search --onlyvisible --name '^Browser$' | head -1) ;;
    seqconvert|multiconvert)
      local name
      [ "$1" = seqconvert ] && name='Sequence Convert' || name='Multi Convert'
      for _ in $(seq 100); do
        w=$(xdotool search --onlyvisible --name "^$name\$" | head -1)
        [ -n "$w" ] && break
        sleep 0.05
      done ;;
  esac
  [ -n "$w" ] || fail "nothing to dismiss after $1"
  xdotool windowfocus --sync "$w" key Escape
  sleep 0.2
}

title_is() {
  local i
  for i in $(seq 100); do
    [ "$(xprop -id "$VIEW" WM_NAME | cut -d'"' -f2)" = "$1" ] && return 0
    sleep 0.05
  done
  fail "title: got '$(xprop -id "$VIEW" WM_NAME | cut -d'"' -f2)', wanted '$1'"
}

while read -r key word kind; do
  [ -n "$key" ] || continue
  n=$(count command)
  case $kind in
    selector) before=$(count 'fileselector 0x') ;;
    options) before=$(count 'optionsDialog 0x') ;;
    message) before=$(count 'message ') ;;
  esac
  [ "$word" = fullScreen ] && [ -z "${full_on:-}" ] &&
    before_full=$(xwininfo -id "$VIEW" | awk '/Width:/ {w=$2} /Height:/ {h=$2} END {print w "x" h}')
  keys "$key"
  wait_count "$OUT" '^TEST command ' $((n + 1))
  expect "$key" "$(grep '^TEST command ' "$OUT" | tail -1 | cut -d' ' -f3)" "$word"
  [ "$kind" = - ] || dismiss "$kind" $((before + 1))
  # Full screen covers the screen; the second press gives the old size back.
  if [ "$word" = fullScreen ]; then
    size_is() {
      local i
      for i in $(seq 100); do
        [ "$(xwininfo -id "$VIEW" | awk '/Width:/ {w=$2} /Height:/ {h=$2} END {print w "x" h}')" = "$1" ] && return 0
        sleep 0.05
      done
      fail "window size: wanted $1"
    }
    if [ -z "${full_on:-}" ]; then
      full_on=1
      size_is "$(xwininfo -root | awk '/Width:/ {w=$2} /Height:/ {h=$2} END {print w "x" h}')"
    else
      size_is "$before_full"
    fi
  fi
  # The pages of pages.tif: the title names the page shown.
  case $word in
    pageLast) title_is "VIMORA v1.12 - Page 3/3" ;;
    pagePrev) title_is "VIMORA v1.12 - Page 2/3" ;;
  esac
done <<<"$TABLE"
wait_exit
expect "exit status" "$STATUS" 0

# Every word of the vocabulary but "close" was reached by its key; close is
# the key that ends the next run.
start "$SAMPLES/wheel.png"
view_windows
keys ctrl+c
wait_exit
grep -q '^TEST command close$' "$OUT" || fail "Ctrl+C did not close"
start "$SAMPLES/wheel.png"
view_windows
keys Escape
wait_exit
expect "Escape closes" "$STATUS" 0
echo PASS
