#include "cli/cli_common.h"

#include <cstdio>

#include "cli/embedded_machines.h"

namespace k5x_cli {

const char* load_code_text(int code) {
  switch (code) {
    case 0: return "loaded";
    case 1: return "the file cannot be opened";
    case 2: return "`bati` is not the first record";
    case 3: return "nine records exist already";
    case 4: return "the current record already has two children";
    case 5: return "axis line whose first field is not AXE_X to AXE_C";
    case 6: return "axis line with a numeric direction of zero length";
    case 7: return "`outil` without a current record";
    case 8: return "`outil` with a numeric direction of zero length";
    case 9: return "`piece` without a current record";
    case 10: return "`piece` with a zero direction or two parallel directions";
    case 11: return "`lien` with a field other than AXE_BATI";
    case 12: return "no frame for `lien`, or the frame, tool or workpiece is missing";
    case 15: return "`collision` names no existing record";
    case 16: return "`nommachine` with an empty name";
    case 17: return "a number field longer than 255 characters";
    default: return "unknown load code";
  }
}

bool load_or_report(const std::string& spec) {
  std::string label;
  const int code = load_machine_spec(spec, &label);
  if (code == 0) return true;
  std::fprintf(stderr, "k5x: cannot load %s: code %d (%s)\n", label.c_str(), code,
               load_code_text(code));
  return false;
}

}  // namespace k5x_cli
