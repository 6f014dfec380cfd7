// k5x::Machine: the same answers as the C functions, bit for bit, from four threads at once each
// with its own machine; copies that are independent; load errors that say what went wrong.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cpp/k5x.hpp"
#include "k5x.h"
#include "test_machines.h"

namespace {

// One toolpath for every machine: directions round a cone about +Z and -Z alike (some moves
// are then unreachable or out of travel, which must agree too), points on a spiral.
struct Move {
  k5x::Vec3 dir, point;
};

std::vector<Move> toolpath() {
  std::vector<Move> moves;
  for (int i = 0; i < 240; ++i) {
    const double tilt = (5.0 + 50.0 * std::fabs(std::sin(i * 0.05))) * 3.141592653589793 / 180.0;
    const double turn = i * 0.11, sign = (i / 60) % 2 == 0 ? 1.0 : -1.0;
    moves.push_back({{std::sin(tilt) * std::cos(turn), std::sin(tilt) * std::sin(turn),
                      sign * std::cos(tilt)},
                     {40.0 * std::cos(turn), 40.0 * std::sin(turn), 0.1 * i}});
  }
  return moves;
}

// Everything asked of a machine along the toolpath, as raw doubles, in a fixed order.
using Answers = std::vector<double>;

void put(Answers& a, const double* v, int n) { a.insert(a.end(), v, v + n); }

Answers with_c_functions(const std::string& name, const std::vector<Move>& moves) {
  Answers a;
  if (k5x_machine_def(k5x_test::write_temp_file(k5x_test::machine_text(name)).c_str()) != 0) return a;
  k5x_setsilentmode(1);
  const bool three = k5x_axe_sens(4) != 0 && k5x_axe_sens(5) != 0 && k5x_axe_sens(6) != 0;
  double prev[3] = {0, 0, 0}, last[6] = {0, 0, 0, 0, 0, 0};
  for (std::size_t i = 0; i < moves.size(); ++i) {
    double abc[3] = {prev[0], prev[1], prev[2]}, xyz[3], v[3];
    const int code = three ? k5x_ex_getabc_3r(moves[i].dir.data(), prev, abc, 1)
                           : k5x_ijk2abc(moves[i].dir.data(), prev, abc);
    a.push_back(code);
    put(a, abc, 3);
    a.push_back(k5x_pts2xyz(moves[i].point.data(), abc, xyz));
    put(a, xyz, 3);
    const double pos[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};
    k5x_xyz2pts(xyz, abc, v);
    put(a, v, 3);
    k5x_xyz2ijk(xyz, abc, v);
    put(a, v, 3);
    if (i > 0) {
      int n = 500;
      double* table = nullptr;
      a.push_back(k5x_xyzabc(last, pos, &n, &table));
      a.push_back(n);
      put(a, table, 6 * n);
    }
    if (i % 40 == 0 && !three) {
      int count = 0;
      double* list = nullptr;
      int* flags = nullptr;
      a.push_back(k5x_ex_getallabchcpossible(moves[i].dir.data(), &count, &list, &flags));
      a.push_back(count);
      put(a, list, 3 * count);
    }
    std::memcpy(prev, abc, sizeof prev);
    std::memcpy(last, pos, sizeof last);
  }
  return a;
}

Answers with_machine(k5x::Machine& m, const std::vector<Move>& moves) {
  Answers a;
  const bool three = m.has_axis(4) && m.has_axis(5) && m.has_axis(6);
  k5x::Vec3 prev{0, 0, 0};
  k5x::Position last{};
  for (std::size_t i = 0; i < moves.size(); ++i) {
    const k5x::Orientation o =
        three ? m.solve_three_rotary(moves[i].dir, prev, 1) : m.solve(moves[i].dir, prev);
    a.push_back(o.code);
    put(a, o.angles.data(), 3);
    const k5x::Coded<k5x::Vec3> xyz = m.place(moves[i].point, o.angles);
    a.push_back(xyz.code);
    put(a, xyz.value.data(), 3);
    const k5x::Position pos{xyz.value[0], xyz.value[1], xyz.value[2],
                            o.angles[0], o.angles[1], o.angles[2]};
    put(a, m.tip(pos).data(), 3);
    put(a, m.tool_vector(pos).data(), 3);
    if (i > 0) {
      const k5x::Rows rows = m.subdivide(last, pos);
      a.push_back(rows.code);
      a.push_back(static_cast<double>(rows.rows.size()));
      for (const k5x::Position& r : rows.rows) put(a, r.data(), 6);
    }
    if (i % 40 == 0 && !three) {
      const k5x::AllSolutions all = m.all_solutions(moves[i].dir);
      a.push_back(all.code);
      a.push_back(static_cast<double>(all.angles.size()));
      for (const k5x::Vec3& s : all.angles) put(a, s.data(), 3);
    }
    prev = o.angles;
    last = pos;
  }
  return a;
}

bool same_bits(const Answers& a, const Answers& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

const char* const kMachines[] = {"DemoHead", "Trunnion", "HeadTable", "ThreeRotary",
                                 "IndexedTable"};

TEST(Machine, FourThreadsAnswerAsTheCFunctions) {
  const std::vector<Move> moves = toolpath();
  std::vector<Answers> reference;
  for (const char* name : kMachines) {
    reference.push_back(with_c_functions(name, moves));
    ASSERT_GT(reference.back().size(), 1000u) << name;
  }
  // Each thread takes every machine in its own order, each time a machine of its own.
  std::vector<std::vector<bool>> same(4, std::vector<bool>(5, false));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int k = 0; k < 5; ++k) {
        const int i = (k + t) % 5;
        k5x::Machine m = k5x::Machine::embedded(kMachines[i]);
        m.set_silent(true);
        same[t][i] = same_bits(with_machine(m, moves), reference[i]);
      }
    });
  }
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(same[t][i]) << "thread " << t << ", " << kMachines[i];
}

