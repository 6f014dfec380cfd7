// Checks the CSV of `k5x post` against its toolpath by putting every position back through the
// library: the tool tip of each move row must be the move's point, its tool direction the
// move's direction, and every row's travel code what the travel test says.
//
// usage: k5x_post_check MACHINE TOOLPATH CSV [--tool-length L] [--max-jump DEG]
// Prints "checked N moves ..." and exits 0, or lists the faults and exits 1.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "cli/embedded_machines.h"
#include "k5x.h"

namespace {

int faults = 0;

void fault(long line, const std::string& what) {
  if (++faults <= 15) std::fprintf(stderr, "line %ld: %s\n", line, what.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  double tool_length = -1.0, max_jump = -1.0;
  for (int i = 4; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--tool-length")) tool_length = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--max-jump")) max_jump = std::atof(argv[i + 1]);
  }
  std::FILE* path = argc < 4 ? nullptr : std::fopen(argv[2], "r");
  std::FILE* csv = argc < 4 ? nullptr : std::fopen(argv[3], "r");
  if (!path || !csv || k5x_cli::load_machine_arg(argv[1], nullptr) != 0) {
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
    if (s.find('#') == std::string::npos && is >> m[0] >> m[1] >> m[2] >> m[3] >> m[4] >> m[5])
      moves[line] = m;
  }
  if (!std::fgets(buf, sizeof buf, csv) ||
      std::strcmp(buf, "line,X,Y,Z,A,B,C,solver,travel,status\n") != 0)
    fault(0, "bad or missing CSV header");

  long checked = 0, unreachable = 0, inserted = 0, last_line = 0;
  bool have_prev = false;
  double prev[6] = {}, pos[6];
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
    if (f[8] != std::to_string(travel) || (f[9] == "ok") != (travel == 0) ||
        (travel != 0 && f[9].rfind("out-of-travel:", 0) != 0))
      fault(line, "travel " + f[8] + " " + f[9] + ", the library says " + std::to_string(travel));
    if (f[7].empty()) {  // a position inserted before the move of this line
      ++inserted;
      pending.emplace_back(pos, pos + 6);
      continue;
    }
    // Inserted positions split the rotary motion into equal steps (they turn linearly).
    const double steps = static_cast<double>(pending.size() + 1);
    for (std::size_t j = 0; j < pending.size(); ++j)
      for (int k = 3; k < 6; ++k)
        if (!have_prev ||
            std::fabs(pending[j][k] - (prev[k] + (pos[k] - prev[k]) * (j + 1) / steps)) > 2e-6)
          fault(line, "inserted positions do not split a rotary move evenly");
    pending.clear();
    ++last_line;
    const std::vector<double>& m = it->second;
    double tip[3], dir[3];
    k5x_xyz2pts(pos, pos + 3, tip);
    if (length == 0.0) k5x_set_outil(1.0);  // the direction comes back scaled by the length
    k5x_xyz2ijk(pos, pos + 3, dir);
    if (length == 0.0) k5x_set_outil(0.0);
    const double dl = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    const double wl = std::sqrt(m[3] * m[3] + m[4] * m[4] + m[5] * m[5]);
    for (int k = 0; k < 3; ++k) {
      if (std::fabs(tip[k] - m[k]) > 1e-3) fault(line, "the tool tip is not the move's point");
      if (!(std::fabs(dir[k] / dl - m[3 + k] / wl) <= 1e-4))
        fault(line, "the tool direction is not the move's direction");
    }
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
  std::printf("checked %ld moves (%ld unreachable, %ld inserted rows), %d faults\n", checked,
              unreachable, inserted, faults);
  return faults == 0 ? 0 : 1;
}
