#include "geometry/load.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "motion/increments.h"
#include "test_machines.h"

namespace k5x {
namespace {

using k5x_test::expect_values;
using k5x_test::load_text;
using k5x_test::machine_text;

// Frame, an X slide carrying a B head with the tool, and the workpiece on the frame. The current
// record at the end is B, which has room for one more child.
const std::string kBase =
    "nommachine = Base\nbati = Z, Frame\npiece = X, Y, 0, 0, 0\naxe = AXE_X, X, SX\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 100, HB\noutil = Z, 0, 0, 0\n";

int index_of(const State& st, const char* name) {
  for (int i = 0; i < st.machine.record_count; ++i)
    if (std::strcmp(st.machine.records[i].name, name) == 0) return i;
  ADD_FAILURE() << "no record named " << name;
  return 0;
}

// One state for all the loads of a test: each load starts from a reset, whatever came before.
class Loader : public ::testing::Test {
 protected:
  int load(const std::string& text) { return load_text(st_, text); }
  int load_base(const std::string& extra) { return load(kBase + extra); }
  const AxisRecord& rec(const char* name) { return st_.machine.records[index_of(st_, name)]; }
  State st_;
  const Model& m = st_.machine;
};

TEST_F(Loader, ReturnCodes) {
  const struct {
    const char* name;
    std::string text;
    int code;
  } rows[] = {
      {"FrameNotFirst", kBase + "bati = Z\n", 2},
      {"TenthRecord", "bati=Z\naxe=AXE_X,X\naxe=AXE_Y,Y\naxe=AXE_Z,Z\nrotation=AXE_A,X\n"
                      "rotation=AXE_B,Y\nrotation=AXE_C,Z\noutil=Z\npiece=X,Y\naxe=AXE_X,X\n", 3},
      {"ThirdChild", "bati=Z\naxe=AXE_X,X\noutil=Z\nlien=AXE_BATI\naxe=AXE_Y,Y\npiece=X,Y\n"
                     "lien=AXE_BATI\naxe=AXE_Z,Z\n", 4},
      {"UnknownAxisName", kBase + "axe = AXE_Q, X\n", 5},
      {"LowerCaseAxisName", kBase + "axe = axe_y, Y\n", 5},
      {"ZeroAxisDirection", kBase + "axe = AXE_Y, 0, 0, 0\n", 6},
      {"ZeroToolDirection", kBase + "outil = 0, 0, 0\n", 8},
      {"ParallelWorkpieceDirections", kBase + "piece = X, X\n", 10},
      {"ZeroFirstWorkpieceDirection", kBase + "piece = 0, 0, 0, Y\n", 10},
      {"ZeroSecondWorkpieceDirection", kBase + "piece = X, 0, 0, 0\n", 10},
      {"LinkToAxis", kBase + "lien = AXE_X\n", 11},
      {"LinkWithoutFrame", "lien = AXE_BATI\n" + kBase, 12},
      // Codes 7 and 9 stop the reading before any frame exists, so the missing anchors win.
      {"ToolBeforeFrame", "outil = Z\n" + kBase, 12},
      {"WorkpieceBeforeFrame", "piece = X, Y\n" + kBase, 12},
      {"NoToolEvenAfterAnotherFailure", "bati=Z\npiece=X,Y\nnommachine =\n", 12},
      {"CollisionWithAbsentAxis", kBase + "collision = AXE_C, AXE_X\n", 15},
      {"EmptyMachineName", kBase + "nommachine =\n", 16},
      {"NumberOf256Characters", kBase + "tolerance = " + std::string(256, '1') + "\n", 17},
      {"NumberOf255Characters", kBase + "tolerance = " + std::string(255, '0') + "\n", 0},
      {"LettersAfterTheFirstAreIgnored", kBase + "axe = AXE_Y, Xaxis, SY\n", 0}};
  for (const auto& r : rows) EXPECT_EQ(load(r.text), r.code) << r.name;
}

TEST_F(Loader, UnopenableFileOrNullPathLeavesAResetMachine) {
  for (const char* path : {"/nonexistent/dir/machine.def", static_cast<const char*>(nullptr)}) {
    ASSERT_EQ(load(machine_text("DemoHead")), 0);
    EXPECT_EQ(machine_def(st_, path), 1);
    EXPECT_EQ(std::make_tuple(m.record_count, m.name[0], m.tool, m.travel_max[0]),
              std::make_tuple(0, '\0', kNone, 1e10));
  }
}

TEST_F(Loader, FailedLineKeepsWhatWasReadBefore) {
  EXPECT_EQ(load("nommachine = Early\ncoursemaximum = AXE_X, 5\n" + kBase.substr(18) +
                 "axe = AXE_Q, X\ntolerance = 3\n"),
            5);
  EXPECT_STREQ(m.name, "Early");
  // The reading stopped before the tolerance line; the rejected axis is no second frame.
  EXPECT_EQ(std::make_tuple(m.travel_max[0], m.tolerance, m.record_count, m.frame),
            std::make_tuple(5.0, 0.05, 6, 0));
  // A line rejected for an over-long number leaves none of its values: B's offset stays the
  // zero of a file without `position`, and no tool change point is set.
  const std::string too_long = std::string(256, '1') + "\n";
  for (const char* line : {"position = 0, 0, 0, 0, 5, ", "pointchangementoutil = 7, "}) {
    ASSERT_EQ(load_base(line + too_long), 17) << line;
    EXPECT_EQ(std::make_tuple(rec("HB").offset, m.toolchange[0]), std::make_tuple(0.0, 0.0))
        << line;
  }
}

TEST_F(Loader, BlanksVanishTabsStayAndLongLinesSplit) {
  ASSERT_EQ(load_base("\tnommachine = Other\n\ttolerance = 3\naxe = A XE_Y , Y, Slide  Y\n"), 0);
  EXPECT_STREQ(m.name, "Base");
  EXPECT_EQ(m.tolerance, 0.05);
  ASSERT_NE(m.letter[1], kNone);
  EXPECT_STREQ(m.records[m.letter[1]].name, "SlideY");
  ASSERT_EQ(load_base("nommachine = My Mill 2\n"), 0);
  EXPECT_STREQ(m.name, "MyMill2");
  // The piece of a line longer than 511 is a line of its own.
  const std::string comment = "; " + std::string(509, '.');  // 511 characters
  ASSERT_EQ(load_base(comment + "mode = 1\n"), 0);
  EXPECT_EQ(m.mode, 1);
  ASSERT_EQ(load_base(comment.substr(0, 505) + "mode=1\n"), 0);  // fits in one read
  EXPECT_EQ(m.mode, 0);
}

TEST_F(Loader, SettingLines) {
  ASSERT_EQ(load_base("mode = 1.9\n"), 0);
  EXPECT_EQ(m.mode, 1);
  ASSERT_EQ(load_base("strategie = 2\nmode = 3\nmode = nan\nrtcp = 0\nrtcp = -1\nrtcp = 1e300\n"
                      "coursemaximum = AXE_A, 100000\ncoursemaximum = AXE_X, 100000\n"
                      "courseminimum = AXE_Y, -1000000\ncourseminimum = AXE_B, -99000\n"
                      "courseminimum = AXE_C, -99000.5\ncoursemaximum = AXE_BATI, 1\n"
                      "coursetolerance = 0.2 5\n"),
            0);
  EXPECT_EQ(std::make_pair(m.mode, m.rtcp), std::make_pair(2, 0));
  // Beyond the bounds means no limit: 99000 for A, B, C, 999999.999 for X, Y, Z. Blanks vanish
  // inside numbers too.
  EXPECT_EQ(std::make_tuple(m.travel_max[3], m.travel_max[0], m.travel_min[1], m.travel_min[4],
                            m.travel_min[5], m.travel_tol),
            std::make_tuple(1e10, 100000.0, -1e10, -99000.0, -1e10, 0.25));
}

TEST_F(Loader, MissingFieldsReadAsZeroAndExtraFieldsAreIgnored) {
  // A number field ends at "," only, and text that is no number reads as 0.
  ASSERT_EQ(load_base("positioninitiale = 1, 2, 3\npositioninitiale = 5=9, abc\naxe = AXE_Y, Y\n"
                      "axe = AXE_Z, Z, RZ, 1, 2, 3, 4, 5\n"
                      "pointchangementoutil = 1, 2, 3, 4, 5, 6, 7\nlongueur = 4\nlongueur =\n"),
            0);
  expect_values(m.initial_position, {5, 0, 0}, 1e-12);
  const AxisRecord& y = m.records[m.letter[1]];
  EXPECT_STREQ(y.name, "");
  // Missing colours are 0, not the fresh record's 192.
  EXPECT_EQ(std::make_tuple(y.color[0], y.color[1], y.color[2], rec("RZ").color[2]),
            std::make_tuple(0, 0, 0, 3));
  EXPECT_EQ(std::make_tuple(m.toolchange[5], m.toolchange_flag, m.tool_length),
            std::make_tuple(6.0, 1, 0.0));
}

TEST_F(Loader, IncrementLines) {
  // A linear axis on the letter does not take the step either.
  ASSERT_EQ(load_base("axe = AXE_C, Z, LC\nincrement = AXE_C, 5\n"
                      "rotation = AXE_C, Z, 0, 1, 0, 0, 0, TC\n"),
            0);
  EXPECT_EQ(std::make_tuple(rec("TC").increment, rec("LC").increment, get_increment_behaviour(st_)),
            std::make_tuple(-1.0, -1.0, 0));
  ASSERT_EQ(load_base("increment = AXE_B, 5\nincrement = AXE_X, 7\n"), 0);
  EXPECT_EQ(std::make_pair(rec("HB").increment, get_increment_behaviour(st_)),
            std::make_pair(5.0, 1));
  // The deviation, from the file and from the environment.
  auto settings = [this] {
    return std::make_pair(get_increment_tolerance(st_), get_increment_behaviour(st_));
  };
  ASSERT_EQ(load_base("incrementmaximumdeviation = 0.02\nincrementmaximumdeviation =\n"), 0);
  EXPECT_EQ(settings(), std::make_pair(0.02, 0));
  ASSERT_EQ(load_base("incrementmaximumdeviation = -1\n"), 0);
  EXPECT_EQ(settings(), std::make_pair(0.02, 2));  // the reset leaves the tolerance alone
  ASSERT_EQ(setenv("K5X_INCREMENTS_MAX_DEVIATION", "0.125 degrees", 1), 0);
  EXPECT_EQ(load_base(""), 0);
  EXPECT_EQ(settings(), std::make_pair(0.125, 0));
  // The reset has just set the behaviour to 0, which only 1 would change.
  ASSERT_EQ(setenv("K5X_INCREMENTS_MAX_DEVIATION", "-1", 1), 0);
  EXPECT_EQ(load_base(""), 0);
  EXPECT_EQ(settings(), std::make_pair(0.125, 0));
  unsetenv("K5X_INCREMENTS_MAX_DEVIATION");
  // Only a positive deviation is taken; a load forgets the largest deviation seen.
  set_increment_behaviour(st_, 2, 0.0);
  EXPECT_EQ(settings(), std::make_pair(0.125, 2));
  st_.machine.deviation_max = 3.0;
  ASSERT_EQ(load_base(""), 0);
  EXPECT_EQ(largest_increment_deviation(st_), 0.0);
}

TEST_F(Loader, CollisionFlagsGoToTheLastMatchingRecordOnly) {
  ASSERT_EQ(load_base("axe=AXE_X,X,SX2\ncollision=AXE_X,AXE_OUTIL,NOPE,AXE_PIECE,,AXE_BATI\n"),
            0);
  auto flags = [](const AxisRecord& r) { return std::vector<int>(r.collision, r.collision + 9); };
  // Tool, then workpiece after the unknown name; the frame comes after the empty field.
  EXPECT_EQ(flags(rec("SX2")), std::vector<int>({0, 0, 0, 0, 0, 0, 0, 1, 1}));
  EXPECT_EQ(flags(rec("SX")), std::vector<int>(9, 0));
  EXPECT_EQ(flags(m.records[m.tool]), std::vector<int>(9, 0));  // nothing mirrored
}

TEST_F(Loader, LetterAndNumericDirections) {
  ASSERT_EQ(load_base("rotation = AXE_C, -Y, 2, -1, 0, 0, 0, C1\naxe = AXE_Y, 0, 3, 4, Y1\n"
                      "rotation = AXE_A, -0.0, -1, 0, 0, 1, 0, 0, 0, A1\n"),
            0);
  expect_values(rec("C1").direction, {0, -1, 0}, 1e-12);
  expect_values(rec("A1").direction, {0, -1, 0}, 1e-12);
  expect_values(rec("Y1").direction, {0, 0.6, 0.8}, 1e-12);
  EXPECT_EQ(std::make_pair(rec("C1").law, rec("C1").sense), std::make_pair(2, -1));
  // The same letter twice: the later takes the slot, the earlier stays a rotary record.
  ASSERT_EQ(load_base("rotation = AXE_B, Z, 0, 1, 0, 0, 0, HB2\n"), 0);
  EXPECT_EQ(m.letter[4], index_of(st_, "HB2"));
  EXPECT_EQ(rec("HB").kind, kKindRotary);
}

// Expected matrices: the identity's columns turned by hand with the right-hand rule.
TEST_F(Loader, FrameLetterTurnsTheFrameMatrix) {
  const struct {
    const char* letter;
    std::vector<double> matrix, direction;
  } rows[] = {{"-X", {0, 0, 1, 0, 1, 0, -1, 0, 0}, {-1, 0, 0}},
              {"-Y", {1, 0, 0, 0, 0, 1, 0, -1, 0}, {0, -1, 0}},
              {"-Z", {1, 0, 0, 0, -1, 0, 0, 0, -1}, {0, 0, -1}},
              {"X", {0, 0, 1, 0, -1, 0, 1, 0, 0}, {1, 0, 0}},
              {"Y", {-1, 0, 0, 0, 0, 1, 0, 1, 0}, {0, 1, 0}},
              {"Z", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}},
              {"0,0,1", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.letter);
    ASSERT_EQ(load(std::string("bati=") + r.letter + ",F\naxe=AXE_Z,Z\noutil=Z\npiece=X,Y\n"), 0);
    expect_values(m.records[0].frame, r.matrix, 1e-12);
    expect_values(m.records[0].direction, r.direction, 1e-12);
  }
}

TEST_F(Loader, ToolAndWorkpieceLinkRotations) {
  ASSERT_EQ(load("bati=Z\naxe=AXE_Z,Z\noutil=-Z\nlien=AXE_BATI\naxe=AXE_X,X\npiece=X,Z,0,0,0\n"
                 "axe=AXE_Y,Y\noutil=Y\n"),
            0);
  // d = -Z: u = d x (0,-1,0) = (-1,0,0), v = d x u = (0,1,0).
  expect_values(m.records[1].links[0].rotation, {-1, 0, 0, 0, 1, 0, 0, 0, -1}, 1e-12);
  // a = X, b = Z: n = a x b = -Y, w = n x a = Z.
  expect_values(m.saved_link.rotation, {1, 0, 0, 0, 0, -1, 0, 1, 0}, 1e-12);
  // Along Y both crosses vanish and u, v stay zero.
  expect_values(m.records[5].links[0].rotation, {0, 0, 0, 0, 0, 1, 0, 0, 0}, 1e-12);
}

TEST_F(Loader, LinkTranslationsOffsetsAndSavedWorkpiece) {
  std::string text = machine_text("DemoHead");
  ASSERT_EQ(load(text), 0);
  expect_values(rec("RamZ").links[0].translation, {0, 0, 300}, 1e-12);
  expect_values(rec("ForkC").links[0].translation, {0, 0, -150}, 1e-12);
  expect_values(m.saved_workpiece.point, {0, 0, -500}, 1e-12);
  expect_values(m.saved_link.translation, {0, 0, -500}, 1e-12);
  text.replace(text.find("position = 0, 0, 0, 0, 0, 0"), 27, "position = 1, 2, 3, 4, 5, 6");
  ASSERT_EQ(load(text), 0);
  EXPECT_EQ(std::make_tuple(rec("SlideY").offset, rec("ForkC").offset, rec("HeadB").offset),
            std::make_tuple(2.0, 6.0, 5.0));
  // Without the line, X, Y, Z from tool head C at (0,0,300) to the workpiece at (0,0,-500).
  text.erase(text.find("position"), 28);
  ASSERT_EQ(load(text), 0);
  EXPECT_NEAR(rec("RamZ").offset, 800.0, 1e-9);
  EXPECT_EQ(rec("ForkC").offset, 0.0);
  ASSERT_EQ(load(machine_text("Trunnion")), 0);  // tool head is the tool, at (0,0,250)
  EXPECT_NEAR(rec("RamZ").offset, 250.0, 1e-9);
}

TEST_F(Loader, ALoadResetsTheMachineButNotEpsilon) {
  ASSERT_EQ(load(machine_text("DemoHead")), 0);
  st_.eps = 1e-9;
  st_.machine.travel_min[5] = st_.machine.tolerance = 3;
  st_.machine.last_checksum = 7;
  ASSERT_EQ(load(kBase), 0);
  EXPECT_EQ(std::make_tuple(st_.eps, m.tolerance, m.travel_min[5], m.last_checksum),
            std::make_tuple(1e-9, 0.05, -1e10, 0u));
  // DemoHead had eight records; the sixth (HeadB) keeps its contents but nothing reaches it.
  EXPECT_EQ(std::make_pair(m.record_count, m.letter[5]), std::make_pair(5, kNone));
  EXPECT_STREQ(m.records[5].name, "HeadB");
}

}  // namespace
}  // namespace k5x
