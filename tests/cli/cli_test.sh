#!/usr/bin/env bash
# End-to-end tests of the k5x program.
# usage: cli_test.sh PATH_TO_k5x [PATH_TO_k5x_post_check]
set -u
K5X="$1"
CHECK="${2:-$(dirname "$1")/k5x_post_check}"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
MACHINES="DemoHead Trunnion HeadTable ThreeRotary IndexedTable"
pass=0
fail=0

ok() { pass=$((pass + 1)); }
bad() {
  fail=$((fail + 1))
  echo "FAIL: $*"
}

# run WANTED_STATUS NAME COMMAND...: stdout in $T/out, stderr in $T/err.
run() {
  local want="$1" name="$2"
  shift 2
  "$@" >"$T/out" 2>"$T/err"
  local got=$?
  if [ "$got" -eq "$want" ]; then
    ok
  else
    bad "$name: exit status $got, wanted $want"
    sed 's/^/  | /' "$T/err" | head -5
  fi
}
# has FILE NAME REGEX: FILE has a line matching the extended regex.
has() {
  if grep -Eq -- "$3" "$1"; then ok; else
    bad "$2: no line matching '$3' in $(basename "$1")"
    sed 's/^/  | /' "$1" | head -8
  fi
}
hasnt() {
  if grep -Eq -- "$3" "$1"; then
    bad "$2: unexpected line matching '$3'"
  else ok; fi
}

# cone FILE TILT_DEG N K0 [RADIUS]: N moves on a circle, the tool tilted TILT degrees from the
# vertical direction (0, 0, K0) and turning once around it.
cone() {
  awk -v tilt="$2" -v n="$3" -v k0="$4" -v r="${5:-30}" 'BEGIN {
    pi = 3.141592653589793; t = tilt * pi / 180
    print "# cone of directions around the vertical"
    for (i = 0; i < n; i++) {
      f = 2 * pi * i / n
      printf "%.4f %.4f %.4f %.8f %.8f %.8f\n", r * cos(f), r * sin(f), 5 * sin(3 * f),
             sin(t) * cos(f), sin(t) * sin(f), k0 * cos(t)
    }
  }' >"$1"
}

# ---------------------------------------------------------------- help
run 0 "help" "$K5X" --help
for c in info solve xyz move checksum post; do has "$T/out" "help lists $c" "^  $c"; done
for c in info solve xyz move checksum post; do
  run 0 "$c --help" "$K5X" "$c" --help
  has "$T/out" "$c --help" "^usage: k5x $c"
done
run 2 "unknown command" "$K5X" frobnicate
has "$T/err" "unknown command" "unknown command 'frobnicate'"

# ---------------------------------------------------------------- info
for m in $MACHINES; do
  run 0 "info $m" "$K5X" info "$m"
  has "$T/out" "info $m name" "^machine: $m$"
  has "$T/out" "info $m tool" "AXE_OUTIL .*: tool"
  has "$T/out" "info $m workpiece" "AXE_PIECE .*: workpiece"
  has "$T/out" "info $m checksum 1" "^  mode 1  [0-9a-f]{8}$"
  has "$T/out" "info $m checksum 3" "^  mode 3  [0-9a-f]{8}$"
done
run 0 "info default" "$K5X" info
has "$T/out" "default machine" "^machine: DemoHead$"
"$K5X" info DemoHead >"$T/demo_info"
"$K5X" info Trunnion >"$T/trunnion_info"
has "$T/demo_info" "DemoHead head axes" "AXE_B .*rotary axis B, tool side"
has "$T/demo_info" "DemoHead B travel" "^  B  \[-110 \.\. 110\]"
has "$T/demo_info" "DemoHead collisions" "may collide with AXE_PIECE, AXE_BATI"
has "$T/trunnion_info" "Trunnion table axes" "AXE_C .*rotary axis C, workpiece side"
has "$T/trunnion_info" "Trunnion tool length" "tool length +100$"
run 0 "info IndexedTable" "$K5X" info IndexedTable
has "$T/out" "indexed C" "indexed in 5-degree steps"
has "$T/out" "indexed behaviour" "increment behaviour +1 "

