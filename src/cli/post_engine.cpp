#include "cli/post_engine.h"

#include <cmath>

#include "cli/cli_common.h"
#include "k5x.h"

namespace k5x_cli {

namespace {
const int kDecimals = 6;
const char* const kFlagText[6][2] = {{"X-", "X+"}, {"Y-", "Y+"}, {"Z-", "Z+"},
                                     {"A-", "A+"}, {"B-", "B+"}, {"C-", "C+"}};
}  // namespace

PostEngine::PostEngine(OutBuffer* out, SvgPlot* svg) : out_(out), svg_(svg) {}

void PostEngine::configure(const double start_abc[3], bool start_auto, int mode3r,
                           bool subdivide) {
  three_rotary_ = machine_has_three_rotary();
  mode3r_ = mode3r;
  subdivide_ = subdivide;
  start_pending_ = start_auto;
  for (int i = 0; i < 3; ++i) {
    prev_[i] = start_abc[i];
    present_rotary_[i] = machine_has_axis(4 + i);
    fixe_[i] = k5x_axe_fixe_get(4 + i);
  }
  for (int k = 0; k < 6; ++k) {
    travel_min_[k] = k5x_axe_course_minimum(k + 1);
    travel_max_[k] = k5x_axe_course_maximum(k + 1);
  }
}

void PostEngine::restore_machine() {
  for (int k = 0; k < 6; ++k) {
    k5x_axe_set_course_minimum(k + 1, travel_min_[k]);
    k5x_axe_set_course_maximum(k + 1, travel_max_[k]);
  }
  for (int i = 0; i < 3; ++i)
    if (present_rotary_[i]) k5x_axe_fixe_set(4 + i, fixe_[i]);
}

void PostEngine::write_header() { out_->put("line,X,Y,Z,A,B,C,solver,travel,status\n"); }

void PostEngine::write_row(long line, const double pos[6], bool has_solver, int solver_code) {
  int flags[6] = {0, 0, 0, 0, 0, 0};
  const int travel = k5x_testcoursesXYZABC(pos, flags);
  out_->put_int(line);
  for (int k = 0; k < 6; ++k) {
    out_->put(',');
    out_->put_fixed(pos[k], kDecimals);
  }
  out_->put(',');
  if (has_solver) out_->put_int(solver_code);
  out_->put(',');
  out_->put_int(travel);
  if (travel == 0) {
    out_->put(",ok\n", 4);
  } else {
    out_->put(",out-of-travel:", 15);
    for (int k = 0; k < 6; ++k) {
      if (flags[k] == 0) continue;
      out_->put(kFlagText[k][flags[k] > 0], 2);
      ++stats_.axis_out[k];
    }
    out_->put('\n');
    ++stats_.out_of_travel;
  }
  ++stats_.positions;
  if (svg_) svg_->add_position(pos, travel != 0);
}

void PostEngine::move(long line, const double v[6]) {
  ++stats_.moves;
  const double* point = v;
  const double* dir = v + 3;
  if (start_pending_) {
    start_pending_ = false;
    double abc[3] = {prev_[0], prev_[1], prev_[2]};
    if (k5x_ex_getinit_ijk_2_abc_not_hc(dir, abc) == 1) {
      for (int i = 0; i < 3; ++i) prev_[i] = abc[i];
    } else {
      start_found_ = false;
    }
    if (three_rotary_) restore_machine();
  }

  double abc[3] = {prev_[0], prev_[1], prev_[2]};
  int code;
  bool solved;
  if (three_rotary_) {
    code = k5x_ex_getabc_3r(dir, prev_, abc, mode3r_);
    restore_machine();
    solved = code != -1;
  } else {
    code = k5x_ijk2abc(dir, prev_, abc);
    solved = code != 1;
  }
  if (!solved) {
    ++stats_.unreachable;
    out_->put_int(line);
    out_->put(",,,,,,,", 7);
    out_->put_int(code);
    out_->put(",,unreachable\n", 14);
    if (svg_) svg_->add_unreachable();
    return;
  }

  double xyz[3] = {0.0, 0.0, 0.0};
  k5x_pts2xyz(point, abc, xyz);
  const double pos[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};

  if (have_last_) {
    for (int i = 0; i < 3; ++i) {
      if (!present_rotary_[i]) continue;
      const double jump = std::fabs(pos[3 + i] - last_pos_[3 + i]);
      if (jump > stats_.max_jump) {
        stats_.max_jump = jump;
        stats_.max_jump_line = line;
        stats_.max_jump_axis = 4 + i;
      }
    }
    if (subdivide_) {
      int n = 1;
      double* table = nullptr;
      const int r = k5x_xyzabc(last_pos_, pos, &n, &table);
      if (r == 8 || table == nullptr) {
        ++stats_.subdivide_failed;
      } else {
        if (r == 7) ++stats_.clamped;
        // The table ends on the move itself, which is written from its own solution below.
        for (int k = 0; k + 1 < n; ++k) write_row(line, table + 6 * k, false, 0);
      }
    }
  }
  write_row(line, pos, true, code);
  for (int k = 0; k < 6; ++k) last_pos_[k] = pos[k];
  have_last_ = true;
  for (int i = 0; i < 3; ++i) prev_[i] = abc[i];
}

}  // namespace k5x_cli
