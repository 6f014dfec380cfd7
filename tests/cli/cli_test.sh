#!/usr/bin/env bash
# End-to-end tests of the k5x program. usage: cli_test.sh PATH_TO_k5x [PATH_TO_k5x_post_check]
set -u
K5X="$1"
CHECK="${2:-$(dirname "$1")/k5x_post_check}"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
pass=0 fail=0
verdict() { if [ "$2" -eq 0 ]; then ((++pass)); else ((++fail)) && echo "FAIL: $1"; fi; }
run() {  # run WANTED_STATUS NAME COMMAND...: stdout in $T/out, stderr in $T/err
  "${@:3}" >"$T/out" 2>"$T/err"
  local got=$?
  verdict "$2: exit status $got, wanted $1" $((got != $1))
  [ "$got" -eq "$1" ] || sed 's/^/  | /' "$T/err" | head -5
}
has() {  # has FILE REGEX...: FILE has a line matching each extended regex
  local re
  for re in "${@:2}"; do
    grep -Eq -- "$re" "$1"
    verdict "no line matching '$re' in ${1##*/}" $?
  done
}
# posted MACHINE TOOLPATH 'CHECKER OPTIONS' [POST OPTIONS...]: posts into $T/p.csv (summary in
# $T/post.err), then puts every row back through the library. Toolpaths are in the CAM sense
# (tip towards spindle); DemoHead's file points its tool the other way.
posted() {
  run 0 "post $1 $2 ${*:4}" "$K5X" post --machine "$1" "$2" -o "$T/p.csv" "${@:4}"
  mv "$T/err" "$T/post.err"
  run 0 "check $1 $2 ${*:4}" "$CHECK" "$1" "$2" "$T/p.csv" $3 $([ "$1" = DemoHead ] && echo --flip)
}
cone() {  # cone FILE TILT N K0 [RADIUS]: N moves on a circle, the tool TILT degrees off (0, 0, K0)
  awk -v tilt="$2" -v n="$3" -v k0="$4" -v r="${5:-30}" 'BEGIN { t = tilt * 3.141592653589793 / 180
    for (i = 0; i < n; i++) { f = 6.283185307179586 * i / n
      printf "%.4f %.4f %.4f %.8f %.8f %.8f\n", r * cos(f), r * sin(f), 5 * sin(3 * f),
             sin(t) * cos(f), sin(t) * sin(f), k0 * cos(t) } }' >"$1"
}
walk() {  # walk FILE N SEED: the tool axis wandering over the upper half, through vertical
  awk -v n="$2" -v seed="$3" 'function noise(i) { v = sin(i * 12.9898 + seed * 78.233) * 43758.5453
      v -= int(v); return v < 0 ? v + 1 : v }
    BEGIN { th = 0.3; ph = 0; x = 0; y = 0; dth = 0; dph = 0
      for (i = 0; i < n; i++) {
        dth = 0.9 * dth + 0.02 * (noise(2 * i) - 0.5); dph = 0.9 * dph + 0.2 * (noise(2 * i + 1) - 0.5)
        th += dth; ph += dph; if (th < 0) { th = -th; ph += 3.14159265 } if (th > 1.5) th = 3 - th
        x += noise(3 * i) - 0.5; y += noise(5 * i) - 0.5
        printf "%.4f %.4f %.4f %.8f %.8f %.8f\n", 2 * x, 2 * y, 10 * sin(i * 0.01),
               sin(th) * cos(ph), sin(th) * sin(ph), cos(th) } }' >"$1"
}
printf '%s\n' "bati = Z, F" "axe = AXE_X, X, X" "axe = AXE_Y, Y, Y" "axe = AXE_Z, Z, Z" \
  "rotation = AXE_C, Z, 0, 1, 0, 0, 100, C" "outil = X, 0, 0, 0" "lien = AXE_BATI" \
  "piece = X, Y, 0, 0, 0" >"$T/fork.k5x"  # a C fork with the tool along X: it cannot point up

run 0 "info" "$K5X" info IndexedTable
has "$T/out" "^machine: IndexedTable$" "indexed in 5-degree steps"
# The machine as a word or after --machine, as k5x post takes it.
run 0 "info Trunnion" "$K5X" info --machine Trunnion  # the trunnion carries the workpiece: -pi/180
has "$T/out" "rotary axis A, workpiece side, factor -0\.0174532925$"
run 1 "info directory" "$K5X" info "$T"
has "$T/err" "code 12 .*it is a directory$"
# DemoHead turns the tool (0, 0, -1) by B about Y, then by C about Z: (0.5, 0, -cos 30) is
# B = -30 with C = 0, or B = 30 with C = 180; at 0 the tip is the tool length along +Z.
run 0 "solve" "$K5X" solve --ijk 0.5 0 -0.8660254
has "$T/out" "^chosen: +A +0\.000000 +B +-30\.0000[0-9]{2} +C +0\.000000" \
  "^solution 2: +A +0\.000000 +B +30\.0000[0-9]{2} +C +-?180\.000000"
