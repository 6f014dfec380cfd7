#include <gtest/gtest.h>

#include <string>

#include "geometry/axis_queries.h"
#include "test_machines.h"

namespace {

using namespace k5x;

// X, Z and a B head on the tool side; a Y pallet and a C table on the workpiece side. No A.
// Table indices: 0 frame, 1 X, 2 Z, 3 B, 4 tool, 5 Y, 6 C, 7 workpiece.
const char kQueryMachine[] =
    "nommachine = Queries\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X, 10, 20, 30\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_B, Y, 1, -1, 0, 0, 150, Head B, 1, 2, 3\n"
    "outil = -Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "axe = AXE_Y, Y, Pallet Y\n"
    "rotation = AXE_C, Z, 2, 1, 0, 0, 0, Table C\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n"
    "collision = AXE_OUTIL, AXE_PIECE, AXE_C, AXE_X, AXE_BATI\n"
    "collision = AXE_C, AXE_Y\n";

class AxisQueries : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(k5x_test::load_text(st, kQueryMachine), 0); }
  State st;
};

// Per identifier from -3 to 7: what each query must answer.
struct Expect {
  int id;
  int type;
  const char* nom;  // null when missing
  int previous;
  int nlien;
  int tlien0, tlien1;
  int loi, sens;
};

const Expect kExpect[] = {
    {-3, -100, nullptr, -300, 0, -400, -400, 0, 0},
    {-2, -2, "", 5, 0, -400, -400, 0, 1},          // tool under B
    {-1, -1, "", 6, 0, -400, -400, 0, 1},              // workpiece on the C table
    {0, 0, "Frame", -1, 2, 1, 2, 0, 1},                // frame: children X and Y
    {1, -4, "SlideX", 0, 1, 3, -400, 0, 1},            // X hung on the frame, carries Z
    {2, -4, "PalletY", 0, 1, 6, -400, 0, 1},           // Y carries C
    {3, -4, "RamZ", 1, 1, 5, -400, 0, 1},              // Z carries B
    {4, -100, nullptr, -300, 0, -400, -400, 0, 0},     // no A
    {5, -3, "HeadB", 3, 1, -2, -400, 1, -1},           // B carries the tool
    {6, -3, "TableC", 2, 1, -1, -400, 2, 1},           // C carries the workpiece
    {7, -100, nullptr, -300, 0, -400, -400, 0, 0},
};

TEST_F(AxisQueries, EveryIdentifier) {
  for (const Expect& e : kExpect) {
    SCOPED_TRACE(e.id);
    const bool exists = e.nom != nullptr;
    EXPECT_EQ(axe_type(st, e.id), e.type);
    EXPECT_EQ(axe_typeex(st, e.id), exists ? e.id : -100);
    if (exists) {
      ASSERT_NE(axe_nom(st, e.id), nullptr);
      EXPECT_STREQ(axe_nom(st, e.id), e.nom);
      EXPECT_NE(axe_axe(st, e.id), nullptr);
      EXPECT_NE(axe_point(st, e.id), nullptr);
      EXPECT_NE(axe_color(st, e.id), nullptr);
    } else {
      EXPECT_EQ(axe_nom(st, e.id), nullptr);
      EXPECT_EQ(axe_axe(st, e.id), nullptr);
      EXPECT_EQ(axe_point(st, e.id), nullptr);
      EXPECT_EQ(axe_color(st, e.id), nullptr);
    }
    EXPECT_EQ(axe_previous(st, e.id), e.previous);
    EXPECT_EQ(axe_nlien(st, e.id), e.nlien);
    EXPECT_EQ(axe_tlien(st, e.id, 0), e.tlien0);
    EXPECT_EQ(axe_tlien(st, e.id, 1), e.tlien1);
    EXPECT_EQ(axe_tlien(st, e.id, 2), -400);
    EXPECT_EQ(axe_ilien(st, e.id, 2), -1);
    EXPECT_EQ(axe_ilien(st, e.id, -1), -1);
    EXPECT_EQ(axe_slien(st, e.id, 2), nullptr);
    EXPECT_EQ(axe_loi(st, e.id), e.loi);
    EXPECT_EQ(axe_sens(st, e.id), e.sens);
    EXPECT_EQ(axe_fixe_get(st, e.id), 0);
  }
}

TEST_F(AxisQueries, LinksByTableIndexAndName) {
  EXPECT_EQ(axe_ilien(st, kIdFrame, 0), 1);
  EXPECT_EQ(axe_ilien(st, kIdFrame, 1), 5);
  EXPECT_EQ(axe_ilien(st, kIdB, 0), 4);
  EXPECT_EQ(axe_ilien(st, kIdTool, 0), -1);  // j beyond nlien
  EXPECT_EQ(axe_ilien(st, kIdA, 0), -1);
  EXPECT_STREQ(axe_slien(st, kIdFrame, 1), "PalletY");
  EXPECT_STREQ(axe_slien(st, kIdZ, 0), "HeadB");
  EXPECT_STREQ(axe_slien(st, kIdB, 0), "");  // the tool has no name, but exists
  EXPECT_EQ(axe_slien(st, kIdTool, 0), nullptr);
  EXPECT_EQ(axe_slien(st, kIdA, 0), nullptr);
}

