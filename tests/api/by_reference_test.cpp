// The by-reference family against the double-precision functions it forwards to: text
// conversion, widening and narrowing, capacity-and-count, and the checksum loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "api/global_state.h"
#include "k5x.h"
#include "test_machines.h"

namespace {

std::vector<char> padded(const std::string& text, std::size_t size = 200) {
  std::vector<char> buffer(size, ' ');
  std::memcpy(buffer.data(), text.data(), text.size());
  return buffer;
}

int def(const std::string& text) {
  int status = -99;
  const int code = KF5X_MACHINE_DEF(text.data(), static_cast<int>(text.size()), &status);
  EXPECT_EQ(code, status);
  return code;
}

std::vector<float> narrowed(const double* d, std::size_t n) {
  return std::vector<float>(d, d + n);
}

class ByReference : public ::testing::Test {
 protected:
  std::string path = k5x_test::write_temp_file(k5x_test::machine_text("DemoHead"));
  void SetUp() override {
    ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
    k5x_set_outil(1.0);
  }
  void TearDown() override {
    k5x_machine_def(nullptr);
    k5x_machine_free();
    k5x_ex_abchcpossible_free();
    k5x_set_increment_behaviour(0, 0.005);
  }
  // A direction DemoHead reaches at B 30, C 40.
  static std::vector<float> reachable_direction() {
    const double origin[3] = {0, 0, 0}, pose[3] = {0, 30, 40};
    double dir[3];
    k5x_xyz2ijk(origin, pose, dir);
    return narrowed(dir, 3);
  }
};

TEST_F(ByReference, BlankPaddedPathOpensTheTrimmedPath) {
  k5x_machine_def(nullptr);
  const std::vector<char> buffer = padded(path);
  int status = -99;
  EXPECT_EQ(KF5X_MACHINE_DEF(buffer.data(), 200, &status), 0);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(k5x_name_machine(), "DemoHead");
}

TEST_F(ByReference, TrailingBytesUpToBlankAndAboveAsciiAreDropped) {
  EXPECT_EQ(def(path + "\xC3\xA9\t\r\n \x80\xFF"), 0);
  EXPECT_EQ(def(path + "\x7F"), 1);  // 127 is a character
  EXPECT_EQ(def(path + "!"), 1);
}

TEST_F(ByReference, NonAsciiInsideThePathIsKept) {
  const std::string inner = path + "\xC3\xA9x";
  {
    std::ofstream out(inner);
    out << k5x_test::machine_text("Trunnion");
  }
  EXPECT_EQ(def(inner + "\xC3\xA9   "), 0);
  EXPECT_STREQ(k5x_name_machine(), "Trunnion");
  std::remove(inner.c_str());
}

TEST_F(ByReference, NoTextLoadsNothing) {
  int status = -99;
  EXPECT_EQ(KF5X_MACHINE_DEF(nullptr, 10, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(k5x_name_machine(), nullptr);
  const std::vector<char> buffer = padded(path);
  for (int length : {0, -3}) {
    ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
    EXPECT_EQ(KF5X_MACHINE_DEF(buffer.data(), length, &status), 1);
    EXPECT_EQ(k5x_name_machine(), nullptr);
  }
  EXPECT_EQ(def(std::string(200, ' ')), 1);
}

TEST_F(ByReference, SubdivisionNegatesTheCountThenFills) {
  const float from[6] = {0, 0, 0, 0, 0, 0}, to[6] = {60, -30, 90, 0, 30, 40};
  const double s[6] = {0, 0, 0, 0, 0, 0}, e[6] = {60, -30, 90, 0, 30, 40};
  int rows = 0;
  double* table = nullptr;
  const int code = k5x_xyzabc(s, e, &rows, &table);
  ASSERT_GT(rows, 1);
  const std::vector<float> expected = narrowed(table, 6 * static_cast<std::size_t>(rows));

  std::vector<float> points(6 * static_cast<std::size_t>(rows), -7.0f);
  int count = 0, status = -99;
  EXPECT_EQ(KF5X_XYZABC(from, to, &count, points.data(), &status), code);
  EXPECT_EQ(count, -rows);
  EXPECT_EQ(points, std::vector<float>(points.size(), -7.0f));

  count = -count;
  EXPECT_EQ(KF5X_XYZABC(from, to, &count, points.data(), &status), code);
  EXPECT_EQ(status, code);
  EXPECT_EQ(count, rows);
  EXPECT_EQ(points, expected);
}

TEST_F(ByReference, InterpolationTableCountIsTheRowsAsked) {
  const float from[6] = {0, 0, 0, 0, 0, 0}, to[6] = {40, 20, -10, 0, 20, 90};
  std::vector<float> points(18, -7.0f);
  int count = 0, status = -99;
  KF5X_INTERPOLATIONTABLE(from, to, &count, points.data(), &status);
  EXPECT_EQ(count, -1);
  EXPECT_EQ(points, std::vector<float>(18, -7.0f));

  const double s[6] = {0, 0, 0, 0, 0, 0}, e[6] = {40, 20, -10, 0, 20, 90};
  int rows = 3;
  double* table = nullptr;
  const int code = k5x_interpolationtable(s, e, &rows, &table);
  const std::vector<float> expected = narrowed(table, 18);
  count = 3;
  EXPECT_EQ(KF5X_INTERPOLATIONTABLE(from, to, &count, points.data(), &status), code);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(points, expected);
  // Rotary values step linearly whatever the rtcp setting: the last row is the end.
  EXPECT_FLOAT_EQ(points[17], 90.0f);
  EXPECT_FLOAT_EQ(points[10], 20.0f * 2 / 3);
}

TEST_F(ByReference, EnumerationNegatesTheCountThenFillsAnglesAndFlags) {
  const std::vector<float> dir = reachable_direction();
  const double d[3] = {dir[0], dir[1], dir[2]};
  int ignored = 0;
  double* solutions = nullptr;
  int* words = nullptr;
  const int n = k5x_ex_getallabchcpossible(d, &ignored, &solutions, &words);
  ASSERT_GT(n, 0);
  const std::vector<float> expected = narrowed(solutions, 3 * static_cast<std::size_t>(n));
  const std::vector<int> expected_flags(words, words + n);

  std::vector<float> angles(3 * static_cast<std::size_t>(n), -7.0f);
  std::vector<int> flags(static_cast<std::size_t>(n), -7);
  int count = 0, status = -99;
  EXPECT_EQ(KF5X_EX_GETALLABCHCPOSSIBLE(dir.data(), &count, angles.data(), flags.data(), &status),
            n);
  EXPECT_EQ(count, -n);
  EXPECT_EQ(angles, std::vector<float>(angles.size(), -7.0f));
  EXPECT_EQ(flags, std::vector<int>(flags.size(), -7));

  count = n;
  EXPECT_EQ(KF5X_EX_GETALLABCHCPOSSIBLE(dir.data(), &count, angles.data(), flags.data(), &status),
            n);
  EXPECT_EQ(status, n);
  EXPECT_EQ(count, n);
  EXPECT_EQ(angles, expected);
  EXPECT_EQ(flags, expected_flags);

  // Room to spare: the count is the number of solutions, and only that many entries are written.
  angles.assign(3 * static_cast<std::size_t>(n) + 3, -7.0f);
  flags.assign(static_cast<std::size_t>(n) + 1, -7);
  count = n + 1;
  EXPECT_EQ(KF5X_EX_GETALLABCHCPOSSIBLE(dir.data(), &count, angles.data(), flags.data(), &status),
            n);
  EXPECT_EQ(count, n);
  EXPECT_EQ(std::vector<float>(angles.begin(), angles.begin() + 3 * n), expected);
  EXPECT_EQ(angles.back(), -7.0f);
  EXPECT_EQ(flags.back(), -7);
}

TEST_F(ByReference, ChecksumOverModesOneToNMinusOne) {
  uint32_t direct[4] = {};
  for (int mode = 1; mode <= 3; ++mode) ASSERT_EQ(k5x_machine_checksum(mode, &direct[mode]), 1);
  int values[8];
  // n below 2 computes nothing: the last checksum the library keeps is not touched either.
  k5x::global_state().machine.last_checksum = 0x5EED;
  for (int n : {1, 0, -5}) {
    std::fill(values, values + 8, 77);
    int count = -1;
    KF5X_MACHINE_CHECKSUM(&n, values, &count);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(values[0], 77);
    EXPECT_EQ(k5x::global_state().machine.last_checksum, 0x5EEDu);
  }
  int n = 3, count = -1;
  KF5X_MACHINE_CHECKSUM(&n, values, &count);
  ASSERT_EQ(count, 2);
  EXPECT_EQ(static_cast<uint32_t>(values[1]), direct[2]);
  for (int wide : {4, 9}) {
    std::fill(values, values + 8, 77);
    KF5X_MACHINE_CHECKSUM(&wide, values, &count);
    ASSERT_EQ(count, 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(static_cast<uint32_t>(values[i]), direct[i + 1]);
    EXPECT_EQ(values[3], 77);
  }
}

TEST_F(ByReference, ResultsAreTheDoubleAnswersNarrowed) {
  const std::vector<float> dir = reachable_direction();
  const float prev[3] = {5, -10, 20};
  const double dd[3] = {dir[0], dir[1], dir[2]}, pd[3] = {5, -10, 20};
  double abc_d[3];
  const int code = k5x_ijk2abc(dd, pd, abc_d);
  float abc[3] = {0, 0, 0};
  int status = -99;
  EXPECT_EQ(KF5X_IJK2ABC(dir.data(), prev, abc, &status), code);
  EXPECT_EQ(status, code);
  EXPECT_EQ(narrowed(abc_d, 3), std::vector<float>(abc, abc + 3));

  const float p[3] = {10, -20, 30};
  const double pp[3] = {10, -20, 30}, ad[3] = {abc[0], abc[1], abc[2]};
  double xyz_d[3];
  const int travel = k5x_pts2xyz(pp, ad, xyz_d);
  float xyz[3];
  EXPECT_EQ(KF5X_PTS2XYZ(p, abc, xyz, &status), travel);
  EXPECT_EQ(narrowed(xyz_d, 3), std::vector<float>(xyz, xyz + 3));

  double h_d[16];
  const int mat = k5x_axe_mat(-2, 0, h_d);
  float h[16];
  const int tool = -2, frame = 0;
  EXPECT_EQ(KF5X_AXE_MAT(&tool, &frame, h, &status), mat);
  EXPECT_EQ(narrowed(h_d, 16), std::vector<float>(h, h + 16));

  const float m[6] = {10, 20, 30, 0, 30, 40};
  const double md[6] = {10, 20, 30, 0, 30, 40};
  double l_d[6];
  const int m2l = k5x_m2l(md, l_d);
  float l[6];
  EXPECT_EQ(KF5X_M2L(m, l), m2l);
  EXPECT_EQ(narrowed(l_d, 6), std::vector<float>(l, l + 6));

  k5x_set_tol(0.1);
  float tol = 0;
  KF5X_GET_TOL(&tol);
  EXPECT_EQ(tol, 0.1f);
  int axis = 1;
  float limit = 0;
  KF5X_AXE_COURSE_MAXIMUM(&axis, &limit);
  EXPECT_EQ(limit, 800.0f);
  axis = 3;
  KF5X_AXE_COURSE_MINIMUM(&axis, &limit);
  EXPECT_EQ(limit, -1e10f);
}

// Each remaining entry against the double function of its row: inputs exactly representable in
// single precision, so both routes start from the same values and must agree after narrowing.
TEST_F(ByReference, EveryEntryForwardsToItsRow) {
  const float xyz_f[3] = {100, -50, 25}, abc_f[3] = {0, 30, 40};
  const double xyz_d[3] = {100, -50, 25}, abc_d[3] = {0, 30, 40};
  int status = -99;
  double out_d[3];
  float out_f[3];
  int code = k5x_xyz2ijk(xyz_d, abc_d, out_d);
  EXPECT_EQ(KF5X_XYZ2IJK(xyz_f, abc_f, out_f, &status), code);
  EXPECT_EQ(status, code);
  EXPECT_EQ(std::vector<float>(out_f, out_f + 3), narrowed(out_d, 3));
  code = k5x_xyz2pts(xyz_d, abc_d, out_d);
  EXPECT_EQ(KF5X_XYZ2PTS(xyz_f, abc_f, out_f, &status), code);
  EXPECT_EQ(std::vector<float>(out_f, out_f + 3), narrowed(out_d, 3));

  const float m_f[6] = {10, 20, 30, 0, 30, 40};
  const double m_d[6] = {10, 20, 30, 0, 30, 40};
  double six_d[6];
  float six_f[6];
  code = k5x_l2m(m_d, six_d);
  EXPECT_EQ(KF5X_L2M(m_f, six_f), code);
  EXPECT_EQ(std::vector<float>(six_f, six_f + 6), narrowed(six_d, 6));
  code = k5x_machine2tool(m_d, six_d);
  EXPECT_EQ(KF5X_MACHINE2TOOL(m_f, six_f), code);
  EXPECT_EQ(std::vector<float>(six_f, six_f + 6), narrowed(six_d, 6));

  // X above its 800 and B below its -110: one axis each for the short forms, both for the long.
  const float far_f[6] = {900, 0, 0, 0, -120, 0};
  int flags[6] = {7, 7, 7, 7, 7, 7};
  EXPECT_EQ(KF5X_TESTCOURSESXYZABC(far_f, flags, &status), 9);
  EXPECT_EQ(status, 9);
  EXPECT_EQ(flags[0], 1);
  EXPECT_EQ(flags[4], -5);
  EXPECT_EQ(KF5X_TESTCOURSESXYZ(far_f, flags, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(KF5X_TESTCOURSESABC(far_f + 3, flags, &status), -5);
  EXPECT_EQ(status, -5);

  double h_d[16];
  float h_f[16];
  k5x_ex_get_axis_matrix(xyz_d, h_d);
  KF5X_EX_GET_AXIS_MATRIX(xyz_f, h_f);
  EXPECT_EQ(std::vector<float>(h_f, h_f + 16), narrowed(h_d, 16));

  // The chain state left by the evaluation, read back through the tool-to-frame matrix.
  k5x_machine_eval(m_d);
  k5x_axe_mat(-2, 0, h_d);
  KF5X_MACHINE_EVAL(m_f);
  double after[16];
  k5x_axe_mat(-2, 0, after);
  EXPECT_EQ(std::vector<double>(after, after + 16), std::vector<double>(h_d, h_d + 16));
  const float other[6] = {0, 0, 0, 0, 0, 0};
  KF5X_MACHINE_EVAL(other);
  k5x_axe_mat(-2, 0, after);
  EXPECT_NE(std::vector<double>(after, after + 16), std::vector<double>(h_d, h_d + 16));

  const std::vector<float> dir = reachable_direction();
  const double dd[3] = {dir[0], dir[1], dir[2]};
  double init_d[3] = {0, 0, 0};
  code = k5x_ex_getinit_ijk_2_abc_not_hc(dd, init_d);
  ASSERT_EQ(code, 1);
  float init_f[3] = {0, 0, 0};
  EXPECT_EQ(KF5X_EX_GETINIT_IJK_2_ABC_NOT_HC(dir.data(), init_f, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(std::vector<float>(init_f, init_f + 3), narrowed(init_d, 3));

  const float length = 12.5f;
  KF5X_SET_OUTIL(&length);
  EXPECT_EQ(k5x_get_outil(), 12.5);
  float back = 0;
  KF5X_GET_OUTIL(&back);
  EXPECT_EQ(back, 12.5f);
  const float tol = 0.25f;
  KF5X_SET_TOL(&tol);
  EXPECT_EQ(k5x_get_tol(), 0.25);
}

// The placement matrix crosses as sixteen values in order; Z is element 12 on both routes.
TEST_F(ByReference, PieceMatrixWidenedInOrder) {
  const float t_f[16] = {1, 0, 0, 10, 0, 1, 0, 20, 0, 0, 1, 99, 30, 0, 0, 1};
  const double t_d[16] = {1, 0, 0, 10, 0, 1, 0, 20, 0, 0, 1, 99, 30, 0, 0, 1};
  const double xyz[3] = {100, -50, 25}, abc[3] = {0, 30, 40};
  ASSERT_EQ(k5x_set_piece(t_d), 0);
  double expected[3];
  k5x_xyz2pts(xyz, abc, expected);
  ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
  k5x_set_outil(1.0);
  double before[3];
  k5x_xyz2pts(xyz, abc, before);
  EXPECT_NE(std::vector<double>(before, before + 3), std::vector<double>(expected, expected + 3));
  EXPECT_EQ(KF5X_SET_PIECE(t_f), 0);
  double got[3];
  k5x_xyz2pts(xyz, abc, got);
  EXPECT_EQ(std::vector<double>(got, got + 3), std::vector<double>(expected, expected + 3));
}

TEST_F(ByReference, FailedSolveLeavesTheCallersAnglesInPlace) {
  const float zero[3] = {0, 0, 0}, prev[3] = {0, 0, 0};
  float abc[3] = {1.5f, -2.5f, 3.5f};
  int status = -99;
  EXPECT_EQ(KF5X_IJK2ABC(zero, prev, abc, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(abc[0], 1.5f);
  EXPECT_EQ(abc[1], -2.5f);
  EXPECT_EQ(abc[2], 3.5f);
}

TEST_F(ByReference, IncrementBehaviourWithoutValueKeepsTheTolerance) {
  k5x_set_increment_behaviour(0, 0.005);
  const int two = 2;
  KF5X_SET_INCREMENT_BEHAVIOUR(&two, nullptr);
  EXPECT_EQ(k5x_get_increment_behaviour(), 2);
  EXPECT_EQ(k5x_get_increment_tolerance(), 0.005);
  const int one = 1;
  const float value = 0.02f;
  KF5X_SET_INCREMENT_BEHAVIOUR(&one, &value);
  EXPECT_EQ(k5x_get_increment_behaviour(), 1);
  EXPECT_EQ(k5x_get_increment_tolerance(), static_cast<double>(0.02f));
}

TEST_F(ByReference, IncrementMachineFlagAndSteps) {
  int flag = -1;
  float steps[3] = {9, 9, 9};
  KF5X_GET_INCREMENT_MACHINE(&flag, steps);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(steps[0], 0.0f);  // no A axis
  EXPECT_EQ(steps[1], -1.0f);
  k5x_set_axe_increment(6, 5.0);
  KF5X_GET_INCREMENT_MACHINE(&flag, steps);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(steps[2], 5.0f);
}

TEST_F(ByReference, ToolChangerPositionAndModeGetters) {
  ASSERT_EQ(k5x_machine_def(k5x_test::write_temp_file(k5x_test::machine_text("DemoHead") +
                                                      "pointchangementoutil = 1, 2, 3, 4, 5, 6.1\n")
                                .c_str()),
            0);
  float pos[6] = {};
  int status = -99;
  EXPECT_EQ(K5FX_TOOLCHANGER_POSITION(pos, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(pos[0], 1.0f);
  EXPECT_EQ(pos[5], 6.1f);

  k5x_set_mode(2);
  int v = -1;
  EXPECT_EQ(KF5X_GET_MODE(&v), 2);
  EXPECT_EQ(v, 2);
  const int bad = 3;
  KF5X_SET_RTCP(&bad);
  EXPECT_EQ(KF5X_GET_RTCP(&v), 1);
  EXPECT_EQ(v, 1);
}

}  // namespace