cat >"$T/fork.k5x" <<'EOF'
nommachine = Fork
coursemaximum = AXE_X, 300
courseminimum = AXE_X, -300
longueur = 25
mode = 1
bati = Z, Frame
axe = AXE_X, X, Slide X
axe = AXE_Y, Y, Slide Y
axe = AXE_Z, Z, Ram Z
rotation = AXE_C, Z, 0, 1, 0, 0, 100, Fork C
outil = X, 0, 0, 0
lien = AXE_BATI
piece = X, Y, 0, 0, 0
collision = AXE_C, AXE_PIECE
EOF
run 0 "info file" "$K5X" info "$T/fork.k5x"
has "$T/out" "file name" "^machine: Fork$"
has "$T/out" "file travel" "^  X  \[-300 \.\. 300\]"
has "$T/out" "file tool length" "tool length +25$"
has "$T/out" "file mode" "mode +1 "
has "$T/out" "file collision" "may collide with AXE_PIECE"

run 1 "info missing file" "$K5X" info "$T/nope.k5x"
has "$T/err" "missing file message" "cannot load .*nope.k5x: code 1 \(the file cannot be opened\)"
grep -v '^outil' "$T/fork.k5x" >"$T/notool.k5x"
run 1 "info without tool" "$K5X" info "$T/notool.k5x"
has "$T/err" "no tool message" "code 12 "

# ---------------------------------------------------------------- solve
# DemoHead turns the tool (0, 0, -1) about Y by B, then about Z by C: (0.5, 0, -cos 30) is
# B = -30 with C = 0, or B = 30 with C = 180.
run 0 "solve" "$K5X" solve --ijk 0.5 0 -0.8660254
has "$T/out" "solve result" "^result: +0 "
has "$T/out" "solve chosen" "^chosen: +A +0\.000000 +B +-30\.0000[0-9]{2} +C +0\.000000"
has "$T/out" "solve other" "^solution 2: +A +0\.000000 +B +30\.0000[0-9]{2} +C +-?180\.000000"
run 0 "solve near 170" "$K5X" solve DemoHead --ijk 0.5 0 -0.8660254 --prev 0 0 170
has "$T/out" "solve prefers prev" "^chosen: +A +0\.000000 +B +30\.0000[0-9]{2} +C +180\.000000"
run 0 "solve beyond travel" "$K5X" solve --ijk 0 0 1
has "$T/out" "B out of travel" "^result: +-?5 \(solved, B (above|below) its travel\)"
run 0 "solve unreachable" "$K5X" solve "$T/fork.k5x" --ijk 0 0 1
has "$T/out" "unreachable" "^result: +1 \(unreachable"
run 0 "solve --all" "$K5X" solve Trunnion --ijk 0 0 1 --all
has "$T/out" "free C" "^ +1 +A +0\.000000 +B +0\.000000 +C +0\.000000 +free: C$"
run 0 "solve three rotary" "$K5X" solve ThreeRotary --ijk 0.3 0.2 0.9 --mode 1
has "$T/out" "3r solver" "^solver: +three rotary axes, mode 1"
has "$T/out" "3r result" "^result: +1 \(in-travel solution\)"
hasnt "$T/out" "3r silent" "3r cont"
run 0 "solve three rotary trace" "$K5X" solve ThreeRotary --ijk 0.3 0.2 0.9 --trace
has "$T/out" "3r trace" "^k5x_ex_getabc_3r\(0\) : 3r cont\."
run 2 "solve zero direction" "$K5X" solve --ijk 0 0 0
run 2 "solve without --ijk" "$K5X" solve DemoHead
run 2 "solve bad mode" "$K5X" solve --ijk 0 0 1 --mode 3
run 2 "solve short --ijk" "$K5X" solve --ijk 0 1
run 1 "solve bad machine" "$K5X" solve "$T/nope.k5x" --ijk 0 0 1

# ---------------------------------------------------------------- xyz
# At A = B = C = 0 DemoHead's linear axes carry the tool tip straight onto the point; the tip
# lies the tool length along +Z from the tool's origin (its direction at rest is -Z).
run 0 "xyz" "$K5X" xyz --point 10 20 30 --abc 0 0 0 --tool-length 100
has "$T/out" "xyz axes" "^axes: +X 10\.000000 +Y 20\.000000 +Z -70\.000000 "
has "$T/out" "xyz travel" "^travel: +0 \(within travel\)"
# B = 90 swings the tool tip, 150 below the B pivot, to 150 on the -X side of it.
run 0 "xyz swung" "$K5X" xyz --point 0 0 0 --abc 0 90 0
has "$T/out" "xyz swung axes" "^axes: +X 150\.000000 +Y 0\.000000 +Z -150\.000000 "
run 0 "xyz out of travel" "$K5X" xyz --point 900 0 0 --abc 0 0 0
has "$T/out" "xyz X out" "^travel: +1 \(X above its travel\)"
run 2 "xyz without --abc" "$K5X" xyz --point 0 0 0

