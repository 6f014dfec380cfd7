// Settings through the exported functions, on the process-wide state: defaults, validation, and
// which settings a load resets.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "api/global_state.h"
#include "k5x.h"
#include "test_machines.h"

namespace {

auto settings() {
  return std::make_tuple(k5x_get_mode(), k5x_get_rtcp(), k5x_get_tol(), k5x_get_tol_course(),
                         k5x_get_outil(), k5x_util_eps(), int{k5x::global_state().silent});
}

// The only test of this program: it starts from the state of a fresh process.
TEST(Settings, DefaultsValidationAndLifetimeAcrossALoad) {
  EXPECT_EQ(k5x_name_machine(), nullptr);
  EXPECT_EQ(settings(), std::make_tuple(0, 1, 0.05, 0.001, 0.0, 1e-06, 0));
  const double* p = k5x_initial_position();  // the state's own array, read again below
  EXPECT_EQ(std::make_tuple(p[0], p[1], p[2]), std::make_tuple(0.0, 0.0, 0.0));
  // Only mode and rtcp are validated.
  k5x_set_mode(2);
  k5x_set_mode(3);
  k5x_set_rtcp(0);
  k5x_set_rtcp(-1);
  k5x_set_tol(-1.0);
  k5x_set_tol_course(0.2);
  k5x_set_outil(12.0);
  k5x_util_eps_set(1e-9);
  k5x_setsilentmode(1);
  EXPECT_EQ(settings(), std::make_tuple(2, 0, -1.0, 0.2, 12.0, 1e-9, 1));
  // A load resets the machine's settings, then applies the file's lines; epsilon and the silent
  // flag are not the machine's.
  const std::string path = k5x_test::write_temp_file(
      "nommachine = Mini\nbati = Z\naxe = AXE_X, X\noutil = Z\npiece = X, Y\nmode = 1\n"
      "longueur = 50\npositioninitiale = 1, 2, 3\n");
  ASSERT_EQ(k5x_machine_def(path.c_str()), 0);
  EXPECT_STREQ(k5x_name_machine(), "Mini");
  EXPECT_EQ(settings(), std::make_tuple(1, 1, 0.05, 0.001, 50.0, 1e-9, 1));
  EXPECT_EQ(std::make_tuple(p[0], p[1], p[2]), std::make_tuple(1.0, 2.0, 3.0));
}

}  // namespace
