// Checks the CSV of `k5x post` against its toolpath by putting every position back through the
// library: the tool tip of each move row must be the move's point, its tool direction the
// move's direction, and every row's travel code what the travel test says.
//
// usage: k5x_post_check MACHINE TOOLPATH CSV [--tool-length L] [--max-jump DEG] [--flip]
//        [--formula] [--tolerance T --angle-tolerance DEG]
// --flip: the toolpath's axes are in the sense opposite to the machine file's. --formula:
// inserted rows split each rotary move evenly. --tolerance: moving linearly from row to row,
// the tip stays within T of the programmed straight move and the axis within DEG of the
// programmed change of axis, checked at seven points between rows (not into an unwind row,
// which the tool reaches off the part).
// Prints "checked N moves ..." and exits 0, or lists the faults and exits 1.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "load_machine.h"
#include "k5x.h"

namespace {

int faults = 0;

void fault(long line, const std::string& what) {
  if (++faults <= 15) std::fprintf(stderr, "line %ld: %s\n", line, what.c_str());
}

double length_of(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// Tip and unit axis that a position gives, through the library's forward transforms.
void forward(const double pos[6], double length, double tip[3], double dir[3]) {
  k5x_xyz2pts(pos, pos + 3, tip);
  if (length == 0.0) k5x_set_outil(1.0);  // the direction comes back scaled by the length
  k5x_xyz2ijk(pos, pos + 3, dir);
  if (length == 0.0) k5x_set_outil(0.0);
  const double l = length_of(dir);
  for (int k = 0; k < 3; ++k) dir[k] /= l;
}

double angle(const double a[3], const double b[3]) {
  const double c[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                       a[0] * b[1] - a[1] * b[0]};
  return std::atan2(length_of(c), a[0] * b[0] + a[1] * b[1] + a[2] * b[2]) * 180.0 /
         3.141592653589793;
}

// Largest deviation of the positions between rows p and q (seven points) from the straight
// move a-b and the change of axis da-db (sampled finely along its great circle).
void deviation(const double p[6], const double q[6], const double a[3], const double b[3],
               const double da[3], const double db[3], double length, double* tip_dev,
               double* axis_dev) {
  for (int i = 1; i <= 7; ++i) {
    double x[6], tip[3], dir[3];
    for (int k = 0; k < 6; ++k) x[k] = p[k] + (q[k] - p[k]) * i / 8.0;
    forward(x, length, tip, dir);
    double ab[3], at[3], dot = 0.0, ll = 0.0;
    for (int k = 0; k < 3; ++k) {
      ab[k] = b[k] - a[k];
      at[k] = tip[k] - a[k];
      dot += ab[k] * at[k];
      ll += ab[k] * ab[k];
    }
    const double s = ll > 0.0 ? std::fmax(0.0, std::fmin(1.0, dot / ll)) : 0.0;
    double d2 = 0.0;
    for (int k = 0; k < 3; ++k) d2 += (at[k] - s * ab[k]) * (at[k] - s * ab[k]);
    *tip_dev = std::fmax(*tip_dev, std::sqrt(d2));
    // The arc da-db: the angle to its great circle where the foot of dir lies on the arc,
    // else to the nearer end.
    double best = std::fmin(angle(dir, da), angle(dir, db));
    double n[3] = {da[1] * db[2] - da[2] * db[1], da[2] * db[0] - da[0] * db[2],
                   da[0] * db[1] - da[1] * db[0]};
    const double nl = length_of(n);
    if (nl > 1e-12) {
      double up = 0.0, foot[3];
      for (int k = 0; k < 3; ++k) up += dir[k] * n[k] / nl;
      for (int k = 0; k < 3; ++k) foot[k] = dir[k] - up * n[k] / nl;
      if (length_of(foot) > 1e-12 && angle(da, foot) + angle(foot, db) <= angle(da, db) + 1e-6)
        best = std::asin(std::fmin(1.0, std::fabs(up))) * 180.0 / 3.141592653589793;
    }
    *axis_dev = std::fmax(*axis_dev, best);
  }
}

}  // namespace

int main(int argc, char** argv) {
  double tool_length = -1.0, max_jump = -1.0, tolerance = -1.0, angle_tolerance = -1.0;
  bool flip = false, formula = false;
  for (int i = 4; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--flip")) flip = true;
    if (!std::strcmp(argv[i], "--formula")) formula = true;
    if (i + 1 >= argc) continue;
    if (!std::strcmp(argv[i], "--tool-length")) tool_length = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--max-jump")) max_jump = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--tolerance")) tolerance = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--angle-tolerance")) angle_tolerance = std::atof(argv[i + 1]);
  }
  std::FILE* path = argc < 4 ? nullptr : std::fopen(argv[2], "r");
  std::FILE* csv = argc < 4 ? nullptr : std::fopen(argv[3], "r");
  if (!path || !csv || k5x_test::load_machine_c_api(argv[1]) != 0) {
    std::fprintf(stderr, "usage: k5x_post_check MACHINE TOOLPATH CSV [options]\n");
    return 2;
  }
  k5x_setsilentmode(1);
  if (tool_length >= 0.0) k5x_set_outil(tool_length);
  const double length = k5x_get_outil();

  // Toolpath lines by number, read independently of the program's parser.
  std::map<long, std::vector<double>> moves;
  char buf[4096];
  for (long line = 1; std::fgets(buf, sizeof buf, path); ++line) {
    std::string s(buf);
    for (char& c : s) c = c == ',' ? ' ' : c;
    std::istringstream is(s);
    std::vector<double> m(6);
    if (s.find('#') == std::string::npos && is >> m[0] >> m[1] >> m[2] >> m[3] >> m[4] >> m[5]) {
      const double l = length_of(&m[3]) * (flip ? -1.0 : 1.0);
      for (int k = 3; k < 6; ++k) m[k] /= l;
      moves[line] = m;
    }
  }
  if (!std::fgets(buf, sizeof buf, csv) ||
      std::strcmp(buf, "line,X,Y,Z,A,B,C,solver,travel,status\n") != 0)
    fault(0, "bad or missing CSV header");

  long checked = 0, unreachable = 0, inserted = 0, unwinds = 0, last_line = 0;
  bool have_prev = false;
  double prev[6] = {}, pos[6], last_row[6] = {};
  const std::vector<double>* prev_move = nullptr;
  double worst_tip = 0.0, worst_axis = 0.0;
  std::vector<std::vector<double>> pending;
  while (std::fgets(buf, sizeof buf, csv)) {
    std::vector<std::string> f(1);
    for (const char* c = buf; *c && *c != '\n'; ++c) {
      if (*c == ',') f.emplace_back();
      else f.back() += *c;
    }
    const long line = std::atol(f[0].c_str());
    const auto it = moves.find(line);
    if (f.size() != 10 || it == moves.end() || line < last_line) {
      fault(line, "a row out of order, not of 10 fields or of no move: " + std::string(buf));
      continue;
    }
    last_line = line;
    if (f[9] == "unreachable") {
      if ((f[1] + f[2] + f[3] + f[4] + f[5] + f[6]).size()) fault(line, "unreachable, yet placed");
      ++unreachable, ++last_line;
      continue;
    }
    for (int k = 0; k < 6; ++k) pos[k] = std::atof(f[1 + k].c_str());
    int flags[6];
    const int travel = k5x_testcoursesXYZABC(pos, flags);
    // An unwind is in travel, reached with the tool off the part: the rows around it are not
    // joined by a cut, but it must be a real swing round, or it hides a deviation.
    const bool unwind = f[9] == "unwind";
    if (unwind) {
      ++unwinds;
      double turn = 0.0;
      for (int k = 3; k < 6; ++k) turn = std::fmax(turn, std::fabs(pos[k] - last_row[k]));
      if (!(turn > 90.0)) fault(line, "an unwind that turns no axis round");
    }
    if (f[8] != std::to_string(travel) || (f[9] == "ok" || unwind) != (travel == 0) ||
        (travel != 0 && f[9].rfind("out-of-travel:", 0) != 0))
      fault(line, "travel " + f[8] + " " + f[9] + ", the library says " + std::to_string(travel));
    const std::vector<double>& m = it->second;
    if (tolerance > 0.0 && have_prev && prev_move != nullptr && !unwind) {
      double tip_dev = 0.0, axis_dev = 0.0;
      deviation(last_row, pos, prev_move->data(), m.data(), prev_move->data() + 3, &m[3], length,
                &tip_dev, &axis_dev);
      worst_tip = std::fmax(worst_tip, tip_dev);
      worst_axis = std::fmax(worst_axis, axis_dev);
      if (tip_dev > tolerance * 1.05 || axis_dev > angle_tolerance * 1.05)
        fault(line, "between rows the tool leaves the tolerance: tip " + std::to_string(tip_dev) +
                        ", axis " + std::to_string(axis_dev) + " degrees");
    }
    std::memcpy(last_row, pos, sizeof last_row);
    if (f[7].empty()) {  // a position inserted before the move of this line
      ++inserted;
      pending.emplace_back(pos, pos + 6);
      continue;
    }
    // The library's subdivision splits the rotary motion into equal steps.
    const double steps = static_cast<double>(pending.size() + 1);
    for (std::size_t j = 0; j < pending.size() && formula; ++j)
      for (int k = 3; k < 6; ++k)
        if (!have_prev ||
            std::fabs(pending[j][k] - (prev[k] + (pos[k] - prev[k]) * (j + 1) / steps)) > 2e-6)
          fault(line, "inserted positions do not split a rotary move evenly");
    pending.clear();
    ++last_line;
    double tip[3], dir[3];
    forward(pos, length, tip, dir);
    for (int k = 0; k < 3; ++k)
      if (std::fabs(tip[k] - m[k]) > 1e-3) fault(line, "the tool tip is not the move's point");
    // Near the singular direction a move may be stood along it, within the angle tolerance.
    if (!(angle(dir, &m[3]) <= (angle_tolerance > 0.0 ? angle_tolerance * 1.05 : 0.006)))
      fault(line, "the tool direction is not the move's direction");
    prev_move = &m;
    for (int k = 3; k < 6 && have_prev && max_jump >= 0.0; ++k)
      if (std::fabs(pos[k] - prev[k]) > max_jump)
        fault(line, "ABC"[k - 3] + std::string(" jumps by ") + std::to_string(pos[k] - prev[k]));
    std::memcpy(prev, pos, sizeof prev);
    have_prev = true;
    ++checked;
  }
  if (checked + unreachable != static_cast<long>(moves.size()))
    fault(0, std::to_string(checked + unreachable) + " move rows for " +
                 std::to_string(moves.size()) + " moves");
  std::printf("checked %ld moves (%ld unreachable, %ld inserted rows, %ld unwinds), %d faults\n",
              checked, unreachable, inserted, unwinds, faults);
  if (tolerance > 0.0)
    std::printf("largest deviation between rows: tip %g, axis %g degrees\n", worst_tip,
                worst_axis);
  return faults == 0 ? 0 : 1;
}