# ---------------------------------------------------------------- move
run 0 "move linear" "$K5X" move --from 0 0 0 0 0 0 --to 10 -5 20 0 0 0 --steps 5 --rtcp 0
has "$T/out" "move step 1" "^1 +2\.000000 +-1\.000000 +4\.000000 "
has "$T/out" "move last step" "^5 +10\.000000 +-5\.000000 +20\.000000 "
has "$T/out" "move result" "^result: 0 .*, 5 steps$"
run 0 "move equal ends" "$K5X" move --from 1 2 3 0 10 20 --to 1 2 3 0 10 20
has "$T/out" "move one step" "^result: 0 .*, 1 steps$"
run 0 "move clamped" "$K5X" move --from 0 0 0 0 -100 0 --to 0 0 0 0 100 0 --tolerance 0.0001
has "$T/out" "move 500" "^result: 7 .*, 500 steps$"
run 0 "move out of travel" "$K5X" move --from 0 0 0 0 0 0 --to 1000 0 0 0 0 0 --steps 4 --rtcp 0
has "$T/out" "move first out" "^result: 1 \(first: X above its travel\)"
has "$T/out" "move row out" "^4 +1000\.000000 .* 1 +out-of-travel X\+"

# ---------------------------------------------------------------- checksum
cp "$T/fork.k5x" "$T/fork_copy.k5x"
sed 's/0, 0, 100, Fork C/0, 0, 101, Fork C/' "$T/fork.k5x" >"$T/fork_moved.k5x"
run 0 "checksum" "$K5X" checksum "$T/fork.k5x" "$T/fork_copy.k5x" "$T/fork_moved.k5x"
if [ "$(wc -l <"$T/out")" -eq 3 ]; then ok; else bad "checksum: one line per machine"; fi
read -r a1 a2 a3 _ < <(sed -n 1p "$T/out")
read -r b1 b2 b3 _ < <(sed -n 2p "$T/out")
read -r c1 _ < <(sed -n 3p "$T/out")
if [ "$a1" = "$a2" ]; then ok; else bad "checksum: modes 1 and 2 differ"; fi
if [ "$a1 $a3" = "$b1 $b3" ]; then ok; else bad "checksum: copies differ"; fi
if [ "$a1" != "$c1" ]; then ok; else bad "checksum: a moved pivot gives the same checksum"; fi
run 1 "checksum with a bad file" "$K5X" checksum "$T/nope.k5x" DemoHead
has "$T/out" "checksum goes on" "^[0-9a-f]{8} [0-9a-f]{8} [0-9a-f]{8}  DemoHead$"
has "$T/err" "checksum reports" "cannot load .*nope.k5x"

# ---------------------------------------------------------------- post
# A small toolpath on each embedded machine; every row goes back through the library.
for m in $MACHINES; do
  k0=1
  [ "$m" = DemoHead ] && k0=-1
  cone "$T/cone_$m.txt" 25 37 "$k0"
  run 0 "post $m" "$K5X" post --machine "$m" "$T/cone_$m.txt" -o "$T/cone_$m.csv"
  if [ -s "$T/out" ]; then bad "post $m: CSV on stdout despite -o"; else ok; fi
  has "$T/err" "post $m summary" "moves read +37$"
  run 0 "post $m check" "$CHECK" "$m" "$T/cone_$m.txt" "$T/cone_$m.csv"
  has "$T/out" "post $m checked" "^checked [0-9]+ moves"
done
# Subdivided, with and without compensation, and a three-rotary machine in mode 1.
for rtcp in 0 1; do
  run 0 "post subdivide rtcp $rtcp" "$K5X" post --machine DemoHead "$T/cone_DemoHead.txt" \
    --subdivide --rtcp "$rtcp" --tolerance 0.01 -o "$T/sub.csv"
  run 0 "post subdivide check rtcp $rtcp" "$CHECK" DemoHead "$T/cone_DemoHead.txt" "$T/sub.csv"
  has "$T/out" "subdivide inserts rows" "checked 37 moves \(0 unreachable, [1-9][0-9]* inserted"
