#include "machine/loader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "motion/increments.h"
#include "test_machines.h"

namespace k5x {
namespace {

using k5x_test::load_text;
using k5x_test::machine_text;

// Frame, an X slide carrying a B head with the tool, and the workpiece on the frame. The current
// record at the end is B, which has room for one more child.
const std::string kBase =
    "nommachine = Base\n"
    "bati = Z, Frame\n"
    "piece = X, Y, 0, 0, 0\n"
    "axe = AXE_X, X, SX\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 100, HB\n"
    "outil = Z, 0, 0, 0\n";

int index_of(const State& st, const char* name) {
  for (int i = 0; i < st.machine.record_count; ++i)
    if (std::strcmp(st.machine.records[i].nom, name) == 0) return i;
  return -100;
}

// ---- load codes ----

struct CodeCase {
  const char* name;
  std::string text;
  int code;
};
void PrintTo(const CodeCase& c, std::ostream* os) { *os << c.name; }

class LoadCodeTest : public ::testing::TestWithParam<CodeCase> {};
TEST_P(LoadCodeTest, ReturnsCode) {
  State st;
  EXPECT_EQ(load_text(st, GetParam().text), GetParam().code);
}
INSTANTIATE_TEST_SUITE_P(
    Codes, LoadCodeTest,
    ::testing::Values(
        CodeCase{"Loaded", kBase, 0},
        CodeCase{"FrameNotFirst", kBase + "bati = Z\n", 2},
        CodeCase{"TenthRecord",
                 "bati=Z\naxe=AXE_X,X\naxe=AXE_Y,Y\naxe=AXE_Z,Z\nrotation=AXE_A,X\n"
                 "rotation=AXE_B,Y\nrotation=AXE_C,Z\noutil=Z\npiece=X,Y\naxe=AXE_X,X\n",
                 3},
        CodeCase{"ThirdChild",
                 "bati=Z\naxe=AXE_X,X\noutil=Z\nlien=AXE_BATI\naxe=AXE_Y,Y\npiece=X,Y\n"
                 "lien=AXE_BATI\naxe=AXE_Z,Z\n",
                 4},
        CodeCase{"UnknownAxisName", kBase + "axe = AXE_Q, X\n", 5},
        CodeCase{"ZeroAxisDirection", kBase + "axe = AXE_Y, 0, 0, 0\n", 6},
        CodeCase{"ZeroToolDirection", kBase + "outil = 0, 0, 0\n", 8},
        CodeCase{"ParallelWorkpieceDirections", kBase + "piece = X, X\n", 10},
        CodeCase{"ZeroFirstWorkpieceDirection", kBase + "piece = 0, 0, 0, Y\n", 10},
        CodeCase{"ZeroSecondWorkpieceDirection", kBase + "piece = X, 0, 0, 0\n", 10},
        CodeCase{"LinkToAxis", kBase + "lien = AXE_X\n", 11},
        CodeCase{"LinkWithoutFrame", "lien = AXE_BATI\n" + kBase, 12},
        CodeCase{"ToolBeforeFrameIsMaskedByMissingAnchors", "outil = Z\n" + kBase, 12},
        CodeCase{"WorkpieceBeforeFrameIsMaskedByMissingAnchors", "piece = X, Y\n" + kBase, 12},
        CodeCase{"NoToolEvenAfterAnotherFailure", "bati=Z\npiece=X,Y\nnommachine =\n", 12},
        CodeCase{"CollisionWithAbsentAxis", kBase + "collision = AXE_C, AXE_X\n", 15},
        CodeCase{"EmptyMachineName", kBase + "nommachine =\n", 16},
        CodeCase{"NumberOf256Characters", kBase + "tolerance = " + std::string(256, '1') + "\n",
                 17},
        CodeCase{"LongPivotCoordinate",
                 kBase + "rotation = AXE_C, Z, 0, 1, " + std::string(300, '2') + "\n", 17},
        CodeCase{"NumberOf255Characters", kBase + "tolerance = " + std::string(255, '0') + "\n",
                 0},
        CodeCase{"LettersAfterTheFirstAreIgnored", kBase + "axe = AXE_Y, Xaxis, SY\n", 0}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(LoadTest, UnopenableFileOrNullPathLeavesAResetMachine) {
  State st;
  ASSERT_EQ(load_text(st, machine_text("DemoHead")), 0);
  EXPECT_EQ(machine_def(st, "/nonexistent/dir/machine.def"), 1);
  EXPECT_EQ(st.machine.record_count, 0);
  EXPECT_EQ(st.machine.name[0], '\0');
  EXPECT_EQ(st.machine.tool, kNone);
  ASSERT_EQ(load_text(st, machine_text("DemoHead")), 0);
  EXPECT_EQ(machine_def(st, nullptr), 1);
  EXPECT_EQ(st.machine.record_count, 0);
  EXPECT_EQ(st.machine.travel_max[0], 1e10);
}

TEST(LoadTest, FailedLineKeepsWhatWasReadBefore) {
  State st;
  const std::string text = "nommachine = Early\ncoursemaximum = AXE_X, 5\n" + kBase.substr(18) +
                           "axe = AXE_Q, X\ntolerance = 3\n";
  EXPECT_EQ(load_text(st, text), 5);
  EXPECT_STREQ(st.machine.name, "Early");
  EXPECT_EQ(st.machine.travel_max[0], 5.0);
  EXPECT_EQ(st.machine.tolerance, 0.05);  // the reading stopped before this line
  EXPECT_EQ(st.machine.record_count, 6);
}

// ---- tokenizer ----

TEST(TokenizerTest, FieldsDropBlanksKeepTabsAndConsumeDelimiters) {
  const char* line = " ke y\t= a b\r,  ,c=d\n";
  std::size_t pos = 0;
  char out[16];
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, true), 4u);
  EXPECT_STREQ(out, "key\t");
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, true), 2u);
  EXPECT_STREQ(out, "ab");
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, true), 0u);  // empty middle field
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, false), 3u);  // "=" only splits when asked
  EXPECT_STREQ(out, "c=d");
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, true), 0u);
  EXPECT_EQ(next_field(line, &pos, out, sizeof out, true), 0u);  // stays at the end
  const std::string longer = std::string(100, 'n') + ",next";
  pos = 0;
  EXPECT_EQ(next_field(longer.c_str(), &pos, out, 8, true), 7u);  // cut to the buffer
  EXPECT_STREQ(out, "nnnnnnn");
  EXPECT_EQ(next_field(longer.c_str(), &pos, out, 8, true), 4u);
}

