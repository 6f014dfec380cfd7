// The context store: private copies, replacement of all four texts, reloading with the
// application's tool length, and the failure codes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/context.h"
#include "k5x.h"
#include "machine/loader.h"
#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

class Context : public ::testing::Test {
 protected:
  k5x::State st;
  // Trunnion's file says `longueur = 100`, which a context load must not keep.
  std::string trunnion = k5x_test::write_temp_file(k5x_test::machine_text("Trunnion"));
  std::string demo = k5x_test::write_temp_file(k5x_test::machine_text("DemoHead"));
  const double origin[3] = {1.5, -2.0, 3.25};
};

TEST_F(Context, NoMachineDataLeavesTheMachineAsItWas) {
  ASSERT_EQ(k5x::machine_def(st, demo.c_str()), 0);
  st.machine.outil = 42.0;
  const int records = st.machine.record_count;
  EXPECT_EQ(k5x::ctx_set(st, "ctx", "mach", nullptr, "pos", origin), -103);
  EXPECT_STREQ(k5x::name_machine(st), "DemoHead");
  EXPECT_EQ(st.machine.record_count, records);
  EXPECT_EQ(st.machine.outil, 42.0);
  EXPECT_EQ(k5x::ctx_init(st), -103);
  EXPECT_EQ(st.machine.outil, 42.0);
  // The texts given were stored all the same.
  char* out = nullptr;
  EXPECT_EQ(k5x::ctx_get_context(st, &out), 0);
  EXPECT_STREQ(out, "ctx");
}

struct ToolCase {
  double before;
  double after;
};

class ToolLength : public Context, public ::testing::WithParamInterface<ToolCase> {};

TEST_P(ToolLength, ReloadKeepsTheApplicationsToolOverTheFile) {
  st.machine.outil = GetParam().before;
  EXPECT_EQ(k5x::ctx_set(st, nullptr, nullptr, trunnion.c_str(), nullptr, nullptr), 0);
  EXPECT_STREQ(k5x::name_machine(st), "Trunnion");
  EXPECT_EQ(st.machine.outil, GetParam().after);
}

