// The answers of the C functions, bit for bit, against a recorded file: the orientation solver,
// the linear-axis placement, the forward transforms, the subdivision, the three-rotary solver and
// the enumeration, over the embedded machines and a family of generated ones. Any change to how
// the library computes (layout, inlining, caching) must leave every line as it was.
//
// K5X_WRITE_GOLDEN=1 rewrites tests/data/golden.txt from the current library.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "k5x.h"
#include "test_machines.h"

namespace {

const char kGolden[] = "tests/data/golden.txt";

// A small fixed generator, so that the machines and directions never depend on the platform.
struct Lcg {
  unsigned long long s;
  double next() {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(s >> 11) / 9007199254740992.0;
  }
  double in(double lo, double hi) { return lo + (hi - lo) * next(); }
};

std::string hex(const double* v, int n) {
  std::string out;
  char buf[40];
  for (int i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, " %a", v[i]);
    out += buf;
  }
  return out;
}

// Head-head, table-table and head-table machines with random pivots, tool lengths and limits,
// and now and then a tilted (nutating) axis.
std::string generated_machine(Lcg& g, int kind) {
  char line[256];
  std::string t = "nommachine = Generated\n";
  std::snprintf(line, sizeof line, "coursemaximum = AXE_B, %.3f\ncourseminimum = AXE_B, %.3f\n",
                g.in(60, 130), -g.in(60, 130));
  t += line;
  std::snprintf(line, sizeof line, "longueur = %.3f\ntolerance = %.3f\n", g.in(0, 150),
                g.in(0.005, 0.1));
  t += line;
  t += "bati = Z, Frame\naxe = AXE_X, X, X\naxe = AXE_Y, Y, Y\naxe = AXE_Z, Z, Z\n";
  const bool tilted = g.next() < 0.3;
  const char* second = tilted ? "0, 0.7071068, 0.7071068" : "Y";
  if (kind == 0) {  // head-head
    std::snprintf(line, sizeof line, "rotation = AXE_C, Z, 0, 1, %.3f, %.3f, %.3f, C\n",
                  g.in(-20, 20), g.in(-20, 20), g.in(200, 400));
    t += line;
    std::snprintf(line, sizeof line, "rotation = AXE_B, %s, 0, %d, %.3f, %.3f, %.3f, B\n", second,
                  g.next() < 0.5 ? 1 : -1, g.in(-10, 10), g.in(-10, 10), g.in(80, 200));
    t += line;
    t += g.next() < 0.5 ? "outil = -Z, 0, 0, 0\n" : "outil = Z, 0, 0, 0\n";
    t += "lien = AXE_BATI\npiece = X, Y, 0, 0, -300\n";
  } else if (kind == 1) {  // table-table
    t += "outil = Z, 0, 0, 200\nlien = AXE_BATI\n";
    std::snprintf(line, sizeof line, "rotation = AXE_B, %s, 0, 1, %.3f, %.3f, %.3f, B\n",
                  tilted ? "0.7071068, 0, 0.7071068" : "X", g.in(-50, 50), g.in(-50, 50),
                  g.in(-50, 50));
    t += line;
    std::snprintf(line, sizeof line, "rotation = AXE_C, Z, 0, 1, %.3f, %.3f, %.3f, C\n",
                  g.in(-30, 30), g.in(-30, 30), g.in(-30, 30));
    t += line;
    t += "piece = X, Y, 0, 0, 0\n";
  } else {  // head-table
    std::snprintf(line, sizeof line, "rotation = AXE_B, %s, 0, 1, 0, 0, %.3f, B\n", second,
                  g.in(50, 250));
    t += line;
    t += "outil = Z, 0, 0, 0\nlien = AXE_BATI\n";
    std::snprintf(line, sizeof line, "rotation = AXE_C, Z, 0, 1, %.3f, %.3f, 0, C\n",
                  g.in(-40, 40), g.in(-40, 40));
    t += line;
    t += "piece = X, Y, 0, 0, 0\n";
  }
  if (g.next() < 0.3) t += "position = 0, 0, 0, 0, 0, 0\n";
  return t;
}

