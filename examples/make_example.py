#!/usr/bin/env python3
"""Writes examples/dome_and_wall.apt: a small five-axis job in APT/CLSF text, as a CAM system
would hand it to k5x post. A swarf pass along a wall leaning out 15 degrees round a boss, then a
variable-axis spiral over a dome with the tool normal to it: a tool load each, rapids, feed
changes, spindle and coolant. Millimetres; tool axes from the tip towards the spindle.

usage: examples/make_example.py [OUTPUT]   (default: dome_and_wall.apt beside this script)
"""
import math
import os
import sys


def goto(out, p, a=None):
    if a is None:
        out.append("GOTO/%.4f,%.4f,%.4f" % p)
    else:
        out.append("GOTO/%.4f,%.4f,%.4f,%.7f,%.7f,%.7f" % (p + a))


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        os.path.dirname(os.path.abspath(__file__)), "dome_and_wall.apt")
    out = ["$$ k5x example: a swarf pass round a leaning wall, then a pass over a dome",
           "PARTNO/K5X EXAMPLE", "UNITS/MM", "MULTAX/ON",
           "TOOL PATH/WALL_SWARF,TOOL,FLAT_10", "TLDATA/MILL,10.0000,0.0000,40.0000,0.0000,0.0000",
           "LOADTL/1", "SPINDL/9000,CLW", "COOLNT/FLOOD"]
    # The wall: a cone round the Z axis, radius 60 at its foot, leaning out 15 degrees; the
    # tool's side lies on it, the tip 2 above the floor.
    lean, radius, n = math.radians(15.0), 60.0, 120
    def wall(i):
        f = 2.0 * math.pi * i / n
        d = (math.cos(f), math.sin(f))
        tip = (radius * d[0], radius * d[1], 2.0)
        axis = (math.sin(lean) * d[0], math.sin(lean) * d[1], math.cos(lean))
        return tip, axis
    tip, axis = wall(0)
    out.append("RAPID")
    goto(out, (tip[0], tip[1], 60.0), axis)
    out.append("RAPID")
    goto(out, (tip[0], tip[1], 10.0))
    out.append("FEDRAT/MMPM,400.0000")
    goto(out, tip)
    out.append("FEDRAT/MMPM,900.0000")
    for i in range(1, n + 1):
        goto(out, *wall(i))
    out.append("RAPID")
    goto(out, (tip[0], tip[1], 80.0))
    out.append("END-OF-PATH")

    out += ["TOOL PATH/DOME_SPIRAL,TOOL,BALL_8", "TLDATA/MILL,8.0000,4.0000,35.0000,0.0000,0.0000",
            "LOADTL/2", "SPINDL/12000,CLW", "PPRINT/DOME OF RADIUS 40, TOOL NORMAL TO IT"]
    # The dome: a sphere of radius 40 centred 10 below the floor; the tool centre rides 4 above
    # it, the tip on the surface, the axis along the outward normal; three turns from 55
    # degrees off the top to the top.
    r, turns, m = 40.0, 3, 180
    def dome(i):
        s = i / m
        polar = math.radians(55.0 * (1.0 - s))
        f = 2.0 * math.pi * turns * s
        nrm = (math.sin(polar) * math.cos(f), math.sin(polar) * math.sin(f), math.cos(polar))
        return (r * nrm[0], r * nrm[1], r * nrm[2] - 10.0), nrm
    tip, axis = dome(0)
    out.append("RAPID")
    goto(out, (tip[0] + 30.0 * axis[0], tip[1] + 30.0 * axis[1], tip[2] + 30.0 * axis[2]), axis)
    out.append("FEDRAT/MMPM,300.0000")
    goto(out, tip)
    out.append("FEDRAT/MMPM,1200.0000")
    for i in range(1, m + 1):
        goto(out, *dome(i))
    out.append("RAPID")
    goto(out, (0.0, 0.0, 80.0), (0.0, 0.0, 1.0))
    out += ["COOLNT/OFF", "SPINDL/OFF", "END-OF-PATH", "FINI"]
    with open(path, "w") as f:
        f.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
