// The machines compiled into the library: the program's defaults and the tests' and examples'
// machines, loadable by name from every API.
#include "cpp/embedded.h"

#include "cpp/k5x.hpp"
#include "cpp/machine_impl.h"

namespace k5x {

namespace {

// A head with two rotary axes on the tool side: C about Z, then B about Y.
const char kDemoHead[] =
    "nommachine = DemoHead\n"
    "coursemaximum = AXE_X, 800\n"
    "courseminimum = AXE_X, -800\n"
    "coursemaximum = AXE_B, 110\n"
    "courseminimum = AXE_B, -110\n"
    "tolerance = 0.05\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X, 200, 200, 200\n"
    "axe = AXE_Y, Y, Slide Y, 200, 200, 200\n"
    "axe = AXE_Z, Z, Ram Z, 180, 180, 180\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 300, Fork C, 90, 90, 220\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 150, Head B, 90, 90, 220\n"
    "outil = -Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, -500\n"
    "position = 0, 0, 0, 0, 0, 0\n"
    "collision = AXE_OUTIL, AXE_PIECE, AXE_BATI\n";

// Table-table: a tilting trunnion A about X carrying a rotary table C; no `position` line, so the
// offsets come from the geometry.
const char kTrunnion[] =
    "nommachine = Trunnion\n"
    "coursemaximum = AXE_X, 600\n"
    "courseminimum = AXE_X, -600\n"
    "coursemaximum = AXE_Y, 500\n"
    "courseminimum = AXE_Y, -500\n"
    "coursemaximum = AXE_Z, 700\n"
    "courseminimum = AXE_Z, -100\n"
    "coursemaximum = AXE_A, 30\n"
    "courseminimum = AXE_A, -120\n"
    "longueur = 100\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X, 200, 200, 200\n"
    "axe = AXE_Y, Y, Slide Y, 200, 200, 200\n"
    "axe = AXE_Z, Z, Ram Z, 180, 180, 180\n"
    "outil = Z, 0, 0, 250\n"
    "lien = AXE_BATI\n"
    "rotation = AXE_A, X, 0, 1, 0, 0, 0, Trunnion A, 90, 90, 220\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C, 90, 220, 90\n"
    "piece = X, Y, 0, 0, 0\n"
    "collision = AXE_OUTIL, AXE_PIECE, AXE_A\n";

// Head-table: a B head on the tool side and a C table on the workpiece side.
const char kHeadTable[] =
    "nommachine = HeadTable\n"
    "coursemaximum = AXE_B, 95\n"
    "courseminimum = AXE_B, -95\n"
    "longueur = 80\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 120, Head B\n"
    "outil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// Three rotary axes: an A/B head over a C table.
const char kThreeRotary[] =
    "nommachine = ThreeRotary\n"
    "coursemaximum = AXE_A, 45\n"
    "courseminimum = AXE_A, -45\n"
    "coursemaximum = AXE_B, 100\n"
    "courseminimum = AXE_B, -100\n"
    "longueur = 60\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_A, X, 0, 1, 0, 0, 250, Head A\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 150, Head B\n"
    "outil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// Head-table with a C table that indexes in 5-degree steps.
const char kIndexed[] =
    "nommachine = IndexedTable\n"
    "coursemaximum = AXE_B, 95\n"
    "courseminimum = AXE_B, -95\n"
    "coursemaximum = AXE_C, 360\n"
    "courseminimum = AXE_C, -360\n"
    "longueur = 80\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 120, Head B\n"
    "outil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n"
    "increment = AXE_C, 5\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

const EmbeddedMachine kMachines[] = {
    {"DemoHead", "head-head: C and B on the spindle head (default)", kDemoHead},
    {"Trunnion", "table-table: A trunnion carrying a C table", kTrunnion},
    {"HeadTable", "head-table: B head over a C table", kHeadTable},
    {"ThreeRotary", "three rotary axes: A/B head over a C table", kThreeRotary},
    {"IndexedTable", "head-table with a C table indexed in 5-degree steps", kIndexed},
};

}  // namespace

const EmbeddedMachine* embedded_machine_table(int* count) {
  *count = static_cast<int>(sizeof kMachines / sizeof kMachines[0]);
  return kMachines;
}

std::vector<std::string> embedded_machines() {
  std::vector<std::string> names;
  for (const EmbeddedMachine& m : kMachines) names.push_back(m.name);
  return names;
}

Machine Machine::embedded(const std::string& name) {
  for (const EmbeddedMachine& m : kMachines)
    if (name == m.name) return from_text(m.text);
  throw LoadError(1, "no embedded machine is called '" + name + "'");
}

}  // namespace k5x