run 0 "solve --all" "$K5X" solve Trunnion --ijk 0 0 1 --all
has "$T/out" "^ +1 +A +0\.000000 +B +0\.000000 +C +0\.000000 +free: C$"
run 0 "solve three rotary" "$K5X" solve ThreeRotary --ijk 0.3 0.2 0.9 --mode 1
has "$T/out" "^solver: +three rotary axes, mode 1" "^result: +1 \(in-travel solution\)"
# --all lists the machine as loaded, whatever windows and locks the three-rotary solver left.
printf '%s\n' "courseminimum = AXE_A, -45" "coursemaximum = AXE_A, 45" "bati = Z, F" \
  "axe = AXE_X, X, X" "axe = AXE_Y, Y, Y" "axe = AXE_Z, Z, Z" \
  "rotation = AXE_A, X, 0, 1, 0, 0, 250, A" "rotation = AXE_B, Y, 0, 1, 0, 0, 150, B" \
  "outil = Z, 0, 0, 0" "lien = AXE_BATI" "rotation = AXE_C, Z, 0, 1, 0, 0, 0, C" \
  "increment = AXE_C, 15" "piece = X, Y, 0, 0, 0" >"$T/3r15.k5x"
for m in 0 1 2; do
  "$K5X" solve "$T/3r15.k5x" --ijk 0.3 0.2 0.9 --mode $m --all | grep "^all"
done >"$T/all"
[ "$(sort -u "$T/all" | wc -l)" -eq 1 ] && [ "$(wc -l <"$T/all")" -eq 3 ]
verdict "solve --all depends on the three-rotary mode" $?
run 0 "solve huge direction" "$K5X" solve --ijk 0 0 -1e300  # the tool's rest direction
has "$T/out" "^result: +0 "
run 2 "info two machines" "$K5X" info Trunnion --machine DemoHead
has "$T/err" "more than one machine given"
run 0 "xyz" "$K5X" xyz --point 10 20 30 --abc 0 0 0 --tool-length 100
has "$T/out" "^axes: +X 10\.000000 +Y 20\.000000 +Z -70\.000000 "
run 0 "move" "$K5X" move --from 0 0 0 0 0 0 --to 10 -5 20 0 0 0 --steps 5 --rtcp 0
has "$T/out" "^1 +2\.000000 +-1\.000000 +4\.000000 " "^result: 0 .*, 5 steps$"
sed 's/100, C/101, C/' "$T/fork.k5x" >"$T/moved.k5x"
run 0 "checksum" "$K5X" checksum "$T/fork.k5x" --machine "$T/moved.k5x"
[ "$(cut -c1-8 "$T/out" | sort -u | wc -l)" -eq 2 ]
verdict "checksum: a moved pivot gives the same sum" $?

# post: a small toolpath on each embedded machine, subdivided, on three rotary axes in mode 1,
# with another tool length and with the start found for the first direction.
for m in DemoHead Trunnion HeadTable ThreeRotary IndexedTable; do
  cone "$T/cone_$m.txt" 25 37 1
  posted "$m" "$T/cone_$m.txt" ""
  posted "$m" "$T/cone_$m.txt" "--tolerance 0.01 --angle-tolerance 0.5" --subdivide --tolerance 0.01
  has "$T/out" "checked 37 moves \(0 unreachable, [1-9][0-9]* inserted"
done
for rtcp in 0 1; do
  posted DemoHead "$T/cone_DemoHead.txt" "--formula" --subdivide=formula --rtcp "$rtcp" \
    --tolerance 0.01
  has "$T/out" "checked 37 moves \(0 unreachable, [1-9][0-9]* inserted"
done
# Chosen over the path: from the vertical, the trunnion tilts to A -82.87 with C 90, in travel,
# where the nearest solution (A 82.87) is not; --choice nearest keeps the solver's tie rule.
printf '0 0 0 0 0 1\n0 0 0 -0.9922779 0 0.1240347\n' >"$T/tie.txt"
posted Trunnion "$T/tie.txt" ""
has "$T/p.csv" "^2,.*,-82\.87[0-9]*,0\.000000,90\.000000,0,0,ok$"
run 0 "post --choice nearest" "$K5X" post --machine Trunnion "$T/tie.txt" --choice nearest
has "$T/out" "^2,.*,out-of-travel:A\+$"
# A table turning 12.8 degrees sweeps the tip 0.6 off the straight move: rows are inserted.
printf '%s\n' "-0.2540 30.4800 30.9397 -0.0776750 0.0466075 0.9958887" \
  "-7.8308 30.4800 30.3809 -0.0687233 0.0659169 0.9954557" >"$T/sweep.txt"
posted HeadTable "$T/sweep.txt" "--tolerance 0.05 --angle-tolerance 0.5" --subdivide
has "$T/out" "checked 2 moves \(0 unreachable, [1-9][0-9]* inserted"
has "$T/post.err" "largest deviation left +0\.0[0-4]"
# Through the vertical on three rotary axes the table stays where it is.
printf '0 0 0 0.2 0.1 0.97\n0 0 0 0 0 1\n0 0 0 0.2 0.1 0.97\n' >"$T/vertical3.txt"
posted ThreeRotary "$T/vertical3.txt" ""
[ "$(cut -d, -f7 "$T/p.csv" | sort -u | wc -l)" -eq 2 ]
verdict "three rotary: C moved at the vertical" $?
# So does the trunnion's C where the example's dome ends on top and the tool leaves along the
# table's axis: the solver's own answer there would turn it 43 degrees.
run 0 "post Trunnion example" "$K5X" post --machine Trunnion \
  "$(dirname "$0")/../../examples/dome_and_wall.apt"