void run_machine(const std::string& label, const std::string& text, Lcg& g, std::ostream& out) {
  out << "machine " << label << " load " << k5x_machine_def(k5x_test::write_temp_file(text).c_str())
      << "\n";
  k5x_setsilentmode(1);
  const bool three = k5x_axe_sens(4) != 0 && k5x_axe_sens(5) != 0 && k5x_axe_sens(6) != 0;
  double prev[3] = {0.0, 0.0, 0.0}, last[6] = {0, 0, 0, 0, 0, 0};
  for (int i = 0; i < 24; ++i) {
    k5x_set_mode(i % 3);
    double dir[3] = {g.in(-1, 1), g.in(-1, 1), g.in(-1, 1)};
    double abc[3], xyz[3], tip[3], ijk[3];
    int code;
    if (three)
      code = k5x_ex_getabc_3r(dir, prev, abc, i % 3);
    else
      code = k5x_ijk2abc(dir, prev, abc);
    double sol[6];
    for (int k = 0; k < 3; ++k) {
      sol[k] = k5x_abc_sol1()[k];
      sol[3 + k] = k5x_abc_sol2()[k];
    }
    out << "solve " << code << hex(abc, 3) << hex(sol, 6) << "\n";
    const double point[3] = {g.in(-100, 100), g.in(-100, 100), g.in(-50, 50)};
    code = k5x_pts2xyz(point, abc, xyz);
    k5x_xyz2pts(xyz, abc, tip);
    k5x_xyz2ijk(xyz, abc, ijk);
    out << "place " << code << hex(xyz, 3) << hex(tip, 3) << hex(ijk, 3) << "\n";
    const double pos[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};
    {
      const int rtcp = i % 3;
      k5x_set_rtcp(rtcp);
      double l[6], m[6];
      const int a = k5x_m2l(pos, l), b = k5x_l2m(l, m);
      out << "rtcp " << rtcp << " " << a << " " << b << hex(l, 6) << hex(m, 6) << "\n";
    }
    if (i > 0) {
      k5x_set_rtcp(i % 2);
      int n = 1;
      double* table = nullptr;
      code = k5x_xyzabc(last, pos, &n, &table);
      out << "subdivide " << code << " " << n;
      // The first rows and the last: enough to see any change in how the rows are made.
      for (int r = 0; r < n && table; ++r)
        if (r < 2 || r == n - 1) out << hex(table + 6 * r, 6);
      out << "\n";
    }
    if (i % 6 == 0 && !three) {
      int count = 0;
      double* list = nullptr;
      int* flags = nullptr;
      code = k5x_ex_getallabchcpossible(dir, &count, &list, &flags);
      out << "all " << code << " " << count;
      for (int e = 0; e < count && e < 8 && list; ++e) out << hex(list + 3 * e, 3) << " " << flags[e];
      out << "\n";
      k5x_ex_abchcpossible_free();
    }
    for (int k = 0; k < 3; ++k) prev[k] = std::isfinite(abc[k]) ? abc[k] : 0.0;
    for (int k = 0; k < 6; ++k) last[k] = pos[k];
  }
}

std::string produce() {
  std::ostringstream out;
  Lcg g{20261124};
  for (const char* name : {"DemoHead", "Trunnion", "HeadTable", "ThreeRotary", "IndexedTable"})
    run_machine(name, k5x_test::machine_text(name), g, out);
  for (int m = 0; m < 36; ++m) run_machine("generated " + std::to_string(m), generated_machine(g, m % 3), g, out);
  return out.str();
}

TEST(Golden, TheCFunctionsAnswerAsRecorded) {
  const std::string now = produce();
  if (std::getenv("K5X_WRITE_GOLDEN") != nullptr) {
    std::ofstream(kGolden) << now;
    GTEST_SKIP() << "rewrote " << kGolden;
  }
  std::ifstream in(kGolden);
  ASSERT_TRUE(in.good()) << kGolden;
  std::stringstream recorded;
  recorded << in.rdbuf();
  std::istringstream a(recorded.str()), b(now);
  std::string la, lb;
  long line = 0, lines = 0;
  while (std::getline(a, la)) {
    ++line;
    ASSERT_TRUE(std::getline(b, lb)) << "line " << line << ": the run ends early";
    ASSERT_EQ(la, lb) << "line " << line << " differs";
    ++lines;
  }
  EXPECT_FALSE(std::getline(b, lb)) << "the run has more lines than the record";
  EXPECT_GT(lines, 2000);
}

}  // namespace
