// Settings through the exported functions, on the process-wide state: defaults, validation, and
// which settings a load resets.
#include <gtest/gtest.h>

#include <string>

#include "api/global_state.h"
#include "k5x.h"
#include "test_machines.h"

namespace {

const char kMinimal[] =
    "nommachine = Mini\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "outil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, 0\n";

class Settings : public ::testing::Test {
 protected:
  // Back to a process that has never loaded anything.
  void TearDown() override {
    k5x_machine_def(nullptr);
    k5x_util_eps_set(1e-06);
    k5x_setsilentmode(0);
  }
  static int load(const std::string& text) {
    return k5x_machine_def(k5x_test::write_temp_file(text).c_str());
  }
};

TEST_F(Settings, DefaultsBeforeAnyLoad) {
  EXPECT_EQ(k5x_name_machine(), nullptr);
  EXPECT_EQ(k5x_get_mode(), 0);
  EXPECT_EQ(k5x_get_rtcp(), 1);
  EXPECT_DOUBLE_EQ(k5x_get_tol(), 0.05);
  EXPECT_DOUBLE_EQ(k5x_get_tol_course(), 0.001);
  EXPECT_EQ(k5x_get_outil(), 0.0);
  EXPECT_EQ(k5x_util_eps(), 1e-06);
  EXPECT_EQ(k5x::global_state().silent, 0);
  const double* initial = k5x_initial_position();
  ASSERT_NE(initial, nullptr);
  EXPECT_EQ(initial[0], 0.0);
  EXPECT_EQ(initial[1], 0.0);
  EXPECT_EQ(initial[2], 0.0);
}

TEST_F(Settings, OnlyModeAndRtcpAreValidated) {
  k5x_set_mode(1);
  for (int bad : {3, -1, 100}) k5x_set_mode(bad);
  EXPECT_EQ(k5x_get_mode(), 1);
  k5x_set_mode(2);
  EXPECT_EQ(k5x_get_mode(), 2);

  k5x_set_rtcp(2);
  for (int bad : {-1, 3}) k5x_set_rtcp(bad);
  EXPECT_EQ(k5x_get_rtcp(), 2);
  k5x_set_rtcp(0);
  EXPECT_EQ(k5x_get_rtcp(), 0);

  // The tolerance is not validated at all.
  k5x_set_tol(-1.0);
  EXPECT_EQ(k5x_get_tol(), -1.0);
}

TEST_F(Settings, LoadResetsMachineSettingsButKeepsEpsilonAndSilent) {
  k5x_set_mode(2);
  k5x_set_rtcp(0);
  k5x_set_tol(0.3);
  k5x_set_tol_course(0.2);
  k5x_set_outil(12.0);
  k5x_util_eps_set(1e-9);
  k5x_setsilentmode(1);
  ASSERT_EQ(load(kMinimal), 0);
  EXPECT_STREQ(k5x_name_machine(), "Mini");
  EXPECT_EQ(k5x_get_mode(), 0);
  EXPECT_EQ(k5x_get_rtcp(), 1);
  EXPECT_DOUBLE_EQ(k5x_get_tol(), 0.05);
  EXPECT_DOUBLE_EQ(k5x_get_tol_course(), 0.001);
  EXPECT_EQ(k5x_get_outil(), 0.0);
  EXPECT_EQ(k5x_util_eps(), 1e-9);
  EXPECT_EQ(k5x::global_state().silent, 1);
}

TEST_F(Settings, FileLinesApplyAfterTheReset) {
  k5x_set_mode(2);
  k5x_set_outil(7.0);
  ASSERT_EQ(load(std::string(kMinimal) +
                 "mode = 1\nrtcp = 2\ntolerance = 0.2\ncoursetolerance = 0.01\n"
                 "longueur = 50\npositioninitiale = 1, 2, 3\n"),
            0);
  EXPECT_EQ(k5x_get_mode(), 1);
  EXPECT_EQ(k5x_get_rtcp(), 2);
  EXPECT_DOUBLE_EQ(k5x_get_tol(), 0.2);
  EXPECT_DOUBLE_EQ(k5x_get_tol_course(), 0.01);
  EXPECT_DOUBLE_EQ(k5x_get_outil(), 50.0);
  const double* initial = k5x_initial_position();
  EXPECT_EQ(initial[0], 1.0);
  EXPECT_EQ(initial[1], 2.0);
  EXPECT_EQ(initial[2], 3.0);
  // A setter after the load lasts until the next load.
  k5x_set_tol(0.7);
  EXPECT_EQ(k5x_get_tol(), 0.7);
}

TEST_F(Settings, FailedLoadStillResetsAndClearsTheName) {
  ASSERT_EQ(load(kMinimal), 0);
  k5x_set_rtcp(0);
  k5x_util_eps_set(1e-8);
  EXPECT_EQ(k5x_machine_def("/nonexistent-dir/none.k5x"), 1);
  EXPECT_EQ(k5x_name_machine(), nullptr);
  EXPECT_EQ(k5x_get_rtcp(), 1);
  EXPECT_EQ(k5x_util_eps(), 1e-8);
  ASSERT_EQ(load(kMinimal), 0);
  EXPECT_EQ(k5x_machine_def(nullptr), 1);
  EXPECT_EQ(k5x_name_machine(), nullptr);
}

}  // namespace