TEST_F(AxisQueries, RecordContents) {
  const int* cx = axe_color(st, kIdX);
  EXPECT_EQ(cx[0], 10);
  EXPECT_EQ(cx[1], 20);
  EXPECT_EQ(cx[2], 30);
  const int* cz = axe_color(st, kIdZ);  // no colour fields on the line: zeros
  EXPECT_EQ(cz[0] + cz[1] + cz[2], 0);
  const int* ct = axe_color(st, kIdTool);  // untouched fresh colour
  EXPECT_EQ(ct[0], 192);
  EXPECT_EQ(ct[2], 192);
  const double* pb = axe_point(st, kIdB);
  EXPECT_EQ(pb[2], 150.0);
  const double* db = axe_axe(st, kIdB);
  EXPECT_EQ(db[1], 1.0);
  const double* dt = axe_axe(st, kIdTool);
  EXPECT_EQ(dt[2], -1.0);
}

TEST_F(AxisQueries, PreviousAndTlienTranslateOddTargets) {
  // A parent index past the record count comes back as it is; so does a parent of unknown kind.
  AxisRecord& x = st.machine.records[1];
  x.previous = 20;
  EXPECT_EQ(axe_previous(st, kIdX), 20);
  x.previous = 2;
  st.machine.records[2].kind = 3;
  EXPECT_EQ(axe_previous(st, kIdX), 2);
  st.machine.records[2].kind = -7;
  EXPECT_EQ(axe_previous(st, kIdX), 2);
  // A link target of unknown kind, or beyond the count, is -400.
  EXPECT_EQ(axe_tlien(st, kIdX, 0), -400);
  st.machine.records[1].liens[0].ilien = 12;
  EXPECT_EQ(axe_tlien(st, kIdX, 0), -400);
  EXPECT_EQ(axe_slien(st, kIdX, 0), nullptr);
  // A tool-kind parent is reported by its kind.
  st.machine.records[2].kind = kKindTool;
  EXPECT_EQ(axe_previous(st, kIdX), -2);
}

TEST_F(AxisQueries, CollisionMapping) {
  // The tool's line named workpiece, C, X and frame.
  const int expected_tool[] = {0, 1, 1, 1, 0, 0, 0, 0, 1};  // j = -2 .. 6
  for (int j = -2; j <= 6; ++j) EXPECT_EQ(axe_collision(st, kIdTool, j), expected_tool[j + 2]) << j;
  EXPECT_EQ(axe_collision(st, kIdTool, -3), 0);
  EXPECT_EQ(axe_collision(st, kIdTool, 7), 0);
  EXPECT_EQ(axe_collision(st, kIdC, kIdY), 1);
  EXPECT_EQ(axe_collision(st, kIdC, kIdTool), 0);  // flags are not mirrored
  EXPECT_EQ(axe_collision(st, kIdWorkpiece, kIdTool), 0);
  EXPECT_EQ(axe_collision(st, kIdA, kIdX), 0);
}

TEST_F(AxisQueries, FixeFlag) {
  EXPECT_EQ(axe_fixe_set(st, kIdB, 1), 1);
  EXPECT_EQ(axe_fixe_get(st, kIdB), 1);
  EXPECT_EQ(axe_fixe_set(st, kIdC, 7), 7);
  EXPECT_EQ(axe_fixe_get(st, kIdC), 7);
  EXPECT_EQ(axe_fixe_set(st, kIdB, 0), 0);
  EXPECT_EQ(axe_fixe_get(st, kIdB), 0);
  EXPECT_EQ(axe_fixe_set(st, kIdA, 1), 0);
  EXPECT_EQ(axe_fixe_get(st, kIdA), 0);
  EXPECT_EQ(axe_fixe_set(st, 7, 1), 0);
}

TEST_F(AxisQueries, ToolAxisTestIsInverted) {
  double v[3] = {0, 0, 2};
  EXPECT_EQ(axe_outil(st, v), 1);
  EXPECT_EQ(v[2], 1.0);  // normalised for the caller
  EXPECT_EQ(axe_axe(st, kIdTool)[2], -1.0);  // tool axis unchanged

  double z[3] = {0, 0, 0};
  EXPECT_EQ(axe_outil(st, z), 0);
  const double* d = axe_axe(st, kIdTool);
  EXPECT_EQ(d[0], 0.0);
  EXPECT_EQ(d[1], 0.0);
  EXPECT_EQ(d[2], 0.0);

  double tiny[3] = {0, 5e-7, 0};  // not above epsilon: copied as it is
  EXPECT_EQ(axe_outil(st, tiny), 0);
  EXPECT_EQ(axe_axe(st, kIdTool)[1], 5e-7);
}

TEST(AxisQueriesEmpty, NothingLoaded) {
  State st;
  double v[3] = {0, 0, 0};
  EXPECT_EQ(axe_outil(st, v), 1);
  for (int id = -3; id <= 7; ++id) {
    EXPECT_EQ(axe_type(st, id), -100);
    EXPECT_EQ(axe_previous(st, id), -300);
    EXPECT_EQ(axe_tlien(st, id, 0), -400);
    EXPECT_EQ(axe_nom(st, id), nullptr);
  }
}

TEST(AxisQueriesMachines, TypeexAndPreviousOnEmbeddedMachines) {
  State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("DemoHead")), 0);
  EXPECT_EQ(axe_typeex(st, kIdB), kIdB);
  EXPECT_EQ(axe_typeex(st, kIdA), -100);
  EXPECT_EQ(axe_previous(st, kIdTool), kIdB);
  EXPECT_EQ(axe_previous(st, kIdB), kIdC);
  EXPECT_EQ(axe_previous(st, kIdWorkpiece), kIdFrame);
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("Trunnion")), 0);
  EXPECT_EQ(axe_typeex(st, kIdB), -100);
  EXPECT_EQ(axe_previous(st, kIdWorkpiece), kIdC);
  EXPECT_EQ(axe_previous(st, kIdC), kIdA);
  EXPECT_EQ(axe_previous(st, kIdA), kIdFrame);
}

}  // namespace