struct NumberCase {
  const char* line;
  int result;
  double value;
};
void PrintTo(const NumberCase& c, std::ostream* os) { *os << '"' << c.line << '"'; }
class NumberTest : public ::testing::TestWithParam<NumberCase> {};
TEST_P(NumberTest, ReadsOneField) {
  std::size_t pos = 0;
  double v = 99.0;
  EXPECT_EQ(next_number(GetParam().line, &pos, &v), GetParam().result);
  EXPECT_EQ(v, GetParam().value);
}
INSTANTIATE_TEST_SUITE_P(Fields, NumberTest,
                         ::testing::Values(NumberCase{"", 0, 0.0}, NumberCase{" ,5", 0, 0.0},
                                           NumberCase{"1 2.5,", 1, 12.5},
                                           NumberCase{"abc", 1, 0.0}, NumberCase{"1=2", 1, 1.0},
                                           NumberCase{"\t-3e2x", 1, -300.0},
                                           NumberCase{"-0.0", 1, -0.0}));

TEST(TokenizerTest, NumberLongerThan255IsRefusedAndSkipped) {
  const std::string line = std::string(200, '1') + " " + std::string(56, '1') + ",7";
  std::size_t pos = 0;
  double v = 5.0;
  EXPECT_EQ(next_number(line.c_str(), &pos, &v), -1);
  EXPECT_EQ(next_number(line.c_str(), &pos, &v), 1);
  EXPECT_EQ(v, 7.0);
}

class LineTest : public ::testing::Test {
 protected:
  int load(const std::string& extra) { return load_text(st_, kBase + extra); }
  const AxisRecord& rec(const char* name) { return st_.machine.records[index_of(st_, name)]; }
  State st_;
};