done
run 0 "post 3r mode 1" "$K5X" post --machine ThreeRotary --mode 1 "$T/cone_ThreeRotary.txt" \
  -o "$T/3r.csv"
run 0 "post 3r mode 1 check" "$CHECK" ThreeRotary "$T/cone_ThreeRotary.txt" "$T/3r.csv"
has "$T/3r.csv" "3r solver code" "^[0-9]+,[^,]*,[^,]*,[^,]*,[^,]*,[^,]*,[^,]*,1,0,ok$"
run 0 "post tool length" "$K5X" post --machine Trunnion --tool-length 40 "$T/cone_Trunnion.txt" \
  -o "$T/tl.csv"
run 0 "post tool length check" "$CHECK" Trunnion "$T/cone_Trunnion.txt" "$T/tl.csv" \
  --tool-length 40
run 0 "post start auto" "$K5X" post --machine Trunnion --start auto "$T/cone_Trunnion.txt" \
  -o "$T/auto.csv"
run 0 "post start auto check" "$CHECK" Trunnion "$T/cone_Trunnion.txt" "$T/auto.csv"

# Continuity: tilted 30 degrees and turning 3 degrees per move, C follows smoothly (no flips).
cone "$T/smooth.txt" 30 240 -1 50
run 0 "post smooth" "$K5X" post "$T/smooth.txt" -o "$T/smooth.csv"
run 0 "post smooth continuity" "$CHECK" DemoHead "$T/smooth.txt" "$T/smooth.csv" --max-jump 3.5
# ...and a machine that must flip: through the vertical, B changes sign or C turns half round.
printf '0 -10 40 0 -0.24 -0.97\n0 0 40 0 0 -1\n0 10 40 0 0.24 -0.97\n' >"$T/pole.txt"
run 0 "post through the pole" "$K5X" post "$T/pole.txt" -o "$T/pole.csv"
run 0 "post through the pole check" "$CHECK" DemoHead "$T/pole.txt" "$T/pole.csv"

# An unreachable move is reported in its row, counted, and does not stop the run.
printf '0 0 0 1 0 0\n0 0 0 0 0 1\n0 0 0 0 1 0\n' >"$T/fork_path.txt"
run 0 "post unreachable" "$K5X" post --machine "$T/fork.k5x" "$T/fork_path.txt" -o "$T/fork.csv"
has "$T/fork.csv" "unreachable row" "^2,,,,,,,1,,unreachable$"
has "$T/err" "unreachable count" "unreachable moves +1$"
run 0 "post unreachable check" "$CHECK" "$T/fork.k5x" "$T/fork_path.txt" "$T/fork.csv"
has "$T/out" "checked with unreachable" "checked 2 moves \(1 unreachable"

# Out of travel: B is limited to 110 degrees on DemoHead.
printf '0 0 0 0 0 -1\n0 0 0 0.8 0 0.6\n' >"$T/far.txt"
run 0 "post out of travel" "$K5X" post "$T/far.txt" -o "$T/far.csv"
has "$T/far.csv" "out-of-travel row" "^2,.*,out-of-travel:B[+-]$"
has "$T/err" "out-of-travel count" "out-of-travel positions +1 \(B 1\)"

# Blanks, commas, CRLF, comments and standard input all read the same moves.
printf '# comment\n\n1 2 3 0 0 -1\n  4,5,6 , 0.1,0,-1\r\n7\t8\t9\t0\t0.1\t-1\n' >"$T/forms.txt"
run 0 "post forms" "$K5X" post "$T/forms.txt"
cp "$T/out" "$T/forms.csv"
has "$T/forms.csv" "comma line" "^4,"
has "$T/forms.csv" "tab line" "^5,"
if [ "$(wc -l <"$T/forms.csv")" -eq 4 ]; then ok; else bad "post forms: 3 rows and a header"; fi
run 0 "post stdin" "$K5X" post - <"$T/forms.txt"
if cmp -s "$T/out" "$T/forms.csv"; then ok; else bad "post stdin differs from file"; fi
run 0 "post piped" bash -c "cat '$T/forms.txt' | '$K5X' post"
if cmp -s "$T/out" "$T/forms.csv"; then ok; else bad "post piped stdin differs from file"; fi
run 0 "post empty stdin" "$K5X" post </dev/null
if [ "$(cat "$T/out")" = "line,X,Y,Z,A,B,C,solver,travel,status" ]; then ok; else
  bad "post empty input: header only"; fi

