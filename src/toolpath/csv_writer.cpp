#include "toolpath/csv_writer.h"

namespace k5x {

namespace {
const int kDecimals = 6;
const char* const kFlagText[6][2] = {{"X-", "X+"}, {"Y-", "Y+"}, {"Z-", "Z+"},
                                     {"A-", "A+"}, {"B-", "B+"}, {"C-", "C+"}};
}  // namespace

void CsvWriter::write_header() { out_->put("line,X,Y,Z,A,B,C,solver,travel,status\n"); }

void CsvWriter::position(const PlannedPosition& p) {
  out_->put_int(p.line);
  if (!p.reachable) {
    out_->put(",,,,,,,", 7);
    out_->put_int(p.solver_code);
    out_->put(",,unreachable\n", 14);
    return;
  }
  for (int k = 0; k < 6; ++k) {
    out_->put(',');
    out_->put_fixed(p.axes[k], kDecimals);
  }
  out_->put(',');
  // Inserted positions were not asked of the solver as such.
  if (!p.inserted) out_->put_int(p.solver_code);
  out_->put(',');
  out_->put_int(p.travel_code);
  if (p.travel_code == 0) {
    if (p.unwind)
      out_->put(",unwind\n", 8);
    else
      out_->put(",ok\n", 4);
    return;
  }
  out_->put(",out-of-travel:", 15);
  for (int k = 0; k < 6; ++k) {
    const int f = p.travel_flags[k];
    if (f != 0) out_->put(kFlagText[k][f > 0], 2);
  }
  out_->put('\n');
}

}  // namespace k5x
