// The references one move is measured against, on the same toolpath and in the same run: the
// hand-inlined closed form of the Trunnion (an A/C table-table machine), which is the floor of
// what any solver can cost, and a general numeric IK (KDL's Levenberg-Marquardt solver) on the
// equivalent serial chain, seeded with the previous solution as a post-processor would.
//
// Before timing, each benchmark checks on every pose that its answer is the library's answer, so
// the ratios compare the same work.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <vector>

#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#include <kdl/frames.hpp>
#include <kdl/jntarray.hpp>

#include "cli/embedded_machines.h"
#include "load_machine.h"
#include "k5x.h"

namespace {

constexpr double kRad = 3.141592653589793 / 180.0;
constexpr int kPoses = 1024;  // a power of two: the loops wrap with a mask

// The Trunnion's geometry as its machine file states it: the tool along +Z, both rotary axes on
// the workpiece side through the origin, the tool length 100 lifting Z.
constexpr double kToolLength = 100.0;
constexpr double kMinA = -120.0, kMaxA = 30.0;

struct Pose {
  double point[3];
  double dir[3];
};

// A smooth pass: the tool tilts between 5 and 55 degrees while turning twice round the table,
// and the point follows a spiral; consecutive poses are close, as on a real toolpath.
std::vector<Pose> trunnion_path() {
  std::vector<Pose> poses(kPoses);
  for (int i = 0; i < kPoses; ++i) {
    const double s = static_cast<double>(i) / kPoses;
    const double tilt = (30.0 + 25.0 * std::sin(6.0 * 3.141592653589793 * s)) * kRad;
    const double turn = 720.0 * s * kRad;
    Pose& p = poses[i];
    p.dir[0] = std::sin(tilt) * std::cos(turn);
    p.dir[1] = std::sin(tilt) * std::sin(turn);
    p.dir[2] = std::cos(tilt);
    p.point[0] = (40.0 + 20.0 * s) * std::cos(3.0 * turn);
    p.point[1] = (40.0 + 20.0 * s) * std::sin(3.0 * turn);
    p.point[2] = 10.0 * std::sin(turn);
  }
  return poses;
}

// The closed form: the table turns the direction into the tool's +Z, C first (into the Y-Z
// plane), then A; the workpiece point then goes through the same two rotations.
inline void floor_move(const Pose& pose, const double prev[3], double out[6]) {
  const double* d = pose.dir;
  const double tilt = std::acos(d[2] > 1.0 ? 1.0 : (d[2] < -1.0 ? -1.0 : d[2])) / kRad;
  const double horizontal = std::sqrt(d[0] * d[0] + d[1] * d[1]);
  double c1 = horizontal > 1e-12 ? -std::atan2(d[0], d[1]) / kRad : prev[2];
  c1 += 360.0 * std::round((prev[2] - c1) / 360.0);
  double c2 = c1 + 180.0;
  c2 += 360.0 * std::round((prev[2] - c2) / 360.0);
  const double a1 = -tilt, a2 = tilt;
  // The branch that moves the rotary axes least, as the library's mode 0 does.
  const double move1 = std::fmax(std::fabs(a1 - prev[0]), std::fabs(c1 - prev[2]));
  const double move2 = std::fmax(std::fabs(a2 - prev[0]), std::fabs(c2 - prev[2]));
  const bool first = move1 <= move2;
  const double a = first ? a1 : a2, c = first ? c1 : c2;
  const double ca = std::cos(-a * kRad), sa = std::sin(-a * kRad);
  const double cc = std::cos(-c * kRad), sc = std::sin(-c * kRad);
  const double* p = pose.point;
  const double x = cc * p[0] - sc * p[1], y = sc * p[0] + cc * p[1];
  out[0] = x;
  out[1] = ca * y - sa * p[2];
  out[2] = sa * y + ca * p[2] + kToolLength;
  out[3] = a;
  out[4] = 0.0;
  out[5] = c;
}

bool load_trunnion() {
  if (k5x_test::load_machine_c_api("Trunnion") != 0) return false;
  k5x_setsilentmode(1);
  return true;
}

inline void library_move(const Pose& pose, const double prev[3], double out[6]) {
  k5x_ijk2abc(pose.dir, prev, out + 3);
  k5x_pts2xyz(pose.point, out + 3, out);
}

// Where every run starts: near the in-travel branch (A negative), so that the first pose is no
// tie between the branches, which each side could break its own way.
constexpr double kStart[3] = {-10.0, 0.0, -10.0};

// The whole path through the library from kStart, every position kept.
std::vector<double> library_path(const std::vector<Pose>& poses) {
  std::vector<double> out(6 * poses.size());
  double prev[3] = {kStart[0], kStart[1], kStart[2]};
  for (std::size_t i = 0; i < poses.size(); ++i) {
    library_move(poses[i], prev, &out[6 * i]);
    for (int k = 0; k < 3; ++k) prev[k] = out[6 * i + 3 + k];
  }
  return out;
}

bool same_position(const double a[6], const double b[6]) {
  for (int k = 0; k < 6; ++k)
    if (!(std::fabs(a[k] - b[k]) <= 1e-6)) return false;
  return true;
}

void BM_FloorMove(benchmark::State& state) {
  if (!load_trunnion()) return state.SkipWithError("cannot load Trunnion");
  const std::vector<Pose> poses = trunnion_path();
  const std::vector<double> expected = library_path(poses);
  double prev[3] = {kStart[0], kStart[1], kStart[2]}, out[6];
  for (int i = 0; i < kPoses; ++i) {
    floor_move(poses[i], prev, out);
    if (!same_position(out, &expected[6 * i]))
      return state.SkipWithError("the closed form disagrees with the library");
    if (out[3] < kMinA || out[3] > kMaxA)
      return state.SkipWithError("the test path leaves the A travel");
    for (int k = 0; k < 3; ++k) prev[k] = out[3 + k];
  }
  int i = 0;
  for (auto _ : state) {
    floor_move(poses[i], prev, out);
    benchmark::DoNotOptimize(out);
    for (int k = 0; k < 3; ++k) prev[k] = out[3 + k];
    i = (i + 1) & (kPoses - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorMove);

// One move through the library: the orientation solve, then the linear axes.
void BM_OneMove(benchmark::State& state) {
  if (!load_trunnion()) return state.SkipWithError("cannot load Trunnion");
  const std::vector<Pose> poses = trunnion_path();
  double prev[3] = {kStart[0], kStart[1], kStart[2]}, out[6];
  int i = 0;
  for (auto _ : state) {
    library_move(poses[i], prev, out);
    benchmark::DoNotOptimize(out);
    for (int k = 0; k < 3; ++k) prev[k] = out[3 + k];
    i = (i + 1) & (kPoses - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OneMove);

// Every in-travel solution of one direction.
void BM_Enumeration(benchmark::State& state) {
  if (!load_trunnion()) return state.SkipWithError("cannot load Trunnion");
  const std::vector<Pose> poses = trunnion_path();
  long found = 0;
  int i = 0;
  for (auto _ : state) {
    int count = 0;
    double* solutions = nullptr;
    int* flags = nullptr;
    benchmark::DoNotOptimize(k5x_ex_getallabchcpossible(poses[i].dir, &count, &solutions, &flags));
    found += count;
    i = (i + 1) & (kPoses - 1);
  }
  state.counters["solutions"] =
      benchmark::Counter(static_cast<double>(found) / static_cast<double>(state.iterations()));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Enumeration);

// The Trunnion as a serial chain from the workpiece to the tool tip: the table's C, then A, then
// the three slides, then the tool length back down the tool axis. Joint values are radians and
// the file's length unit.
KDL::Chain trunnion_chain() {
  KDL::Chain chain;
  chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::RotZ)));
  chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::RotX)));
  chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::TransX)));
  chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::TransY)));
  chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::TransZ),
                                KDL::Frame(KDL::Vector(0.0, 0.0, -kToolLength))));
  return chain;
}

