// The per-point paths (chain, solver, snapping, transforms, travel, interpolation) must not
// allocate: toolpaths run them millions of times. Counts global operator new around them.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "geometry/chain.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "motion/increments.h"
#include "motion/interpolation.h"
#include "test_machines.h"

namespace {
std::atomic<long> g_news{0};
}  // namespace

// GCC flags malloc/free inside replaced global operators as mismatched; they are the pair here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t n) {
  ++g_news;
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

class NoAllocation : public ::testing::TestWithParam<const char*> {};

TEST_P(NoAllocation, PerPointPathsDoNotAllocate) {
  k5x::State st;
  ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text(GetParam())));
  const double dirs[4][3] = {{0.3, 0.2, 0.9}, {0.0, 0.0, 1.0}, {0.5, 0.0, -0.8}, {0, 0.7, 0.7}};
  double prev[3] = {0.0, 0.0, 0.0}, abc[3], xyz[3], p[3], l[6], m[6], out[6];
  int flags[6];
  const long before = g_news;
  for (int rtcp = 0; rtcp <= 2; ++rtcp) {
    k5x::set_rtcp(st, rtcp);
    for (const auto& d : dirs) {
      k5x::solve_direction(st, d, prev, abc);
      k5x::snap_to_increments(st, abc, d, out);
      const double point[3] = {10.0, -5.0, 2.0};
      k5x::place_tip(st, point, abc, xyz);
      k5x::tip_at(st, xyz, abc, p);
      k5x::tool_axis_at(st, xyz, abc, p);
      const double pos[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};
      k5x::machine_to_programmed(st, pos, l);
      k5x::programmed_to_machine(st, l, m);
      k5x::machine_to_tool(st, pos, out);
      k5x::travel_test(st, pos, flags);
      k5x::interpolation(st, pos, m, 0.5, out);
      for (int i = 0; i < 3; ++i) prev[i] = abc[i];
    }
  }
  EXPECT_EQ(0, g_news - before);
}

INSTANTIATE_TEST_SUITE_P(EmbeddedMachines, NoAllocation,
                         ::testing::Values("DemoHead", "Trunnion", "HeadTable", "IndexedTable"));

}  // namespace
