// Checks the CSV of `k5x post` against its toolpath by putting every position back through the
// library: the tool tip of each move row must be the move's point, its tool direction the
// move's direction, and every row's travel code what the travel test says.
//
// usage: k5x_post_check MACHINE TOOLPATH CSV [--tool-length L] [--max-jump DEG]
//                       [--point-tol T] [--dir-tol T]
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

void fault(const char* fmt, long line, const std::string& what) {
  if (++faults <= 15) {
    std::fprintf(stderr, fmt, line, what.c_str());
    std::fputc('\n', stderr);
  }
}

std::vector<std::string> split(const std::string& s, char sep) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : s) {
    if (c == sep) {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

struct Move {
  double v[6];
};

// Toolpath lines by number, read independently of the program's parser.
bool read_toolpath(const char* path, std::map<long, Move>* moves) {
  std::FILE* f = std::fopen(path, "r");
  if (!f) return false;
  char buf[4096];
  long line = 0;
  while (std::fgets(buf, sizeof buf, f)) {
    ++line;
    std::string s(buf);
    for (char& c : s)
      if (c == ',') c = ' ';
    std::istringstream is(s);
    Move m;
    if (s.find('#') != std::string::npos) continue;
    if (is >> m.v[0] >> m.v[1] >> m.v[2] >> m.v[3] >> m.v[4] >> m.v[5]) (*moves)[line] = m;
  }
  std::fclose(f);
  return true;
}

double num(const std::string& s, bool* ok) {
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (s.empty() || *end != '\0') *ok = false;
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s MACHINE TOOLPATH CSV [options]\n", argv[0]);
    return 2;
  }
  double tool_length = -1.0, max_jump = -1.0, point_tol = 1e-3, dir_tol = 1e-4;
  for (int i = 4; i + 1 < argc; i += 2) {
    const double v = std::atof(argv[i + 1]);
    if (!std::strcmp(argv[i], "--tool-length")) tool_length = v;
    else if (!std::strcmp(argv[i], "--max-jump")) max_jump = v;
    else if (!std::strcmp(argv[i], "--point-tol")) point_tol = v;
    else if (!std::strcmp(argv[i], "--dir-tol")) dir_tol = v;
  }
  std::string label;
  const int code = k5x_cli::load_machine_spec(argv[1], &label);
  if (code != 0) {
    std::fprintf(stderr, "cannot load %s: code %d\n", argv[1], code);
    return 2;
  }
  k5x_setsilentmode(1);
  if (tool_length >= 0.0) k5x_set_outil(tool_length);
  const double length = k5x_get_outil();
  std::map<long, Move> moves;
  if (!read_toolpath(argv[2], &moves)) {
    std::fprintf(stderr, "cannot read %s\n", argv[2]);
    return 2;
  }
  std::FILE* csv = std::fopen(argv[3], "r");
  if (!csv) {
    std::fprintf(stderr, "cannot read %s\n", argv[3]);
    return 2;
  }
  char buf[4096];
  if (!std::fgets(buf, sizeof buf, csv) ||
      std::strcmp(buf, "line,X,Y,Z,A,B,C,solver,travel,status\n") != 0) {
    std::fprintf(stderr, "bad or missing CSV header\n");
    return 1;
  }
  long checked = 0, unreachable = 0, intermediate = 0, last_line = 0;
  bool have_prev = false;
  double prev[6] = {};
  std::vector<Move> pending;
  while (std::fgets(buf, sizeof buf, csv)) {
    std::string row(buf);
    if (!row.empty() && row.back() == '\n') row.pop_back();
    const std::vector<std::string> f = split(row, ',');
    if (f.size() != 10) {
      fault("row for line %ld: %s", 0, "expected 10 fields: " + row);
      continue;
    }
    bool ok = true;
    const long line = std::atol(f[0].c_str());
    const auto it = moves.find(line);
    if (it == moves.end()) {
      fault("line %ld: %s", line, "no such move in the toolpath");
      continue;
    }
    if (line < last_line) fault("line %ld: %s", line, "rows out of order");
    const bool move_row = !f[7].empty();
    if (f[9] == "unreachable") {
      for (int k = 1; k <= 6; ++k)
        if (!f[k].empty()) fault("line %ld: %s", line, "unreachable row with a position");
      ++unreachable;
      last_line = line + 1;
      continue;
    }
    double pos[6];
    for (int k = 0; k < 6; ++k) pos[k] = num(f[1 + k], &ok);
    const int travel = std::atoi(f[8].c_str());
    if (!ok) {
      fault("line %ld: %s", line, "unreadable numbers: " + row);
      continue;
    }
    int flags[6];
    const int expect_travel = k5x_testcoursesXYZABC(pos, flags);
    if (travel != expect_travel)
      fault("line %ld: %s", line,
            "travel code " + f[8] + ", the library says " + std::to_string(expect_travel));
    if ((f[9] == "ok") != (travel == 0) || (travel != 0 && f[9].rfind("out-of-travel:", 0) != 0))
      fault("line %ld: %s", line, "status '" + f[9] + "' does not match travel code " + f[8]);
    if (!move_row) {
      ++intermediate;
      pending.push_back({pos[0], pos[1], pos[2], pos[3], pos[4], pos[5]});
      last_line = line;
      continue;
    }
    // Inserted positions lie between the two moves on every rotary axis (they turn linearly).
    for (const Move& q : pending) {
      for (int k = 3; k < 6; ++k) {
        const double lo = std::fmin(prev[k], pos[k]) - 1e-5, hi = std::fmax(prev[k], pos[k]) + 1e-5;
        if (!have_prev || q.v[k] < lo || q.v[k] > hi) {
          fault("line %ld: %s", line, "inserted position outside the move on a rotary axis");
          break;
        }
      }
    }
    pending.clear();
    last_line = line + 1;
    const Move& m = it->second;
    double tip[3], dir[3];
    k5x_xyz2pts(pos, pos + 3, tip);
    if (length == 0.0) k5x_set_outil(1.0);  // the direction comes back scaled by the length
    k5x_xyz2ijk(pos, pos + 3, dir);
    if (length == 0.0) k5x_set_outil(0.0);
    const double dl = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    const double wl = std::sqrt(m.v[3] * m.v[3] + m.v[4] * m.v[4] + m.v[5] * m.v[5]);
    for (int k = 0; k < 3; ++k) {
      if (std::fabs(tip[k] - m.v[k]) > point_tol) {
        char msg[200];
        std::snprintf(msg, sizeof msg, "tool tip (%.6f, %.6f, %.6f), wanted (%.6f, %.6f, %.6f)",
                      tip[0], tip[1], tip[2], m.v[0], m.v[1], m.v[2]);
        fault("line %ld: %s", line, msg);
        break;
      }
    }
    for (int k = 0; k < 3; ++k) {
      if (!(dl > 0.0) || std::fabs(dir[k] / dl - m.v[3 + k] / wl) > dir_tol) {
        char msg[200];
        std::snprintf(msg, sizeof msg, "direction (%.6f, %.6f, %.6f), wanted (%.6f, %.6f, %.6f)",
                      dl > 0 ? dir[0] / dl : 0.0, dl > 0 ? dir[1] / dl : 0.0,
                      dl > 0 ? dir[2] / dl : 0.0, m.v[3] / wl, m.v[4] / wl, m.v[5] / wl);
        fault("line %ld: %s", line, msg);
        break;
      }
    }
    if (max_jump >= 0.0 && have_prev) {
      for (int k = 3; k < 6; ++k)
        if (std::fabs(pos[k] - prev[k]) > max_jump) {
          char msg[120];
          std::snprintf(msg, sizeof msg, "%c jumps by %.6f degrees", "ABC"[k - 3],
                        std::fabs(pos[k] - prev[k]));
          fault("line %ld: %s", line, msg);
        }
    }
    for (int k = 0; k < 6; ++k) prev[k] = pos[k];
    have_prev = true;
    ++checked;
  }
  std::fclose(csv);
  long expected = static_cast<long>(moves.size());
  if (checked + unreachable != expected)
    fault("line %ld: %s", 0,
          std::to_string(checked + unreachable) + " move rows for " + std::to_string(expected) +
              " moves");
  std::printf("checked %ld moves (%ld unreachable, %ld inserted rows), %d faults\n", checked,
              unreachable, intermediate, faults);
  return faults == 0 ? 0 : 1;
}