TEST(Machine, CopiesAreIndependentAndLoadErrorsSayWhy) {
  k5x::Machine a = k5x::Machine::embedded("Trunnion");
  k5x::Machine b = a;
  b.set_tool_length(40.0);
  b.set_travel_maximum(4, 90.0);
  EXPECT_EQ(a.tool_length(), 100.0);
  EXPECT_EQ(a.travel(4).max, 30.0);
  const k5x::Vec3 up{0, 0, 1}, zero{0, 0, 0};
  const k5x::Vec3 p = a.place({1, 2, 3}, a.solve(up, zero).angles).value;
  const k5x::Vec3 q = b.place({1, 2, 3}, b.solve(up, zero).angles).value;
  EXPECT_EQ(p[2] - q[2], 60.0);  // the tool length lifts Z
  EXPECT_EQ(a.name(), "Trunnion");
  try {
    k5x::Machine::from_text("bati = Z, F\naxe = AXE_X, X, X\n");
    ADD_FAILURE() << "a machine without tool and workpiece loaded";
  } catch (const k5x::LoadError& e) {
    EXPECT_EQ(e.code(), 12);
    EXPECT_NE(std::string(e.what()).find("the frame, tool or workpiece is missing"),
              std::string::npos);
  }
  EXPECT_THROW(k5x::Machine::from_file("/nonexistent/k5x.def"), k5x::LoadError);
  EXPECT_THROW(k5x::Machine::embedded("NoSuchMachine"), k5x::LoadError);
  // An empty machine answers "no machine", as the C functions do before a load.
  k5x::Machine empty;
  EXPECT_EQ(empty.solve(up, zero).code, 1);
}

}  // namespace

namespace {

// A NaN or an infinity between two ordinary calls is refused and changes nothing.
TEST(Machine, RefusesWhatWouldPoisonIt) {
  k5x::Machine m = k5x::Machine::embedded("HeadTable");
  const k5x::Vec3 dir{0.3, -0.2, 0.93}, prev{0, 0, 0}, point{12, -7, 3};
  const k5x::Orientation before = m.solve(dir, prev);
  const k5x::Vec3 xyz = m.place(point, before.angles).value;
  const double nan = std::nan(""), inf = HUGE_VAL;
  EXPECT_THROW(m.solve({nan, 0, 1}, prev), std::invalid_argument);
  EXPECT_THROW(m.tip({0, 0, 0, 0, inf, 0}), std::invalid_argument);
  EXPECT_THROW(m.place(point, {0, nan, 0}), std::invalid_argument);
  EXPECT_THROW(m.interpolate({}, {}, nan), std::invalid_argument);
  EXPECT_THROW(m.set_tool_length(inf), std::invalid_argument);
  EXPECT_THROW(m.travel(7), std::out_of_range);
  EXPECT_THROW(m.interpolation_table({}, {}, -1), std::out_of_range);
  EXPECT_THROW(m.axis_name(-3), std::out_of_range);
  EXPECT_THROW(m.set_mode(5), std::out_of_range);
  k5x::ProgrammedMove bad;
  bad.axis[2] = nan;
  EXPECT_THROW(m.post({bad}, k5x::PlanOptions()), std::invalid_argument);
  const k5x::Orientation after = m.solve(dir, prev);
  const k5x::Vec3 xyz_after = m.place(point, after.angles).value;
  EXPECT_EQ(before.code, after.code);
  EXPECT_EQ(std::memcmp(before.angles.data(), after.angles.data(), sizeof before.angles), 0);
  EXPECT_EQ(std::memcmp(xyz.data(), xyz_after.data(), sizeof xyz), 0);
  EXPECT_EQ(m.tool_length(), 80.0);
}

}  // namespace
