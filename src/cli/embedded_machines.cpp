#include "cli/embedded_machines.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "k5x.h"

namespace k5x_cli {

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

const EmbeddedMachine* embedded_machines(int* count) {
  *count = static_cast<int>(sizeof kMachines / sizeof kMachines[0]);
  return kMachines;
}

const EmbeddedMachine* find_embedded_machine(const std::string& name) {
  for (const EmbeddedMachine& m : kMachines)
    if (name == m.name) return &m;
  return nullptr;
}

int load_machine_arg(const std::string& machine_arg, std::string* label) {
  return load_machine_arg(machine_arg, label, [](const char* path) { return k5x_machine_def(path); });
}

int load_machine_arg(const std::string& machine_arg, std::string* label,
                     const std::function<int(const char*)>& load) {
  const EmbeddedMachine* m =
      machine_arg.empty() ? &kMachines[0] : find_embedded_machine(machine_arg);
  if (m == nullptr) {
    if (label) *label = machine_arg;
    return load(machine_arg.c_str());
  }
  if (label) *label = std::string("embedded machine ") + m->name;
  // The library reads files only: hand it the text through a private temporary file.
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/k5x-machine-XXXXXX";
  const int fd = mkstemp(&path[0]);
  if (fd < 0) return 1;
  const std::string text = m->text;
  const ssize_t written = write(fd, text.data(), text.size());
  close(fd);
  const int code = written == static_cast<ssize_t>(text.size()) ? load(path.c_str()) : 1;
  unlink(path.c_str());
  return code;
}

}  // namespace k5x_cli
