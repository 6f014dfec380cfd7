// The by-reference family against the double-precision functions it forwards to: text
// conversion, widening and narrowing, capacity-and-count, and the checksum loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "api/global_state.h"
#include "k5x.h"
#include "test_machines.h"

namespace {

using Floats = std::vector<float>;
Floats narrowed(const double* d, std::size_t n) { return Floats(d, d + n); }
Floats floats(const float* f, std::size_t n) { return Floats(f, f + n); }

class ByReference : public ::testing::Test {
 protected:
  std::string path = k5x_test::write_temp_file(k5x_test::machine_text("DemoHead"));
  int status = -99;
  void SetUp() override {
    ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
    k5x_set_outil(1.0);
  }
  int def(const char* text, int length) {
    const int code = KF5X_MACHINE_DEF(text, length, &status);
    EXPECT_EQ(code, status);
    return code;
  }
  int def(const std::string& text) { return def(text.data(), static_cast<int>(text.size())); }
};

TEST_F(ByReference, TextConversionDropsTrailingBlanksControlsAndHighBytes) {
  EXPECT_EQ(def(path + "\xC3\xA9\t\r\n \x80\xFF"), 0);
  EXPECT_EQ(def(path + "\x7F"), 1);  // 127 is a character
  EXPECT_EQ(def(path + "!"), 1);
  // Only trailing bytes go: a name with a non-ASCII byte inside still opens.
  const std::string inner = path + "\xC3\xA9x";
  std::ofstream(inner) << k5x_test::machine_text("Trunnion");
  EXPECT_EQ(def(inner + "\xC3\xA9   "), 0);
  EXPECT_STREQ(k5x_name_machine(), "Trunnion");
  std::remove(inner.c_str());
  // No text at all loads nothing.
  for (int length : {0, -3}) {
    ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
    EXPECT_EQ(def(path.data(), length), 1);
    EXPECT_EQ(k5x_name_machine(), nullptr);
  }
  EXPECT_EQ(def(nullptr, 10), 1);
  EXPECT_EQ(def(std::string(200, ' ')), 1);
}

TEST_F(ByReference, SubdivisionFillsTheNarrowedRows) {
  const float from[6] = {0, 0, 0, 0, 0, 0}, to[6] = {60, -30, 90, 0, 30, 40};
  const double s[6] = {0, 0, 0, 0, 0, 0}, e[6] = {60, -30, 90, 0, 30, 40};
  int rows = 0, count;
  double* table = nullptr;
  const int code = k5x_xyzabc(s, e, &rows, &table);
  ASSERT_GT(rows, 1);
  const Floats expected = narrowed(table, 6 * static_cast<std::size_t>(rows));
  Floats points(expected.size(), -7.0f);
  count = rows;
  EXPECT_EQ(KF5X_XYZABC(from, to, &count, points.data(), &status), code);
  EXPECT_EQ(std::make_pair(status, count), std::make_pair(code, rows));
  EXPECT_EQ(points, expected);
}

TEST_F(ByReference, EnumerationNegatesTheCountThenFillsAnglesAndFlags) {
  // A direction DemoHead reaches at B 30, C 40, narrowed so that both routes start from it.
  const double origin[3] = {0, 0, 0}, pose[3] = {0, 30, 40};
  double d[3];
  k5x_xyz2ijk(origin, pose, d);
  const Floats dir = narrowed(d, 3);
  std::copy(dir.begin(), dir.end(), d);
  int ignored = 0, count = 0;
  double* solutions = nullptr;
  int* words = nullptr;
  const int n = k5x_ex_getallabchcpossible(d, &ignored, &solutions, &words);
  ASSERT_GT(n, 0);
  const Floats expected = narrowed(solutions, 3 * static_cast<std::size_t>(n));
  const std::vector<int> expected_flags(words, words + n);
  // One entry to spare on the second call: only n are written.
  Floats angles(3 * static_cast<std::size_t>(n) + 3, -7.0f);
  std::vector<int> flags(static_cast<std::size_t>(n) + 1, -7);
  EXPECT_EQ(KF5X_EX_GETALLABCHCPOSSIBLE(dir.data(), &count, angles.data(), flags.data(), &status),
            n);
  EXPECT_EQ(count, -n);
  EXPECT_EQ(angles, Floats(angles.size(), -7.0f));
  EXPECT_EQ(flags, std::vector<int>(flags.size(), -7));
  count = n + 1;
  EXPECT_EQ(KF5X_EX_GETALLABCHCPOSSIBLE(dir.data(), &count, angles.data(), flags.data(), &status),
            n);
  EXPECT_EQ(std::make_pair(status, count), std::make_pair(n, n));
  EXPECT_EQ(Floats(angles.begin(), angles.end() - 3), expected);
  EXPECT_EQ(std::vector<int>(flags.begin(), flags.end() - 1), expected_flags);
  EXPECT_EQ(std::make_pair(angles.back(), flags.back()), std::make_pair(-7.0f, -7));
}

TEST_F(ByReference, ChecksumOverModesOneToNMinusOne) {
  uint32_t direct[4] = {};
  for (int mode = 1; mode <= 3; ++mode) ASSERT_EQ(k5x_machine_checksum(mode, &direct[mode]), 1);
  int values[8], count = -1;
  // n below 2 computes nothing: the last checksum the library keeps is not touched either.
  k5x::global_state().machine.last_checksum = 0x5EED;
  for (int n : {1, 0, -5, 3, 4, 9}) {
    std::fill(values, values + 8, 77);
    KF5X_MACHINE_CHECKSUM(&n, values, &count);
    const int want = std::min(std::max(n - 1, 0), 3);
    ASSERT_EQ(count, want) << n;
    for (int i = 0; i < want; ++i) EXPECT_EQ(static_cast<uint32_t>(values[i]), direct[i + 1]);
    EXPECT_EQ(values[want], 77) << n;
    if (n < 2) {
      EXPECT_EQ(k5x::global_state().machine.last_checksum, 0x5EEDu);
    }
  }
}

TEST_F(ByReference, FailedSolveLeavesTheCallersAngles) {
  const float zero[3] = {0, 0, 0};
  float abc[3] = {1.5f, -2.5f, 3.5f};
  EXPECT_EQ(KF5X_IJK2ABC(zero, zero, abc, &status), 1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(floats(abc, 3), Floats({1.5f, -2.5f, 3.5f}));
}

TEST_F(ByReference, Increments) {
  auto increments = [] {
    return std::make_pair(k5x_get_increment_behaviour(), k5x_get_increment_tolerance());
  };
  const int one = 1, two = 2;
  const float value = 0.02f;
  const double before = k5x_get_increment_tolerance();
  KF5X_SET_INCREMENT_BEHAVIOUR(&two, nullptr);  // a null value address means -1.0: kept
  EXPECT_EQ(increments(), std::make_pair(2, before));
  KF5X_SET_INCREMENT_BEHAVIOUR(&one, &value);
  EXPECT_EQ(increments(), std::make_pair(1, double(0.02f)));
  int flag = -1;
  float steps[3] = {9, 9, 9};
  KF5X_GET_INCREMENT_MACHINE(&flag, steps);
  EXPECT_EQ(std::make_tuple(flag, steps[0], steps[1]), std::make_tuple(0, 0.0f, -1.0f));  // no A
  k5x_set_axe_increment(6, 5.0);
  KF5X_GET_INCREMENT_MACHINE(&flag, steps);
  EXPECT_EQ(std::make_pair(flag, steps[2]), std::make_pair(1, 5.0f));
}

TEST_F(ByReference, ToolChangerPositionAndModeGetters) {
  ASSERT_EQ(def(k5x_test::write_temp_file(k5x_test::machine_text("DemoHead") +
                                          "pointchangementoutil = 1, 2, 3, 4, 5, 6.1\n")),
            0);
  float pos[6] = {};
  EXPECT_EQ(K5FX_TOOLCHANGER_POSITION(pos, &status), 1);
  EXPECT_EQ(std::make_tuple(status, pos[0], pos[5]), std::make_tuple(1, 1.0f, 6.1f));
  const int two = 2, bad = 3;
  KF5X_SET_MODE(&two);
  KF5X_SET_RTCP(&bad);
  int mode = -1, rtcp = -1;
  EXPECT_EQ(std::make_pair(KF5X_GET_MODE(&mode), KF5X_GET_RTCP(&rtcp)), std::make_pair(2, 1));
  EXPECT_EQ(std::make_pair(mode, rtcp), std::make_pair(2, 1));
}

}  // namespace
