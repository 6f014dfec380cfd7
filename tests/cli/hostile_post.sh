#!/usr/bin/env bash
# k5x post on long hostile input: valid moves among malformed lines, NaN, 1e308, overlong lines
# and NUL bytes. With --skip-bad every valid move is written exactly once and every bad line is
# reported once as FILE:LINE; without it the run stops at the first bad line with status 2 and
# leaves -o as it was. usage: hostile_post.sh PATH_TO_k5x [LINES]
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
open(d + "/good", "w").write("\n".join(map(str, good)) + "\n")
open(d + "/bad", "w").write("\n".join(map(str, bad)) + "\n")
PY

"$K5X" post --machine Trunnion "$T/path.txt" --skip-bad -o "$T/out.csv" 2>"$T/err"
verdict "post --skip-bad: exit status $?" $?
tail -n +2 "$T/out.csv" | cut -d, -f1 >"$T/written"
cmp -s "$T/written" "$T/good"
verdict "every valid move written exactly once, in order" $?
grep -oE "^$T/path.txt:[0-9]+:" "$T/err" | sed 's/.*txt:\([0-9]*\):/\1/' >"$T/reported"
cmp -s "$T/reported" "$T/bad"
verdict "every bad line reported exactly once" $?

# The same on more threads: the same rows and the same reports, byte for byte.
"$K5X" post --machine Trunnion "$T/path.txt" --skip-bad -o "$T/out2.csv" --threads 2 2>"$T/err2"
cmp -s "$T/out.csv" "$T/out2.csv" && cmp -s <(grep -v elapsed "$T/err") <(grep -v elapsed "$T/err2")
verdict "--threads 2: rows or reports differ from one thread's" $?

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