TEST_P(ToolLength, SetEvenWhenTheFileCannotBeOpened) {
  st.machine.outil = GetParam().before;
  EXPECT_EQ(k5x::ctx_set(st, "c", "m", "/nonexistent-dir/machine.k5x", "p", origin), 1);
  EXPECT_EQ(k5x::name_machine(st), nullptr);
  EXPECT_EQ(st.machine.outil, GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(Context, ToolLength,
                         ::testing::Values(ToolCase{0.0, 1.0}, ToolCase{0.0005, 1.0},
                                           ToolCase{-5.0, 1.0}, ToolCase{0.001, 0.001},
                                           ToolCase{25.0, 25.0}));

TEST_F(Context, OtherLoadCodesArePassedOn) {
  const std::string broken = k5x_test::write_temp_file("nommachine = Broken\nbati = Z, F\n");
  st.machine.outil = 3.0;
  EXPECT_EQ(k5x::ctx_set(st, nullptr, nullptr, broken.c_str(), nullptr, nullptr), 12);
  EXPECT_EQ(st.machine.outil, 3.0);
}

TEST_F(Context, TextsArePrivateCopiesHandedOutByPointer) {
  char context[] = "job 7", machine[] = "mill-2", position[] = "G54";
  std::string data = demo;
  ASSERT_EQ(k5x::ctx_set(st, context, machine, &data[0], position, origin), 0);
  context[0] = 'X';
  data[0] = 'X';

  char* out = nullptr;
  ASSERT_EQ(k5x::ctx_get_context(st, &out), 0);
  EXPECT_STREQ(out, "job 7");
  EXPECT_NE(out, context);
  char* again = nullptr;
  k5x::ctx_get_context(st, &again);
  EXPECT_EQ(out, again);  // the stored pointer, not a fresh copy
  ASSERT_EQ(k5x::ctx_get_machine(st, &out), 0);
  EXPECT_STREQ(out, "mill-2");
  ASSERT_EQ(k5x::ctx_get_machine_data(st, &out), 0);
  EXPECT_EQ(std::string(out), demo);
  ASSERT_EQ(k5x::ctx_get_position(st, &out), 0);
  EXPECT_STREQ(out, "G54");
}

TEST_F(Context, NullArgumentsClearTheirTextsAndGettersLeaveTheOutputAlone) {
  ASSERT_EQ(k5x::ctx_set(st, "c", "m", demo.c_str(), "p", origin), 0);
  ASSERT_EQ(k5x::ctx_set(st, nullptr, nullptr, trunnion.c_str(), nullptr, nullptr), 0);
  char sentinel[] = "untouched";
  char* out = sentinel;
  EXPECT_EQ(k5x::ctx_get_context(st, &out), -104);
  EXPECT_EQ(k5x::ctx_get_machine(st, &out), -105);
  EXPECT_EQ(k5x::ctx_get_position(st, &out), -107);
  EXPECT_EQ(out, sentinel);
  ASSERT_EQ(k5x::ctx_set(st, nullptr, nullptr, nullptr, nullptr, nullptr), -103);
  EXPECT_EQ(k5x::ctx_get_machine_data(st, &out), -106);
  EXPECT_EQ(out, sentinel);
}

TEST_F(Context, OriginKeptWhenNullAndNullOutputRefused) {
  double out[3] = {0, 0, 0};
  EXPECT_EQ(k5x::ctx_get_origin(st, out), 0);
  EXPECT_EQ(out[0], 0.0);
  k5x::ctx_set(st, nullptr, nullptr, demo.c_str(), nullptr, origin);
  k5x::ctx_set(st, "other", nullptr, demo.c_str(), nullptr, nullptr);
  EXPECT_EQ(k5x::ctx_get_origin(st, out), 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], origin[i]);
  EXPECT_EQ(k5x::ctx_get_origin(st, nullptr), -108);
}

TEST_F(Context, StoredPointersMayBeHandedBack) {
  ASSERT_EQ(k5x::ctx_set(st, "c", "m", demo.c_str(), "p", origin), 0);
  char *c = nullptr, *m = nullptr, *d = nullptr, *p = nullptr;
  k5x::ctx_get_context(st, &c);
  k5x::ctx_get_machine(st, &m);
  k5x::ctx_get_machine_data(st, &d);
  k5x::ctx_get_position(st, &p);
  EXPECT_EQ(k5x::ctx_set(st, c, m, d, p, st.ctx.origin), 0);
  char* out = nullptr;
  k5x::ctx_get_machine_data(st, &out);
  EXPECT_EQ(std::string(out), demo);
}

TEST_F(Context, ReloadReleasesTheInterpolationTable) {
  ASSERT_EQ(k5x::machine_def(st, demo.c_str()), 0);
  const double s[6] = {0, 0, 0, 0, 0, 0}, e[6] = {10, 0, 0, 0, 0, 0};
  int n = 4;
  double* table = nullptr;
  ASSERT_EQ(k5x::interpolationtable(st, s, e, &n, &table), 0);
  ASSERT_NE(st.table, nullptr);
  EXPECT_EQ(k5x::ctx_set(st, nullptr, nullptr, demo.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(st.table, nullptr);
  EXPECT_EQ(st.table_capacity, 0);
}

TEST_F(Context, DirectLoadDoesNotTouchTheStore) {
  ASSERT_EQ(k5x::ctx_set(st, "c", nullptr, demo.c_str(), nullptr, nullptr), 0);
  ASSERT_EQ(k5x::machine_def(st, trunnion.c_str()), 0);
  char* out = nullptr;
  ASSERT_EQ(k5x::ctx_get_machine_data(st, &out), 0);
  EXPECT_EQ(std::string(out), demo);
  // initContext reloads what the context names.
  EXPECT_EQ(k5x::ctx_init(st), 0);
  EXPECT_STREQ(k5x::name_machine(st), "DemoHead");
}

// The exported functions bind the process-wide store.
TEST(ContextExported, RoundTripThroughTheCInterface) {
  const std::string demo = k5x_test::write_temp_file(k5x_test::machine_text("DemoHead"));
  const double origin[3] = {4, 5, 6};
  EXPECT_EQ(k5x_ctx_setContext("c", "m", demo.c_str(), "p", origin), 0);
  EXPECT_STREQ(k5x_name_machine(), "DemoHead");
  EXPECT_EQ(k5x_get_outil(), 1.0);
  char* out = nullptr;
  EXPECT_EQ(k5x_ctx_getPosition(&out), 0);
  EXPECT_STREQ(out, "p");
  double o[3];
  EXPECT_EQ(k5x_ctx_getOrigin(o), 0);
  EXPECT_EQ(o[2], 6.0);
  EXPECT_EQ(k5x_ctx_initContext(), 0);
  // Leave the process-wide state as a fresh process has it.
  const double zero[3] = {0, 0, 0};
  EXPECT_EQ(k5x_ctx_setContext(nullptr, nullptr, nullptr, nullptr, zero), -103);
  k5x_machine_def(nullptr);
}

}  // namespace
