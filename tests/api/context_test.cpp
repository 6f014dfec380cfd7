// The context store: private copies, replacement of all four texts, reloading with the
// application's tool length, and the failure codes.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "api/context.h"
#include "k5x.h"
#include "geometry/load.h"
#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

using k5x_test::machine_text;
using k5x_test::write_temp_file;

class Context : public ::testing::Test {
 protected:
  k5x::State st;
  // Trunnion's file says `longueur = 100`, which a context load must not keep.
  std::string trunnion = write_temp_file(machine_text("Trunnion"));
  std::string demo = write_temp_file(machine_text("DemoHead"));
  const double origin[3] = {1.5, -2.0, 3.25};
  char* out = nullptr;
};

// The application's tool length survives a reload, 1.0 below 0.001, even when the load fails.
TEST_F(Context, ToolLengthRule) {
  const std::string broken = write_temp_file("bati = Z, F\n");
  const double rows[][2] = {{0.0, 1.0}, {0.0005, 1.0}, {0.001, 0.001}, {25.0, 25.0}};
  const std::pair<const char*, int> files[] = {
      {trunnion.c_str(), 0}, {"/nonexistent-dir/machine.k5x", 1}, {broken.c_str(), 12}};
  for (const auto& f : files) {
    for (const auto& r : rows) {
      st.machine.tool_length = r[0];
      EXPECT_EQ(k5x::ctx_set(st, "c", "m", f.first, "p", origin), f.second) << f.first;
      EXPECT_EQ(st.machine.tool_length, r[1]) << f.first << " from " << r[0];
    }
  }
}

TEST_F(Context, TextsArePrivateCopiesHandedOutByPointer) {
  char context[] = "job 7", machine[] = "mill-2", position[] = "G54";
  std::string data = demo;
  ASSERT_EQ(k5x::ctx_set(st, context, machine, &data[0], position, origin), 0);
  context[0] = data[0] = 'X';
  char *c = nullptr, *m = nullptr, *d = nullptr, *p = nullptr;
  ASSERT_EQ(k5x::ctx_get_context(st, &c) + k5x::ctx_get_machine(st, &m) +
                k5x::ctx_get_machine_data(st, &d) + k5x::ctx_get_position(st, &p),
            0);
  EXPECT_EQ(std::string(c) + "|" + m + "|" + d + "|" + p, "job 7|mill-2|" + demo + "|G54");
  k5x::ctx_get_context(st, &out);
  EXPECT_EQ(out, c);  // the stored pointer, not a fresh copy
  // The stored pointers may be handed back: the copies are made before the old texts go.
  EXPECT_EQ(k5x::ctx_set(st, c, m, d, p, st.ctx.origin), 0);
  k5x::ctx_get_machine_data(st, &out);
  EXPECT_EQ(out, demo);
}

// Without machine data nothing is loaded and the machine stays as it was; the texts given are
// stored all the same, and the ones not given are cleared.
TEST_F(Context, NullArgumentsClearTextsAndKeepTheOrigin) {
  ASSERT_EQ(k5x::ctx_set(st, "c", "m", demo.c_str(), "p", origin), 0);
  st.machine.tool_length = 42.0;
  EXPECT_EQ(k5x::ctx_set(st, "ctx", nullptr, nullptr, nullptr, nullptr), -103);
  EXPECT_STREQ(k5x::machine_name(st), "DemoHead");
  EXPECT_EQ(st.machine.tool_length, 42.0);
  char sentinel[] = "untouched";
  out = sentinel;
  EXPECT_EQ(k5x::ctx_get_machine(st, &out), -105);
  EXPECT_EQ(k5x::ctx_get_machine_data(st, &out), -106);
  EXPECT_EQ(k5x::ctx_get_position(st, &out), -107);
  EXPECT_EQ(out, sentinel);
  EXPECT_EQ(k5x::ctx_get_context(st, &out), 0);
  EXPECT_STREQ(out, "ctx");
  EXPECT_EQ(k5x::ctx_set(st, nullptr, nullptr, nullptr, nullptr, nullptr), -103);
  EXPECT_EQ(k5x::ctx_get_context(st, &out), -104);
  double o[3] = {0, 0, 0};
  EXPECT_EQ(k5x::ctx_get_origin(st, o), 0);
  EXPECT_EQ(std::vector<double>(o, o + 3), std::vector<double>(origin, origin + 3));
  EXPECT_EQ(k5x::ctx_get_origin(st, nullptr), -108);
}

TEST_F(Context, ReloadReleasesTheTableAndDirectLoadsLeaveTheStore) {
  ASSERT_EQ(k5x::machine_def(st, demo.c_str()), 0);
  const double s[6] = {0, 0, 0, 0, 0, 0}, e[6] = {10, 0, 0, 0, 0, 0};
  int n = 4;
  double* table = nullptr;
  ASSERT_EQ(k5x::interpolation_table(st, s, e, &n, &table), 0);
  ASSERT_NE(st.table, nullptr);
  EXPECT_EQ(k5x::ctx_set(st, nullptr, nullptr, demo.c_str(), nullptr, nullptr), 0);
  EXPECT_EQ(st.table, nullptr);
  ASSERT_EQ(k5x::machine_def(st, trunnion.c_str()), 0);
  ASSERT_EQ(k5x::ctx_get_machine_data(st, &out), 0);
  EXPECT_EQ(out, demo);
  EXPECT_EQ(k5x::ctx_init(st), 0);
  EXPECT_STREQ(k5x::machine_name(st), "DemoHead");
}

// The exported functions bind the process-wide store.
TEST(ContextExported, RoundTripThroughTheCInterface) {
  const double origin[3] = {4, 5, 6};
  EXPECT_EQ(k5x_ctx_setContext("c", "m", write_temp_file(machine_text("DemoHead")).c_str(), "p",
                               origin),
            0);
  EXPECT_EQ(k5x_get_outil(), 1.0);
  // Leave no texts stored and no machine loaded.
  EXPECT_EQ(k5x_ctx_setContext(nullptr, nullptr, nullptr, nullptr, nullptr), -103);
  k5x_machine_def(nullptr);
}

}  // namespace