# Malformed lines: FILE:LINE: reason and status 2; nothing replaces an existing -o file.
for bad_line in "1 2 3 0 0" "1 2 x 0 0 1" "1 2 3 0 0 0" "1 2 3 0 0 1 7" "1,,2,3,0,0,1" "1 2 3 nan 0 1"; do
  printf '0 0 0 0 0 -1\n\n%s\n0 0 0 0 0 -1\n' "$bad_line" >"$T/bad.txt"
  echo OLD >"$T/keep.csv"
  run 2 "post malformed '$bad_line'" "$K5X" post "$T/bad.txt" -o "$T/keep.csv"
  has "$T/err" "malformed '$bad_line' message" "^$T/bad.txt:3: "
  if [ "$(cat "$T/keep.csv")" = OLD ]; then ok; else bad "malformed: -o file was replaced"; fi
done
if ls "$T" | grep -q 'k5x-'; then bad "post left temporary files"; else ok; fi
printf '0 0 0 0 0 -1\n0 0 0 0 0 0\n' >"$T/zero.txt"
run 2 "post zero direction" "$K5X" post "$T/zero.txt"
has "$T/err" "zero direction message" "zero.txt:2: zero tool direction"

# --skip-bad: counted, reported, and the good lines still posted and correct.
printf '0 0 0 0 0 -1\nfoo\n1 1 1 0.1 0 -1\n1 2 3\n2 2 2 0 0.1 -1\n' >"$T/skip.txt"
run 0 "post skip-bad" "$K5X" post --skip-bad "$T/skip.txt" -o "$T/skip.csv"
has "$T/err" "skip-bad count" "malformed lines skipped +2$"
has "$T/err" "skip-bad line 2" "skip.txt:2: .*\(skipped\)"
has "$T/err" "skip-bad line 4" "skip.txt:4: expected 6 numbers"
run 0 "post skip-bad check" "$CHECK" DemoHead "$T/skip.txt" "$T/skip.csv"
has "$T/out" "skip-bad rows" "checked 3 moves"

# Unreadable inputs.
run 1 "post missing toolpath" "$K5X" post "$T/missing.txt"
has "$T/err" "missing toolpath message" "cannot open .*missing.txt"
run 1 "post directory toolpath" "$K5X" post "$T"
has "$T/err" "directory message" "cannot read"
run 1 "post bad machine" "$K5X" post --machine "$T/nope.k5x" "$T/forms.txt"
has "$T/err" "bad machine message" "cannot load .*nope.k5x: code 1"
run 1 "post unwritable output" "$K5X" post "$T/forms.txt" -o "$T/no/such/dir/out.csv"
run 2 "post bad option" "$K5X" post --frobnicate
run 2 "post bad rtcp" "$K5X" post --rtcp 5 "$T/forms.txt"

# The SVG: well-formed XML with both panels, limits drawn, failures marked.
run 0 "post svg" "$K5X" post "$T/far.txt" --svg "$T/plot.svg" -o "$T/far2.csv"
if command -v xmllint >/dev/null; then
  run 0 "svg well-formed (xmllint)" xmllint --noout "$T/plot.svg"
else
  run 0 "svg well-formed (python)" python3 -c "import sys, xml.etree.ElementTree as E; E.parse(sys.argv[1])" "$T/plot.svg"
fi
has "$T/plot.svg" "svg xyz panel" '<g id="panel-xyz">'
has "$T/plot.svg" "svg abc panel" '<g id="panel-abc">'
has "$T/plot.svg" "svg limits" 'class="limit"'
has "$T/plot.svg" "svg failure mark" 'class="out-of-travel"'

# The demo: the whole job with no input at all.
run 0 "post demo" "$K5X" post --demo --svg "$T/demo.svg"
has "$T/err" "demo summary" "moves read +[1-9][0-9]{2}$"
has "$T/err" "demo reaches every move" "unreachable moves +0$"
has "$T/out" "demo header" "^line,X,Y,Z,A,B,C,solver,travel,status$"

echo "$pass passed, $fail failed"
[ "$fail" -eq 0 ]