TEST_F(LineTest, TabIndentedKeywordIsIgnored) {
  ASSERT_EQ(load("\tnommachine = Other\n\ttolerance = 3\n"), 0);
  EXPECT_STREQ(st_.machine.name, "Base");
  EXPECT_EQ(st_.machine.tolerance, 0.05);
}

TEST_F(LineTest, BlanksVanishFromNames) {
  ASSERT_EQ(load("nommachine = My Mill 2\naxe = A XE_Y , Y, Slide  Y\n"), 0);
  EXPECT_STREQ(st_.machine.name, "MyMill2");
  EXPECT_EQ(st_.machine.records[st_.machine.letter[1]].kind, kKindLinear);
  EXPECT_STREQ(st_.machine.records[st_.machine.letter[1]].nom, "SlideY");
}

TEST_F(LineTest, PieceOfALineLongerThan511IsALineOfItsOwn) {
  const std::string comment = "; " + std::string(509, '.');  // 511 characters
  ASSERT_EQ(load(comment + "mode = 1\n"), 0);
  EXPECT_EQ(st_.machine.mode, 1);
  State other;
  ASSERT_EQ(load_text(other, kBase + comment.substr(0, 505) + "mode=1\n"), 0);  // one line
  EXPECT_EQ(other.machine.mode, 0);
}

TEST_F(LineTest, ModeIsTruncatedAndValidated) {
  ASSERT_EQ(load("mode = 1.9\nrtcp = 2\n"), 0);
  EXPECT_EQ(st_.machine.mode, 1);
  ASSERT_EQ(load("strategie = 2\nmode = 3\nrtcp = 0\nrtcp = -1\nrtcp = 1e300\n"), 0);
  EXPECT_EQ(st_.machine.mode, 2);
  EXPECT_EQ(st_.machine.rtcp, 0);
}

TEST_F(LineTest, MissingFieldsReadAsZeroAndExtraFieldsAreIgnored) {
  ASSERT_EQ(load("positioninitiale = 5\naxe = AXE_Y, Y\naxe = AXE_Z, Z, RZ, 1, 2, 3, 4, 5\n"
                 "pointchangementoutil = 1, 2, 3, 4, 5, 6, 7\nlongueur =\n"),
            0);
  EXPECT_EQ(st_.machine.initial_position[0], 5.0);
  EXPECT_EQ(st_.machine.initial_position[1], 0.0);
  const AxisRecord& y = st_.machine.records[st_.machine.letter[1]];
  EXPECT_STREQ(y.nom, "");
  for (int c : y.color) EXPECT_EQ(c, 0);  // not the fresh record's 192
  EXPECT_EQ(rec("RZ").color[2], 3);
  EXPECT_EQ(st_.machine.toolchange[5], 6.0);
  EXPECT_EQ(st_.machine.toolchange_flag, 1);
  EXPECT_EQ(st_.machine.outil, 0.0);
}

TEST_F(LineTest, TravelBeyondTheBoundsMeansNoLimit) {
  ASSERT_EQ(load("coursemaximum = AXE_A, 100000\ncoursemaximum = AXE_X, 100000\n"
                 "courseminimum = AXE_Y, -1000000\ncourseminimum = AXE_B, -99000\n"
                 "courseminimum = AXE_C, -99000.5\ncoursemaximum = AXE_BATI, 1\n"
                 "coursetolerance = 0.25\n"),
            0);
  EXPECT_EQ(st_.machine.travel_max[3], 1e10);
  EXPECT_EQ(st_.machine.travel_max[0], 100000.0);
  EXPECT_EQ(st_.machine.travel_min[1], -1e10);
  EXPECT_EQ(st_.machine.travel_min[4], -99000.0);
  EXPECT_EQ(st_.machine.travel_min[5], -1e10);
  EXPECT_EQ(st_.machine.travel_tol, 0.25);
}

