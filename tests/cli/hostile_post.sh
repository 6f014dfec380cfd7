#!/usr/bin/env bash
# k5x post on long hostile input: valid moves among malformed lines, NaN, 1e308, overlong lines
# and NUL bytes. With --skip-bad every valid move is written exactly once and every bad line is
# reported once as FILE:LINE; without it the run stops at the first bad line with status 2 and
# leaves -o as it was. An APT file as hostile posts the same on two threads as on one.
# usage: hostile_post.sh PATH_TO_k5x [LINES]
set -u
K5X="$1"
LINES="${2:-100000}"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
pass=0 fail=0
verdict() { if [ "$2" -eq 0 ]; then ((++pass)); else ((++fail)) && echo "FAIL: $1"; fi; }

# The toolpath, and beside it the numbers of its valid and of its bad lines.
python3 - "$T" "$LINES" <<'PY'
import math, random, sys
d, n = sys.argv[1], int(sys.argv[2])
random.seed(20261124)
good, bad = [], []
overlong = 0
M = 1 << 20
edges = {n // 7: b"9" * (M - 1) + b"\n", n // 5: b"9" * M + b"\n", n // 3: b"9" * (M - 1) + b"\r\n",
         n // 2: b"9" * (M - 2) + b"\r\n", 2 * n // 3: b"9" * (M + 1) + b"\n"}
with open(d + "/path.txt", "wb") as f:
    for line in range(1, n + 1):
        r = random.random()
        if line in edges:
            # Around the longest line taken, CR LF counted in: each reported as too long or
            # as out of range, the same on every thread count.
            f.write(edges.pop(line))
            bad.append(line)
            continue
        if r < 0.9:
            t, a = math.radians(random.uniform(0, 60)), random.uniform(0, 2 * math.pi)
            v = [random.uniform(-100, 100) for _ in range(3)] + [math.sin(t) * math.cos(a), math.sin(t) * math.sin(a), math.cos(t)]
            if random.random() < 0.01:
                v[random.randrange(3)] = 1e308  # finite: a valid, if absurd, move
            end = "" if line == n else "\r\n" if line % 11 == 0 else "\n"  # the last line unended
            f.write((" ".join("%.6g" % x for x in v) + end).encode())
            good.append(line)
            continue
        kind = random.randrange(6)
        if kind == 0:
            text = b"1 2 3 nan 0 1"
        elif kind == 1:
            text = b"1 2 3 0 0"
        elif kind == 2:
            text = b"1 2 x 0 0 1"
        elif kind == 3:
            text = b"1 2 3 0 0 1" + b"\0" + b" 4"
        elif kind == 4 and overlong < 3:
            text = b"9" * (2 << 20)  # longer than the reader takes: a few are enough
            overlong += 1
        elif kind == 4:
            text = b"-nan 0 0 0 0 1"
        else:
            text = b"1e999 0 0 0 0 1"
        f.write(text + b"\n")
        bad.append(line)

# APT records of every kind around the same edges, and one record continued over more lines
# than are read at a time.
with open(d + "/path.apt", "wb") as f:
    f.write(b"UNITS/MM\nMULTAX\n")
    for line in range(1, n + 1):
        r = random.random()
        end = b"" if line == n else b"\r\n" if line % 13 == 0 else b"\n"
        t, a = math.radians(random.uniform(0, 60)), random.uniform(0, 2 * math.pi)
        v = [random.uniform(-100, 100) for _ in range(3)]
        v += [math.sin(t) * math.cos(a), math.sin(t) * math.sin(a), math.cos(t)]
        nums = ",".join("%.6f" % x for x in v).encode()
        if line == n // 2:
            text = b"GOTO/1,2,$" + b"\n  $" * 9000 + b"\n3,0,0,1"
        elif line in (n // 7, n // 5, n // 3):
            pad = M - 1 + [n // 7, n // 5, n // 3].index(line)  # around the longest line
            text = b"GOTO/1,2," + b"0" * (pad - 10) + b"3"
        elif r < 0.8:
            name = random.choice([b"GOTO/", b"goto / ", b" GOTO/ "])
            text = name + nums.replace(b",", random.choice([b",", b" , "]))
        elif r < 0.84:
            cut = nums.index(b",", 20) + 1
            text = b"GOTO/" + nums[:cut] + b"$\n" + nums[cut:]
        elif r < 0.88:
            text = random.choice([b"$$ a comment", b"GOTO/" + nums + b" $$ note", b"RAPID",
                                  b"PPRINT/ x $\nGOTO/" + nums])  # one record, no move
        elif r < 0.92:
            text = random.choice([b"FEDRAT/ 1200", b"SPINDL/ 9000, CLW", b"COOLNT/ ON",
                                  b"MULTAX/ OFF", b"MULTAX/ ON", b"LOADTL/ 2", b"LOAD/TOOL,1",
                                  b"INSERT/ M01", b"PARTNO a part", b"CIRCLE/0,0,0,0,0,1,50",
                                  b"CIRCLE/10,0,0,0,1,0,30,TIMES,2", b"CIRCLE/0,0,0,1,0,0,0.1",
                                  b"CIRCLE/0,0,0,0.6,0,0.8,1e300", b"CIRCLE/0,0,0,0,0,0,5",
                                  b"GOTO/50,0,0,0,0,1\nCIRCLE/0,0,0,0,0,1,50\nGOTO/0,50,0"])
        else:
            text = random.choice([b"GOTO/1,2", b"GOTO/1,x,3", b"GOTO/1,2,3,0,0,0",
                                  b"GOTO/1e999,0,0", b"GOTO/1,2,3,4", b"GOTO/1,2,3\0x"])
        f.write(text + end)
open(d + "/good", "w").write("\n".join(map(str, good)) + "\n")
open(d + "/bad", "w").write("\n".join(map(str, bad)) + "\n")
PY

"$K5X" post --machine Trunnion "$T/path.txt" --skip-bad -o "$T/out.csv" --tool-length 2=150 \
  2>"$T/err"
verdict "post --skip-bad: exit status $?" $?
tail -n +2 "$T/out.csv" | cut -d, -f1 >"$T/written"
cmp -s "$T/written" "$T/good"
verdict "every valid move written exactly once, in order" $?
grep -oE "^$T/path.txt:[0-9]+:" "$T/err" | sed 's/.*txt:\([0-9]*\):/\1/' >"$T/reported"
cmp -s "$T/reported" "$T/bad"
verdict "every bad line reported exactly once" $?

# The same on more threads: the same rows and the same reports, byte for byte.
"$K5X" post --machine Trunnion "$T/path.txt" --skip-bad -o "$T/out2.csv" --threads 2 \
  --tool-length 2=150 2>"$T/err2"
cmp -s "$T/out.csv" "$T/out2.csv" && cmp -s <(grep -v elapsed "$T/err") <(grep -v elapsed "$T/err2")
verdict "--threads 2: rows or reports differ from one thread's" $?

for output in csv gcode; do
  "$K5X" post --machine Trunnion "$T/path.apt" --skip-bad --output $output -o "$T/apt1" 2>"$T/err"
  verdict "APT post --skip-bad --output $output: exit status $?" $?
  "$K5X" post --machine Trunnion "$T/path.apt" --skip-bad --output $output -o "$T/apt2" \
    --threads 2 2>"$T/err2"
  header='^(date \|^(k5x post '  # the date and the command line differ
  cmp -s <(grep -v "$header" "$T/apt1") <(grep -v "$header" "$T/apt2") &&
    cmp -s <(grep -v elapsed "$T/err") <(grep -v elapsed "$T/err2")
  verdict "APT --output $output --threads 2: output or reports differ from one thread's" $?
done

echo OLD >"$T/keep.csv"
"$K5X" post --machine Trunnion "$T/path.txt" -o "$T/keep.csv" 2>"$T/err2"
[ $? -eq 2 ]
verdict "without --skip-bad: status 2" $?
first=$(head -1 "$T/bad")
grep -q "^$T/path.txt:$first: " "$T/err2"
verdict "without --skip-bad: the first bad line reported" $?
[ "$(cat "$T/keep.csv")" = OLD ] && ! ls "$T" | grep -q 'k5x-'
verdict "without --skip-bad: -o untouched, no temporary file left" $?

echo "$pass passed, $fail failed"
[ "$fail" -eq 0 ]