[ "$(tail -n 3 "$T/out" | cut -d, -f7 | sort -u | wc -l)" -eq 1 ]
verdict "trunnion: C moved at the vertical" $?
# A long rotation on an unlimited table winds on; --wrap modulo writes it in [0, 360).
cone "$T/turns.txt" 20 360 1 && cat "$T/turns.txt" "$T/turns.txt" "$T/turns.txt" >"$T/turns3.txt"
posted HeadTable "$T/turns3.txt" ""
has "$T/post.err" "C range +-?[0-9.]+ \.\. -?1[0-9]{3}\.[0-9]+ degrees|C range +-1[0-9]{3}\.[0-9]+ \.\. "
run 0 "post --wrap modulo" "$K5X" post --machine HeadTable "$T/turns3.txt" --wrap modulo
awk -F, 'NR > 1 && ($7 < 0 || $7 >= 360) { bad = 1 } END { exit bad }' "$T/out"
verdict "post --wrap modulo: C outside [0, 360)" $?
run 0 "info tool axis" "$K5X" info DemoHead
has "$T/out" "^tool axis: +from the spindle towards the tip"
# Accepting 3 degrees of deviation, the indexed C table lands on its 5-degree steps.
run 0 "post IndexedTable --increment-tolerance 3" "$K5X" post --machine IndexedTable \
  "$T/cone_IndexedTable.txt" --increment-tolerance 3
awk -F, 'NR > 1 && ($7 / 5 != int($7 / 5) || $7 == "") { bad = 1 } END { exit bad }' "$T/out"
verdict "post --increment-tolerance: C off its 5-degree steps" $?
has "$T/err" "largest increment deviation +[0-9.]*[1-9]"
grep -q "off the indexed steps" "$T/err"
verdict "post --increment-tolerance 3: positions counted off the steps" $((1 - $?))
run 0 "post IndexedTable, always snapped, subdivided" "$K5X" post --machine IndexedTable \
  "$T/cone_IndexedTable.txt" --increment-tolerance 0 --subdivide
grep -q "off the indexed steps" "$T/err"
verdict "post --increment-tolerance 0: inserted positions counted off the steps" $((1 - $?))
run 0 "post IndexedTable, the default increment tolerance" "$K5X" post --machine IndexedTable \
  "$T/cone_IndexedTable.txt"
has "$T/err" "^  off the indexed steps +[1-9][0-9]*$" "warning: positions off the indexed axes' steps: [0-9]+"
posted ThreeRotary "$T/cone_ThreeRotary.txt" "" --mode 1
has "$T/p.csv" "^[0-9]+(,[^,]*){6},1,0,ok$"
# The shared CAM toolpaths (inches, GOTO/ records) on every machine: in travel and within
# tolerance between rows.
shared=0
for f in "$(dirname "$0")"/../../../shared/toolpaths/*.txt; do
  [ -f "$f" ] || continue
  shared=$((shared + 1))
  awk -F'[/,]' '/^GOTO\// { sub(/ *\$\$.*/, ""); if (NF >= 7) { i = $5; j = $6; k = $7 }
    printf "%.5f %.5f %.5f %s %s %s\n", 25.4 * $2, 25.4 * $3, 25.4 * $4, i, j, k }' \
    "$f" >"$T/cam.txt"
  for m in DemoHead Trunnion HeadTable ThreeRotary IndexedTable; do
    posted "$m" "$T/cam.txt" "--tolerance 0.05 --angle-tolerance 0.5" --start auto --subdivide
    has "$T/post.err" "out-of-travel positions +0$"
    # The indexed table's C turns 720 degrees in all: where the tool winds further round a
    # wall, it must unwind, and the checker has seen each unwind turn round.
    [ "$m" = IndexedTable ] && grep -q "unwinds forced" "$T/post.err" || has "$T/post.err" "swings over 45 in cuts +0$"
  done
done
[ "$shared" -ge 2 ]
verdict "the shared toolpaths beside the checkout were not found" $?
# A tool axis wandering through vertical, near it and away again, at random: within tolerance
# on every machine (where a pole pass used to swing a table round a cone, or a deviation peaked
# between the points checked).
for seed in 1 3 4; do
  walk "$T/walk.txt" 3000 "$seed"
  for m in DemoHead Trunnion HeadTable ThreeRotary IndexedTable; do
    posted "$m" "$T/walk.txt" "--tolerance 0.05 --angle-tolerance 0.5" --start auto --subdivide
    has "$T/post.err" "out-of-travel positions +0$"
    # Solved on the reading thread, planned on another: the same rows.
    "$K5X" post --machine "$m" "$T/walk.txt" --start auto --subdivide --threads 2 2>/dev/null |
      cmp -s - "$T/p.csv"
    verdict "post $m --threads 2: rows differ from one thread's" $?
  done