TEST_F(LineTest, IncrementNeedsItsRotaryAxisFirst) {
  // A linear axis on the letter does not take the step either.
  ASSERT_EQ(load("axe = AXE_C, Z, LC\nincrement = AXE_C, 5\nrotation = AXE_C, Z, 0, 1, 0, 0, 0, TC\n"),
            0);
  EXPECT_EQ(rec("TC").increment, -1.0);
  EXPECT_EQ(rec("LC").increment, -1.0);
  EXPECT_EQ(get_increment_behaviour(st_), 0);
  ASSERT_EQ(load("increment = AXE_B, 5\nincrement = AXE_X, 7\n"), 0);
  EXPECT_EQ(rec("HB").increment, 5.0);
  EXPECT_EQ(get_increment_behaviour(st_), 1);
}

TEST_F(LineTest, IncrementDeviationLine) {
  ASSERT_EQ(load("incrementmaximumdeviation = 0.02\n"), 0);
  EXPECT_EQ(get_increment_tolerance(st_), 0.02);
  EXPECT_EQ(get_increment_behaviour(st_), 0);
  ASSERT_EQ(load("incrementmaximumdeviation =\n"), 0);
  EXPECT_EQ(get_increment_behaviour(st_), 0);
  ASSERT_EQ(load("incrementmaximumdeviation = -1\n"), 0);
  EXPECT_EQ(get_increment_behaviour(st_), 2);
  EXPECT_EQ(get_increment_tolerance(st_), 0.02);  // a load never lowers it back
}

TEST(EnvironmentTest, PositiveDeviationBecomesTheToleranceAndTheFileOverrides) {
  State st;
  ASSERT_EQ(setenv("K5X_INCREMENTS_MAX_DEVIATION", "0.125 degrees", 1), 0);
  EXPECT_EQ(load_text(st, kBase), 0);
  EXPECT_EQ(get_increment_tolerance(st), 0.125);
  ASSERT_EQ(setenv("K5X_INCREMENTS_MAX_DEVIATION", "-1", 1), 0);
  EXPECT_EQ(load_text(st, kBase), 0);
  EXPECT_EQ(get_increment_behaviour(st), 0);  // the reset left 0, which only 1 would change
  ASSERT_EQ(setenv("K5X_INCREMENTS_MAX_DEVIATION", "0.5", 1), 0);
  EXPECT_EQ(load_text(st, kBase + "incrementmaximumdeviation = 0.25\n"), 0);
  EXPECT_EQ(get_increment_tolerance(st), 0.25);
  unsetenv("K5X_INCREMENTS_MAX_DEVIATION");
}

TEST_F(LineTest, CollisionFlagsGoToTheLastMatchingRecordOnly) {
  ASSERT_EQ(load("axe = AXE_X, X, SX2\n"
                 "collision = AXE_X, AXE_OUTIL, NOPE, AXE_PIECE, , AXE_BATI\n"),
            0);
  const AxisRecord& x2 = rec("SX2");
  EXPECT_EQ(st_.machine.letter[0], index_of(st_, "SX2"));
  EXPECT_EQ(x2.collision[8], 1);  // tool
  EXPECT_EQ(x2.collision[7], 1);  // workpiece, after the unknown name
  EXPECT_EQ(x2.collision[6], 0);  // after the empty field
  for (int c : rec("SX").collision) EXPECT_EQ(c, 0);
  for (int c : st_.machine.records[st_.machine.tool].collision) EXPECT_EQ(c, 0);  // no mirror
}

// ---- directions and link rotations ----

void expect_vec(const double* got, std::vector<double> want, const char* what) {
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-12) << what << i;
}

TEST_F(LineTest, LetterAndNumericDirections) {
  ASSERT_EQ(load("rotation = AXE_C, -Y, 2, -1, 0, 0, 0, C1\nrotation = AXE_A, -0.0, -1, 0, 0, 1, 0, 0, 0, A1\n"
                 "axe = AXE_Y, 0, 3, 4, Y1\n"),
            0);
  expect_vec(rec("C1").direction, {0, -1, 0}, "C1");
  expect_vec(rec("A1").direction, {0, -1, 0}, "A1");
  expect_vec(rec("Y1").direction, {0, 0.6, 0.8}, "Y1");
  EXPECT_EQ(rec("C1").loi, 2);
  EXPECT_EQ(rec("C1").sens, -1);
  EXPECT_EQ(rec("C1").factor, kDegToRad);  // not under the workpiece
}

