#!/usr/bin/env bash
# pixbatch end to end: a script line exactly as "Save Batch..." writes it,
# bad options stopping before any file is touched, unreadable files skipped,
# removal of originals, sequences, standard input with -j 2 and automatic
# conversions. Pictures are made and checked with netpbm.
set -uo pipefail
PIXBATCH=$(realpath "${1:?usage: pixbatch_e2e.sh PIXBATCH}")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export HOME=$tmp  # no settings file of the user's
failures=0 passed=0
check() {  # check "what" command...
  local what=$1; shift
  if "$@"; then passed=$((passed + 1)); else echo "FAIL: $what"; failures=$((failures + 1)); fi
}
size_of() { pngtopnm "$1" 2>/dev/null | pnmfile | sed -E 's/.* ([0-9]+) by ([0-9]+).*/\1x\2/'; }

cd "$tmp" || exit 1
mkdir in out
ppmpat -gingham2 40 30 > in/a.ppm
ppmpat -madras 40 30 > in/b.ppm
pgmramp -lr 33 17 > in/g.pgm

# 1. A script in the exact form of "Save Batch...", read back by pixbatch.
echo "pixbatch -npcd 3 -size 0x0+0 -ctype rgb -corder inter -out png -D -o $tmp/out -resize 50% 50% -rtype quick -xflip $tmp/in/a.ppm $tmp/in/b.ppm " > job.txt
pnmflip -lr in/a.ppm > a_flipped.ppm
read -ra words < job.txt
"$PIXBATCH" "${words[@]:1}" > log 2>&1
check "script line converts with status 0" test $? -eq 0
check "script outputs are 20x15 PNG" test "$(size_of out/a.png) $(size_of out/b.png)" = "20x15 20x15"
check "originals deleted after conversion" test ! -e in/a.ppm -a ! -e in/b.ppm
check "summary counts" grep -q "2 of 2 files converted, 2 originals deleted" log

# -xflip alone against netpbm's mirror.
cp a_flipped.ppm in/a.ppm && pnmflip -lr in/a.ppm > expect.ppm
"$PIXBATCH" -out png -o "$tmp/out" -xflip in/a.ppm > log 2>&1
check "-xflip equals pnmflip -lr" cmp -s <(pngtopnm out/a.png) expect.ppm

# 2. Bad options stop before any file is touched.
cp in/a.ppm keep.ppm
for bad in "-frobnicate" "-out nosuchformat" "-brightness 999" "-resize" "-q 0" "-binary diffuse" "-o $tmp/nodir" "-j 0" "-ctype rgbx"; do
  rm -f in/a.png
  read -ra opts <<< "$bad"
  "$PIXBATCH" -D -out png "${opts[@]}" in/a.ppm > log 2>&1
  rc=$?
  check "'$bad' exits 2" test $rc -eq 2
  check "'$bad' is named" grep -qF -- "${opts[0]}" log
  check "'$bad' leaves the input" cmp -s in/a.ppm keep.ppm
  check "'$bad' writes nothing" test ! -e in/a.png
done

# 3. An unreadable file is reported and skipped; nothing is deleted unless written.
printf 'P6\n40 30\n255\nshort' > in/broken.ppm
cp in/g.pgm in/g2.pgm
"$PIXBATCH" -D -out png in/broken.ppm in/missing.ppm in/g2.pgm > log 2>&1
check "failures give status 1" test $? -eq 1
check "broken file reported" grep -q "broken.ppm" log
check "missing file reported" grep -q "missing.ppm" log
check "broken file kept" test -e in/broken.ppm
check "good file converted and deleted" test -e in/g2.png -a ! -e in/g2.pgm
check "summary tells the failures" grep -q "1 of 3 files converted, 2 failed" log
# A save that fails (a directory stands where the output goes) keeps its original.
mkdir in/blocked.png && cp in/g.pgm in/blocked.pgm
"$PIXBATCH" -D -out png in/blocked.pgm > log 2>&1
check "failed save status 1" test $? -eq 1
check "failed save keeps original" test -e in/blocked.pgm

# 4. In place (same path): converted, never deleted.
cp in/g.pgm in/same.pgm
"$PIXBATCH" -D -out pgm -negate in/same.pgm > log 2>&1
check "in-place conversion succeeds" test $? -eq 0
check "in-place file is kept and negated" cmp -s in/same.pgm <(pnminvert in/g.pgm)

# The same file through another spelling of its directory is in place too.
cp in/g.pgm in/dot.pgm
"$PIXBATCH" -D -out pgm -o "$tmp/in/." -negate in/dot.pgm > log 2>&1
check "in-place through -o DIR/. keeps the file" cmp -s in/dot.pgm <(pnminvert in/g.pgm)
# Two inputs for one output: refused with -D before anything is touched.
cp in/g.pgm in/twin.pgm && pnmtopng in/g.pgm > in/twin.png 2>/dev/null
"$PIXBATCH" -D -out gif in/twin.pgm in/twin.png > log 2>&1
check "colliding outputs with -D exit 2" test $? -eq 2
check "colliding outputs are named" grep -q "twin.gif" log
check "colliding inputs kept" test -e in/twin.pgm -a -e in/twin.png -a ! -e in/twin.gif

# 5. The sequence form with the output template.
for n in 1 2 3; do pgmramp -tb 8 8 > "in/s00$n.pgm"; done
"$PIXBATCH" -out gif -in pgm -n 1 3 1 -outname "t#.gif" "$tmp/in/s###.pgm" > log 2>&1
check "sequence status 0" test $? -eq 0
check "sequence outputs" test -e in/t1.gif -a -e in/t2.gif -a -e in/t3.gif
check "sequence outputs are GIF" test "$(head -c 4 in/t3.gif)" = "GIF8"

# 6. Paths from standard input, two at a time; automatic conversion reported.
mkdir many
for n in 1 2 3 4 5 6; do ppmpat -anticamo 30 20 > "many/p$n.ppm"; done
ls "$tmp"/many/*.ppm | "$PIXBATCH" -j 2 -out gif - > log 2>&1
check "stdin -j 2 status 0" test $? -eq 0
check "stdin -j 2 outputs" test "$(ls many/*.gif | wc -l)" -eq 6
check "automatic conversion told" grep -q '6 pictures converted to "256 colors (Adaptive)"' log
check "GIF decodes to the size" test "$(giftopnm many/p4.gif | pnmfile | sed -E 's/.* ([0-9]+) by ([0-9]+).*/\1x\2/')" = "30x20"

# 7. -help lists every option word.
"$PIXBATCH" -help > log
for w in -out -o -D -in -n -outname -size -ctype -corder -npcd -ini -q -j -binary -waves -lens -spread -swirl -shear -tile -slice "-noise poisson" "-edgedetect heavy"; do
  check "help lists $w" grep -qF -- "  $w " log
done

echo "$passed passed, $failures failed"
test $failures -eq 0