done
# The same files read as APT (local frames, rapids), straight to G-code on every machine: records
# counted, in travel and within tolerance (the program's text is among the recorded outputs).
# The rapids between passes are where the indexed table unwinds; within a pass that winds 2,520
# degrees round a wall it must unwind three times (the least C's 720 degrees allow).
for f in "$(dirname "$0")"/../../../shared/toolpaths/*.txt; do
  for m in DemoHead Trunnion HeadTable ThreeRotary IndexedTable; do
    run 0 "post APT $m $f" "$K5X" post --machine "$m" "$f" --start auto --subdivide \
      --retract-z 200 -o "$T/i.nc"
    has "$T/err" "out-of-travel positions +0$" "largest deviation left +0\.0[0-4][0-9]* mm \(tip" \
      "records not acted on .*PAINT [0-9]+" "APT moves .*inches, converted to mm"
    # From wherever the machine stands: up, the rotary axes, over the point, down.
    grep -m3 -E "^G0 " "$T/i.nc" | sed 's/[-.0-9]*//g' | tr '\n' ' ' | grep -Eq '^G Z G [ABC ]+ G X Y $'
    verdict "$m $f: the first position is not reached from the retract height" $?
    # And every later tool is changed up there, and the program ends there.
    awk '/M6$/ && seen++ && last != "G0 Z200.0000" { bad = 1 } !/^\(/ { last = $0 } END { exit bad }' \
      "$T/i.nc"
    verdict "$m $f: a tool is changed below the retract height" $?
    [ "$(grep -E '^(G[0-9]+ )*[XYZABC]-?[0-9]' "$T/i.nc" | tail -1)" = "G0 Z200.0000" ]
    verdict "$m $f: the program ends below the retract height" $?
    case "$m $f" in
      IndexedTable*Project2*) has "$T/err" "unwinds forced in cuts +6$" ;;
      *) grep -q unwinds "$T/err"; verdict "$m: unwinds on $f" $((1 - $?)) ;;
    esac
  done