struct FrameCase {
  const char* letter;
  std::vector<double> matrix;
  std::vector<double> direction;
};
void PrintTo(const FrameCase& c, std::ostream* os) { *os << c.letter; }
class FrameLetterTest : public ::testing::TestWithParam<FrameCase> {};
// Expected matrices: the identity's columns turned by hand with the right-hand rule.
TEST_P(FrameLetterTest, TurnsTheFrameMatrix) {
  State st;
  ASSERT_EQ(load_text(st, std::string("bati = ") + GetParam().letter +
                              ", F\naxe=AXE_Z,Z\noutil=Z\nlien=AXE_BATI\npiece=X,Y\n"),
            0);
  expect_vec(st.machine.records[0].frame, GetParam().matrix, "frame");
  expect_vec(st.machine.records[0].direction, GetParam().direction, "direction");
}
INSTANTIATE_TEST_SUITE_P(
    Letters, FrameLetterTest,
    ::testing::Values(FrameCase{"-X", {0, 0, 1, 0, 1, 0, -1, 0, 0}, {-1, 0, 0}},
                      FrameCase{"-Y", {1, 0, 0, 0, 0, 1, 0, -1, 0}, {0, -1, 0}},
                      FrameCase{"-Z", {1, 0, 0, 0, -1, 0, 0, 0, -1}, {0, 0, -1}},
                      FrameCase{"X", {0, 0, 1, 0, -1, 0, 1, 0, 0}, {1, 0, 0}},
                      FrameCase{"Y", {-1, 0, 0, 0, 0, 1, 0, 1, 0}, {0, 1, 0}},
                      FrameCase{"Z", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}},
                      FrameCase{"0,0,1", {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}}));

TEST(LinkRotationTest, ToolAndWorkpieceLinks) {
  State st;
  ASSERT_EQ(load_text(st, "bati=Z\naxe=AXE_Z,Z\noutil=-Z\nlien=AXE_BATI\naxe=AXE_X,X\n"
                          "piece=X,Z,0,0,0\naxe=AXE_Y,Y\noutil=Y\n"),
            0);
  const Machine& m = st.machine;
  // d = -Z: u = d x (0,-1,0) = (-1,0,0), v = d x u = (0,1,0).
  expect_vec(m.records[1].liens[0].rotation, {-1, 0, 0, 0, 1, 0, 0, 0, -1}, "tool -Z");
  // a = X, b = Z: n = a x b = -Y, w = n x a = Z.
  expect_vec(m.saved_link.rotation, {1, 0, 0, 0, 0, -1, 0, 1, 0}, "workpiece");
  // Along Y both crosses vanish and u, v stay zero.
  expect_vec(m.records[5].liens[0].rotation, {0, 0, 0, 0, 0, 1, 0, 0, 0}, "tool Y");
}

// ---- anchors, heads, rotary list, factors ----

struct AnchorCase {
  const char* name;
  std::string text;
  const char* tool_head;   // "<tool>" for the tool record itself
  const char* table_head;  // "<piece>" for the workpiece record itself
  std::vector<std::string> rotary;
  std::vector<std::pair<std::string, double>> factors;
};
void PrintTo(const AnchorCase& c, std::ostream* os) { *os << c.name; }

constexpr double kDeg = 0.017453292519943295;