void to_joints(const double pos[6], KDL::JntArray& q) {
  q(0) = pos[5] * kRad;
  q(1) = pos[3] * kRad;
  q(2) = pos[0];
  q(3) = pos[1];
  q(4) = pos[2];
}

void BM_KdlMove(benchmark::State& state) {
  if (!load_trunnion()) return state.SkipWithError("cannot load Trunnion");
  const std::vector<Pose> poses = trunnion_path();
  const std::vector<double> expected = library_path(poses);
  const KDL::Chain chain = trunnion_chain();
  KDL::ChainFkSolverPos_recursive fk(chain);
  KDL::ChainIkSolverPos_LMA ik(chain);
  // The targets are the library's poses, and each must really be the programmed tip and axis.
  std::vector<KDL::Frame> targets(kPoses);
  KDL::JntArray q(5), seed(5), solved(5);
  for (int i = 0; i < kPoses; ++i) {
    to_joints(&expected[6 * i], q);
    fk.JntToCart(q, targets[i]);
    const KDL::Vector tip = targets[i].p, axis = targets[i].M.UnitZ();
    const Pose& p = poses[i];
    if ((tip - KDL::Vector(p.point[0], p.point[1], p.point[2])).Norm() > 1e-6 ||
        (axis - KDL::Vector(p.dir[0], p.dir[1], p.dir[2])).Norm() > 1e-9)
      return state.SkipWithError("the chain does not reproduce the library's poses");
  }
  to_joints(&expected[6 * (kPoses - 1)], seed);
  long failures = 0;
  int i = 0;
  for (auto _ : state) {
    if (ik.CartToJnt(seed, targets[i], solved) < 0) ++failures;
    seed = solved;
    i = (i + 1) & (kPoses - 1);
  }
  state.counters["failures"] = benchmark::Counter(static_cast<double>(failures));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_KdlMove);

}  // namespace