done
# What the program writes for the shared files, the example and a walk over several planning
# windows, on every machine: the same as when it was last looked over, digit for digit
# (tests/data/post_outputs.txt). When a change is meant to move them, record them again:
# K5X_RECORD=1 and this test.
outputs="$(dirname "$0")/../data/post_outputs.txt"
walk "$T/long_walk.txt" 30000 2
for g in "$(dirname "$0")"/../../../shared/toolpaths/*.txt "$(dirname "$0")"/../../examples/*.apt \
    "$T/long_walk.txt"; do
  for m in DemoHead Trunnion HeadTable ThreeRotary IndexedTable; do
    for o in "" "--output gcode --subdivide --retract-z 200" "--start auto --subdivide"; do
      sum=$("$K5X" post --machine "$m" "$g" $o 2>/dev/null |
        grep -v '^(date\|^(k5x post \|^(toolpath ' | sha256sum | cut -c1-16)
      echo "$m $(basename "$g") ${o:-csv} $sum"
    done
  done
done >"$T/outputs"
if [ -n "${K5X_RECORD:-}" ]; then cp "$T/outputs" "$outputs"; fi
diff "$outputs" "$T/outputs"
verdict "post: the outputs of the shared files differ from those recorded" $?
# More threads, the same program byte for byte (but for the header's date and command).
"$K5X" post --machine IndexedTable "$f" --start auto --subdivide --retract-z 200 --threads 2 \
  -o "$T/p2.nc" 2>/dev/null
cmp -s <(grep -v '^(date\|^(k5x post ' "$T/i.nc") <(grep -v '^(date\|^(k5x post ' "$T/p2.nc")
verdict "post --threads 2: the G-code differs from one thread's" $?
run 0 "post APT IndexedTable, no retract height" "$K5X" post --machine IndexedTable \
  "$(dirname "$0")"/../../../shared/toolpaths/mech491_APT_Project2.txt -o "$T/i.nc"
has "$T/err" "warning: .*no Z limit.*--retract-z" \
  "warning: rapids that swing the rotary axes more than 30 degrees .*: [0-9]+; --retract-z" \
  "warning: the toolpath starts no spindle" "warning: the toolpath loads 3 tools"
has "$T/i.nc" "^\(line [0-9]+: the rotary axes must turn round in the cut" \
  "^\(line [0-9]+: the rotary axes swing [0-9]+ degrees in this rapid"
# Each tool placed with its own length: every position of tool 2 (lines 4632 to 4736 of the
# file) and tool 3 (from 5323) moves by the difference along the tool axis, tool 1's not at
# all; two threads agree, and a tool left without a length, or a length for no tool, is named.
p2="$(dirname "$0")"/../../../shared/toolpaths/mech491_APT_Project2.txt
run 0 "post APT HeadTable to CSV" "$K5X" post --machine HeadTable "$p2" -o "$T/l0.csv"
# The largest jump there is a rapid's, and no cut swings: the summary must not read as a fault.
has "$T/err" "largest rotary jump .*\(B, line 4555, a rapid\)$" "swings over 45 in cuts +0$"
for t in 1 2; do
  run 0 "post --tool-length T=L, $t threads" "$K5X" post --machine HeadTable "$p2" --threads $t \
    --tool-length 2=95.5 --tool-length 3=60 --tool-length 7=1 -o "$T/l$t.csv"
done
cmp -s "$T/l1.csv" "$T/l2.csv"
verdict "post --tool-length T=L: two threads differ from one" $?
paste -d, "$T/l0.csv" "$T/l1.csv" | awk -F, 'NR > 1 {
  want = $1 >= 5323 ? 20 : ($1 >= 4632 && $1 < 4737 ? 15.5 : 0)
  d = sqrt(($2 - $12) ^ 2 + ($3 - $13) ^ 2 + ($4 - $14) ^ 2)
  if (d - want > 1e-5 || want - d > 1e-5 || $5 != $15 || $6 != $16 || $7 != $17) bad++ }
  END { exit bad > 0 }'
verdict "post --tool-length T=L: a tool's positions not moved by its length" $?
has "$T/err" "positions of tool 1 are for one tool length, 80 \(" "loads no tool 7$"
# Solving never takes a tool's length (on three rotary axes it would): one thread and two agree.
for t in 1 2; do
  "$K5X" post --machine ThreeRotary "$p2" --choice nearest --tool-length 1=150 --threads $t \
    -o "$T/r$t.csv" 2>/dev/null
done
cmp -s "$T/r1.csv" "$T/r2.csv"
verdict "post ThreeRotary --tool-length T=L: two threads differ from one" $?
# A cut straight after a tool change is subdivided as any other: under --tcp the program does
# not depend on the lengths at all.
printf 'UNITS/MM\nLOAD/TOOL,1\nGOTO/0,0,10,0,0,1\nGOTO/20,0,10,0,0.5,0.8660254\nLOAD/TOOL,2\n%s\n' \
  'GOTO/30,0,10,0.5,0,0.8660254' >"$T/change.apt"
for o in "" "--tool-length 2=150"; do
  "$K5X" post --machine Trunnion "$T/change.apt" --subdivide --output gcode --tcp $o 2>/dev/null |
    grep -v '^(k5x post \|^(date' >"$T/tcp${o:+1}.nc"
done
cmp -s "$T/tcp.nc" "$T/tcp1.nc"
verdict "post --tcp: the program depends on --tool-length" $?
# Circular moves are G2/G3 blocks where they can be (the unit tests check their geometry); with
# --arcs off, or a dialect without arc words, chords. The rest of the program is the same, but
# for the G1 that follows an arc.
run 0 "post APT with arcs" "$K5X" post --machine HeadTable "$p2" --output gcode
has "$T/out" "^G2 X-?[0-9.]+ Y-?[0-9.]+ I-?[0-9.]+ J-?[0-9.]+ F[0-9.]+$"
has "$T/err" "G-code blocks +[0-9]+ \([0-9]+ arcs\)$"
grep -v '^(date\|^(k5x post ' "$T/out" | grep -Ev '^(G93 )?G[23] ' | sed 's/^G1 //' >"$T/arcs.nc"
printf 'arc_cw =\n' >"$T/noarc.dialect"
for o in "--arcs off" "--dialect $T/noarc.dialect"; do
  run 0 "post APT $o" "$K5X" post --machine HeadTable "$p2" --output gcode $o
  ! grep -Eq '^(G93 )?G[23] ' "$T/out"
  verdict "post $o: an arc is written" $?
  # Without the arcs' own blocks, what is left of the program with arcs is in this one in order.
  grep -v '^(date\|^(k5x post ' "$T/out" | sed 's/^G1 //' | diff - "$T/arcs.nc" | grep -q '^>'
  verdict "post $o: blocks outside the arcs differ" $((1 - $?))
done
run 2 "post --arcs sideways" "$K5X" post "$p2" --output gcode --arcs sideways
# A program for linear axes is measured even unsubdivided: the deviation its warning names is what
# a client finds putting the rows back through the library (which allows 5% over), no less.
cone "$T/cone24.txt" 30 24 1
run 0 "post G-code, deviation measured" "$K5X" post --machine HeadTable "$T/cone24.txt" -o "$T/c.nc" \
  --subdivide=none
dev=$(grep -o "leaves the programmed moves, the tip by up to [0-9.e+-]*" "$T/err" | awk '{print $NF}')
posted HeadTable "$T/cone24.txt" "--tolerance ${dev:-0} --angle-tolerance 180"
run 1 "check within 90% of the deviation measured" "$CHECK" HeadTable "$T/cone24.txt" "$T/p.csv" \
  --tolerance "$(awk -v d="${dev:-0}" 'BEGIN { print d * 0.9 }')" --angle-tolerance 180
# Subdivided by default, unless the controller interpolates the tool tip itself.
for o in "" --tcp; do
  run 0 "post G-code $o, no deviation" "$K5X" post --machine HeadTable "$T/cone24.txt" -o "$T/c.nc" $o
  ! grep -q "linearly" "$T/err"
  verdict "post G-code $o: warned of a deviation" $?
done
has "$T/err" "positions written +24$"
run 0 "post G-code subdivided by default" "$K5X" post --machine HeadTable "$T/cone24.txt" -o "$T/c.nc"
has "$T/err" "largest deviation left +0\.0[0-4]"
# A cut that turns the tool round has no direction half way: what the subdivision leaves is said.
printf '0 0 0 0 0 1\n10 0 0 1 0 0\n20 0 0 -1 0 0\n' >"$T/reverse.txt"
run 0 "post G-code, a cut that turns the tool round" "$K5X" post "$T/reverse.txt" -o "$T/c.nc"
has "$T/err" "warning: the subdivision could not keep the tool within tolerance on every move: .*the axis by up to 90 degrees \(toolpath line 3"
# Lengths go the file's way: DemoHead points its tool from the spindle to the tip.
run 0 "post --tool-length of the wrong sign" "$K5X" post "$p2" --tool-length 150 -o /dev/null
has "$T/err" "warning: --tool-length 150 puts the tool tip on the spindle's side.*negative$"
run 0 "post --tool-length of the right sign" "$K5X" post "$p2" --tool-length 2=-150 -o /dev/null
! grep -q "spindle's side" "$T/err"
verdict "post --tool-length 2=-150: warned of the sign" $?
for bad in 0=5 x=5 1= =3; do
  run 2 "post --tool-length $bad" "$K5X" post "$p2" --tool-length "$bad"
done
run 0 "post APT --tcp --feed per-minute --dialect rs274ngc" "$K5X" post --machine Trunnion \
  "$f" --output gcode --tcp --feed per-minute --dialect rs274ngc --line-numbers --units mm
has "$T/out" "^N[0-9]+ G43\.4 H[0-9]+$" "^N[0-9]+ G94 G1 .*F[0-9.]+$" "^N[0-9]+ M2$" "^N[0-9]+ G49$" "^%$"
! grep -q "^N[0-9]* *%" "$T/out"
verdict "post --line-numbers: a tape mark is numbered" $?
has "$T/err" "APT moves .*\(mm\)"
# Vertical cuts, then a tilt that needs C a quarter turn away: C turns evenly over the
# cuts around the pole, unless a rapid is among them, which then takes the whole swing.
{ printf 'UNITS/MM\nMULTAX\nFEDRAT/MMPM,500\n'
  for i in 0 1 2 3 4 5 6 7; do printf 'GOTO/%d,0,0,0,0,1\n' $((i * 10)); done
  printf 'GOTO/80,0,50,0.5,0,0.8660254\nGOTO/80,10,0,0.5,0,0.8660254\n'; } >"$T/pole.apt"
sed '/^GOTO\/80,0,50/i RAPID' "$T/pole.apt" >"$T/pole_rapid.apt"
run 0 "post, a swing at the pole" "$K5X" post --machine Trunnion "$T/pole.apt"
[ "$(cut -d, -f7 "$T/out" | sed -n '2,9p' | tr '\n' ' ')" = \
  "10.000000 20.000000 30.000000 40.000000 50.000000 60.000000 70.000000 80.000000 " ]
verdict "post: C does not turn evenly over the cuts at the pole" $?
run 0 "post, a swing at the pole before a rapid" "$K5X" post --machine Trunnion "$T/pole_rapid.apt"
[ "$(cut -d, -f7 "$T/out" | sed -n '2,9p' | sort -u)" = "0.000000" ]
verdict "post: the cuts at the pole turn C although a rapid follows" $?
# A move no solution brings within travel is written as planned, marked for the operator.
printf '0 0 10 0 0 1\n5 0 10 0 0 -1\n' >"$T/under.txt"
run 0 "post G-code out of travel" "$K5X" post "$T/under.txt" --output gcode
has "$T/out" "^\(line 2: out of travel: B\+\)$" \
  "^G0 X0\.0000 Y0\.0000 Z15\.0000 B0\.000 C0\.000$" "^G93 G1 Z10\.0000 F200\.000$"
# SPINDL/ON before any speed starts the spindle all the same.
printf 'UNITS/MM\nMULTAX\nSPINDL/ON\nGOTO/0,0,10,0,0,1\nGOTO/1,0,10,0,0,1\n' >"$T/on.apt"
run 0 "post SPINDL/ON without a speed" "$K5X" post "$T/on.apt" --output gcode
has "$T/out" "^M3$"
! grep -q "starts no spindle" "$T/err"
verdict "post SPINDL/ON: warned that no spindle starts" $?
# The program ends with the spindle and coolant stopped, once: after the toolpath's own stops,
# not again. INSERT puts its text in the program as a block.
has "$T/out" "^M5 M9$"
printf 'UNITS/MM\nMULTAX\nSPINDL/900\nCOOLNT/ON\nGOTO/0,0,10,0,0,1\nINSERT/M01\nCOOLNT/OFF\n%s\n' \
  'SPINDL/OFF' >"$T/off.apt"
run 0 "post stops in the toolpath" "$K5X" post "$T/off.apt" --output gcode
has "$T/out" "^M01$"
[ "$(grep -c '^M5' "$T/out")$(grep -c 'M9$' "$T/out")" = 11 ]
verdict "post: spindle or coolant stopped twice at the end" $?
# Malformed records: FILE:LINE: reason, status 2, nothing written; --skip-bad goes on.
printf 'UNITS/MM\nGOTO/0,0,10,0,0,1\nGOTO/1,2\nGOTO/5,0,10\n' >"$T/bad.apt"
for t in 1 2; do
  run 2 "post bad APT --threads $t" "$K5X" post "$T/bad.apt" -o "$T/bad.nc" --threads $t
  has "$T/err" "^$T/bad.apt:3: GOTO/ needs 3 numbers, found 2$"
  [ ! -e "$T/bad.nc" ]
  verdict "bad APT: an output file was left" $?
  run 0 "post bad APT --skip-bad --threads $t" "$K5X" post "$T/bad.apt" --skip-bad \
    --output gcode --threads $t
  has "$T/err" "bad.apt:3: .*\(skipped\)" "moves read +2$"
  has "$T/out" "^(G93 G1 )?X5\.0000"
done
# Stopped while it writes (its toolpath a pipe left open): the output file is not left
# half-written, nor its temporary file. (A job started here ignores SIGINT, as nohup'd
# programs ignore SIGHUP: an ignored signal stays ignored.)
mkfifo "$T/fifo"
for sig in TERM HUP; do
  "$K5X" post --input xyz "$T/fifo" -o "$T/cut.csv" 2>/dev/null &
  pid=$!
  exec 3>"$T/fifo"
  printf '1 2 3 0 0 1\n' >&3
  for _ in $(seq 100); do ls "$T" | grep -q 'cut\.csv\.k5x-' && break; sleep 0.1; done
  kill -$sig $pid
  exec 3>&-  # a program that lived on would now end, and the test with it
  wait $pid 2>/dev/null
  status=$?
  [ $status -gt 128 ] && ! ls "$T" | grep -q 'cut\.csv'
  verdict "post interrupted by SIG$sig: status $status, or a file left" $?
done
# Control bytes in a file reach neither the terminal nor the controller: messages show them as
# \xNN, G-code comments as blanks.
printf 'UNITS/MM\n$$ red \033[31m alert\nGOTO/0,0,10,0,0,1\nGOTO/1,\033x,3\nPA\033INT/1\n' >"$T/esc.apt"
run 0 "post APT with escapes" "$K5X" post "$T/esc.apt" --skip-bad --output gcode
has "$T/out" "^\(red  \[31m alert\)$"
has "$T/err" "esc.apt:4: GOTO/: not a number: '.x1bx' \(skipped\)$" "records not acted on +PA.x1bINT 1"
{ printf 'nommachine = F\033[2Jork\n'; cat "$T/fork.k5x"; } >"$T/esc.k5x"
"$K5X" info "$T/esc.k5x" >>"$T/out" 2>>"$T/err"
has "$T/out" "^machine: F.x1b\[2Jork$"
! grep -q $'\033' "$T/out" "$T/err"
verdict "an escape byte reached the output or the terminal" $?
# Records but no move (the wrong file, most often): a warning, not a quiet empty program.
printf 'UNITS/MM\nPAINT/COLOR,1\n' >"$T/nomove.apt"
run 0 "post APT without moves" "$K5X" post "$T/nomove.apt" --output gcode
has "$T/err" "^k5x post: warning: no moves in $T/nomove.apt \(read as APT / CLSF records\)$"
printf 'program_end = M2\ncomment_open ;\n' >"$T/bad.dialect"
run 2 "post bad dialect" "$K5X" post "$T/bad.apt" --skip-bad --output gcode --dialect "$T/bad.dialect"
has "$T/err" "^$T/bad.dialect:2: expected 'key = value'$"
posted Trunnion "$T/cone_Trunnion.txt" "--tool-length 40" --tool-length 40
# Turning 3 degrees per move, C follows smoothly; through the vertical the machine must flip.
cone "$T/smooth.txt" 30 240 1 50
posted DemoHead "$T/smooth.txt" "--max-jump 3.5"
printf '0 -10 40 0 0.24 0.97\n0 0 40 0 0 1\n0 10 40 0 -0.24 0.97\n' >"$T/pole.txt"
posted DemoHead "$T/pole.txt" ""
# Unreachable and out-of-travel (B beyond 110) moves are reported in their rows and counted.
printf '0 0 0 1 0 0\n0 0 0 0 0 1\n0 0 0 0 1 0\n' >"$T/fork_path.txt"
posted "$T/fork.k5x" "$T/fork_path.txt" ""
has "$T/p.csv" "^2,,,,,,,1,,unreachable$"
printf '0 0 0 0 0 1\n0 0 0 -0.8 0 -0.6\n' >"$T/far.txt"
run 0 "post out of travel" "$K5X" post "$T/far.txt" --svg "$T/plot.svg"
has "$T/out" "^2,.*,out-of-travel:B[+-]$"
has "$T/err" "out-of-travel positions +1 \(B 1\)" "unreachable moves +0$"
python3 -c "import sys, xml.etree.ElementTree as E; E.parse(sys.argv[1])" "$T/plot.svg"
verdict "svg is not well-formed XML" $?
has "$T/plot.svg" '<g id="panel-xyz">' '<g id="panel-abc">' 'class="limit"' 'class="out-of-travel"'
# Blanks, commas, CRLF, comments and standard input ('-') read the same moves; with no
# toolpath the demo runs, terminal or not.
printf '# comment\n\n1 2 3 0 0 1\n  4,5,6 , -0.1,0,1\r\n7\t8\t9\t0\t-0.1\t1\n' >"$T/forms.txt"
posted DemoHead "$T/forms.txt" ""
run 0 "post stdin" "$K5X" post - <"$T/forms.txt"
cmp -s "$T/out" "$T/p.csv"
verdict "post stdin differs from file" $?
# A toolpath that cannot be read twice (a pipe, a FIFO) has its format and unit told from its
# content as a file has; an output onto the toolpath itself is refused and leaves it whole.
va="$(dirname "$0")/../../../shared/toolpaths/mech491_APT_Variable_Axis.txt"
"$K5X" post "$va" >"$T/va.csv" 2>/dev/null
run 0 "post APT piped" "$K5X" post - < <(cat "$va")
cmp -s "$T/out" "$T/va.csv"
verdict "post: APT piped differs from the file" $?
run 0 "post APT through a FIFO" "$K5X" post <(cat "$va")
cmp -s "$T/out" "$T/va.csv"
verdict "post: APT through a FIFO differs from the file" $?
cp "$va" "$T/va.apt"
run 0 "post /dev/null to /dev/null" "$K5X" post /dev/null -o /dev/null
run 2 "post -o onto the toolpath" "$K5X" post "$T/va.apt" -o "$T/va.apt"
cmp -s "$va" "$T/va.apt"
verdict "post -o onto the toolpath changed it" $?
run 0 "post, no toolpath, no terminal" "$K5X" post </dev/null
has "$T/err" "running the embedded demo" "moves read +[1-9][0-9]{2}$"
# Malformed lines: FILE:LINE: reason and status 2 (hostile_post.sh sees -o left as it was).
while IFS='|' read -r bad_line reason; do
  printf '0 0 0 0 0 -1\n\n%s\n0 0 0 0 0 -1\n' "$bad_line" >"$T/bad.txt"
  run 2 "post malformed '$bad_line'" "$K5X" post "$T/bad.txt" </dev/null
  has "$T/err" "^$T/bad.txt:3: .*$reason"
done <<'EOF'
1 2 3 0 0|6 numbers
1 2 x 0 0 1|not a number
1 2 3 0 0 0|zero tool direction
1 2 3 0 0 1 7|more than 6
1,,2,3,0,0,1|empty field
1 2 3 nan 0 1|nan
1 2 +-3 0 0 1|not a number
EOF
printf '0 0 0 0 0 1\nfoo\n1 1 1 -0.1 0 1\n1 2 3\n2 2 2 0 -0.1 1\n' >"$T/skip.txt"
posted DemoHead "$T/skip.txt" "" --skip-bad
has "$T/out" "checked 3 moves"
has "$T/post.err" "malformed lines skipped +2$" "skip.txt:2: .*skipped" "skip.txt:4: .*6 numbers"
run 1 "post missing toolpath" "$K5X" post "$T/missing.txt"
has "$T/err" "cannot open .*missing.txt"
run 1 "post bad machine" "$K5X" post --machine "$T/nope.k5x" "$T/forms.txt"
has "$T/err" "cannot load .*nope.k5x: code 1 \(the file cannot be opened\)$"
printf 'bati = Z, F\naxe = AXE_X, X, X\noutil = 0, 0, 0, 0\n' >"$T/zero_tool.k5x"
run 1 "post, a machine line in error" "$K5X" post --machine "$T/zero_tool.k5x" "$T/forms.txt"
has "$T/err" "^$T/zero_tool.k5x:3: code 8 \(.*zero length\); .*fails with code 12 "
run 1 "post misspelt machine" "$K5X" post --machine Trunion "$T/forms.txt"
has "$T/err" "cannot load Trunion: code 1 .*nor is it an embedded machine"
run 2 "post bad option" "$K5X" post --rtcp 5 "$T/forms.txt"
run 2 "post unknown dialect" "$K5X" post --output gcode --dialect fanuc "$T/forms.txt"
has "$T/err" "no dialect fanuc: the shipped ones are iso and rs274ngc"
run 0 "post --tcp with CSV" "$K5X" post "$T/forms.txt" --tcp
has "$T/err" "warning: --tcp applies to G-code output only"
run 0 "version" "$K5X" --version
has "$T/out" "^k5x [0-9]+\.[0-9]+\.[0-9]+$"
run 2 "post empty machine" "$K5X" post --machine "" "$T/forms.txt"
run 0 "post demo" "$K5X" post --demo
has "$T/err" "moves read +[1-9][0-9]{2}$" "unreachable moves +0$"
# Values 16 apart near 1e17 (one double spacing), and a direction whose squares overflow.
printf '%s\n' "1e17 1e17 99999999999999920 0 0 1" "0 0 0 1e200 0 1e200" \
  "100000000000000016 100000000000000016 99999999999999936 0 0 1" >"$T/huge.txt"
run 0 "post huge values --svg" bash -c 'ulimit -f 10000; exec timeout 20 "$@"' _ "$K5X" post \
  --machine HeadTable "$T/huge.txt" --svg "$T/huge.svg"
has "$T/out" "^2,.*,0,0,ok$"

echo "$pass passed, $fail failed"
[ "$fail" -eq 0 ]