class AnchorTest : public ::testing::TestWithParam<AnchorCase> {};
TEST_P(AnchorTest, HeadsRotaryListAndFactors) {
  const AnchorCase& c = GetParam();
  State st;
  ASSERT_EQ(load_text(st, c.text), 0);
  const Machine& m = st.machine;
  auto resolve = [&](const char* n) {
    return std::strcmp(n, "<tool>") == 0 ? m.tool
           : std::strcmp(n, "<piece>") == 0 ? m.workpiece
                                            : index_of(st, n);
  };
  EXPECT_EQ(m.tool_head, resolve(c.tool_head));
  EXPECT_EQ(m.table_head, resolve(c.table_head));
  ASSERT_EQ(m.rotary_count, static_cast<int>(c.rotary.size()));
  for (int i = 0; i < m.rotary_count; ++i) EXPECT_STREQ(m.records[m.rotary[i]].nom, c.rotary[i].c_str());
  for (const auto& f : c.factors) EXPECT_EQ(m.records[index_of(st, f.first.c_str())].factor, f.second) << f.first;
}
INSTANTIATE_TEST_SUITE_P(
    Machines, AnchorTest,
    ::testing::Values(
        AnchorCase{"HeadHead", machine_text("DemoHead"), "ForkC", "<piece>", {"ForkC", "HeadB"},
                   {{"ForkC", kDeg}, {"HeadB", kDeg}, {"SlideX", 1.0}}},
        AnchorCase{"TableTable", machine_text("Trunnion"), "<tool>", "TrunnionA",
                   {"TableC", "TrunnionA"},
                   {{"TableC", -kDeg}, {"TrunnionA", -kDeg}, {"RamZ", 1.0}}},
        AnchorCase{"HeadTable", machine_text("HeadTable"), "HeadB", "TableC", {"TableC", "HeadB"},
                   {{"TableC", -kDeg}, {"HeadB", kDeg}}},
        AnchorCase{"ThreeRotary", machine_text("ThreeRotary"), "HeadA", "TableC",
                   {"TableC", "HeadA", "HeadB"}, {{"HeadA", kDeg}, {"TableC", -kDeg}}},
        // Linear and rotary axes alternate under the workpiece: rotary ones listed nearest first.
        AnchorCase{"Mixed",
                   "bati=Z,Frame\naxe=AXE_Z,Z,RamZ\nrotation=AXE_B,Y,0,1,0,0,100,HeadB\n"
                   "outil=Z,0,0,0\nlien=AXE_BATI\naxe=AXE_Y,Y,SlideY\n"
                   "rotation=AXE_A,X,0,1,0,0,0,CradleA\naxe=AXE_X,X,SlideX\n"
                   "rotation=AXE_C,Z,0,1,0,0,0,TableC\npiece=X,Y,0,0,0\n",
                   "HeadB", "TableC", {"TableC", "CradleA", "HeadB"},
                   {{"TableC", -kDeg}, {"SlideX", -1.0}, {"CradleA", -kDeg},
                    {"SlideY", -1.0}, {"RamZ", 1.0}, {"HeadB", kDeg}}}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(SameLetterTest, SameLetterTwiceKeepsTheLaterInTheSlot) {
  State st;
  ASSERT_EQ(load_text(st, kBase + "rotation = AXE_B, Z, 0, 1, 0, 0, 0, HB2\n"), 0);
  EXPECT_EQ(st.machine.letter[4], index_of(st, "HB2"));
  EXPECT_EQ(st.machine.records[index_of(st, "HB")].kind, kKindRotary);
}

TEST(GeometryTest, LinkTranslationsAndSavedWorkpiece) {
  State st;
  ASSERT_EQ(load_text(st, machine_text("DemoHead")), 0);
  const Machine& m = st.machine;
  const AxisRecord& ram = m.records[index_of(st, "RamZ")];
  const AxisRecord& fork = m.records[index_of(st, "ForkC")];
  expect_vec(ram.liens[0].translation, {0, 0, 300}, "Z->C");
  expect_vec(fork.liens[0].translation, {0, 0, -150}, "C->B");
  expect_vec(m.records[index_of(st, "HeadB")].liens[0].translation, {0, 0, -150}, "B->tool");
  // The workpiece as written in the file, whatever placement followed.
  expect_vec(m.saved_workpiece.point, {0, 0, -500}, "saved point");
  expect_vec(m.saved_link.translation, {0, 0, -500}, "saved link");
  EXPECT_EQ(m.saved_link.ilien, m.workpiece);
  EXPECT_EQ(m.saved_workpiece.kind, kKindWorkpiece);
}

TEST(GeometryTest, OffsetsFromThePositionLine) {
  State st;
  std::string text = machine_text("DemoHead");
  text.replace(text.find("position = 0, 0, 0, 0, 0, 0"), 27, "position = 1, 2, 3, 4, 5, 6");
  ASSERT_EQ(load_text(st, text), 0);
  EXPECT_EQ(st.machine.records[index_of(st, "SlideY")].offset, 2.0);
  EXPECT_EQ(st.machine.records[index_of(st, "ForkC")].offset, 6.0);
  EXPECT_EQ(st.machine.records[index_of(st, "HeadB")].offset, 5.0);
}

TEST(GeometryTest, OffsetsWithoutPositionLineComeFromTheGeometry) {
  State st;
  std::string text = machine_text("DemoHead");
  text.erase(text.find("position"), 28);
  ASSERT_EQ(load_text(st, text), 0);
  // Tool head C pivots at (0,0,300); the workpiece origin is (0,0,-500).
  EXPECT_NEAR(st.machine.records[index_of(st, "RamZ")].offset, 800.0, 1e-9);
  EXPECT_NEAR(st.machine.records[index_of(st, "SlideX")].offset, 0.0, 1e-9);
  EXPECT_EQ(st.machine.records[index_of(st, "ForkC")].offset, 0.0);
  State trunnion;  // tool head is the tool itself, at (0,0,250)
  ASSERT_EQ(load_text(trunnion, machine_text("Trunnion")), 0);
  EXPECT_NEAR(trunnion.machine.records[index_of(trunnion, "RamZ")].offset, 250.0, 1e-9);
}

// ---- lifetimes ----

TEST(LifetimeTest, LoadResetsMachineSettingsButNotEpsilonAndSilent) {
  State st;
  ASSERT_EQ(load_text(st, machine_text("DemoHead")), 0);
  st.eps = 1e-9;
  st.silent = 1;
  st.machine.mode = 2;
  st.machine.rtcp = 0;
  st.machine.tolerance = 9;
  st.machine.travel_tol = 9;
  st.machine.outil = 9;
  st.machine.travel_min[5] = 3;
  st.machine.last_checksum = 7;
  ASSERT_EQ(load_text(st, kBase), 0);
  EXPECT_EQ(st.eps, 1e-9);
  EXPECT_EQ(st.silent, 1);
  EXPECT_EQ(st.machine.mode, 0);
  EXPECT_EQ(st.machine.rtcp, 1);
  EXPECT_EQ(st.machine.tolerance, 0.05);
  EXPECT_EQ(st.machine.travel_tol, 0.001);
  EXPECT_EQ(st.machine.outil, 0.0);
  EXPECT_EQ(st.machine.travel_min[5], -1e10);
  EXPECT_EQ(st.machine.last_checksum, 0u);
  // DemoHead had eight records; the sixth (HeadB) keeps its contents but nothing reaches it.
  EXPECT_EQ(st.machine.record_count, 5);
  EXPECT_STREQ(st.machine.records[5].nom, "HeadB");
  EXPECT_EQ(st.machine.letter[5], kNone);
}

// ---- hostile files ----

TEST(RobustnessTest, RandomFilesNeverBreakTheLoader) {
  const char* pieces[] = {"bati", "axe", "rotation", "outil", "piece", "lien", "collision",
                          "nommachine", "increment", "position", "mode", "AXE_X", "AXE_C",
                          "AXE_BATI", "AXE_OUTIL", "AXE_PIECE", "-X", "Y", "Z", "0", "-1e308",
                          "1e400", "nan", "=", ",", ",", " ", "\t", "\r", "\n", "\n", "abc"};
  std::vector<std::string> alphabet(std::begin(pieces), std::end(pieces));
  alphabet.push_back(std::string(300, '7'));
  alphabet.push_back(std::string(700, 'N'));
  unsigned seed = 12345;
  auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
  for (int file = 0; file < 300; ++file) {
    std::string text;
    const unsigned n = next() % 200;
    for (unsigned i = 0; i < n; ++i) text += alphabet[next() % alphabet.size()];
    State st;
    const int code = load_text(st, text);
    ASSERT_TRUE(code == 0 || (code >= 2 && code <= 17)) << code << " for:\n" << text;
    ASSERT_LE(st.machine.record_count, kMaxRecords);
    ASSERT_LE(st.machine.rotary_count, kMaxRotary);
    ASSERT_LT(std::strlen(st.machine.name), static_cast<std::size_t>(kNameSize));
  }
}

}  // namespace
}  // namespace k5x
