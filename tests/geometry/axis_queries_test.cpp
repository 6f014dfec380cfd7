#include "geometry/axis_queries.h"

#include <gtest/gtest.h>

#include "test_machines.h"

namespace {

using namespace k5x;

// X, Z and a B head on the tool side; a Y pallet and a C table on the workpiece side. No A.
// Table indices: 0 frame, 1 X, 2 Z, 3 B, 4 tool, 5 Y, 6 C, 7 workpiece.
const char kQueryMachine[] =
    "nommachine = Queries\nbati = Z, Frame\naxe = AXE_X, X, Slide X\naxe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_B, Y, 1, -1, 0, 0, 150, Head B\noutil = -Z, 0, 0, 0\nlien = AXE_BATI\n"
    "axe = AXE_Y, Y, Pallet Y\nrotation = AXE_C, Z, 2, 1, 0, 0, 0, Table C\n"
    "piece = X, Y, 0, 0, 0\nposition = 0, 0, 0, 0, 0, 0\n"
    "collision = AXE_OUTIL, AXE_C, AXE_X, AXE_BATI\ncollision = AXE_C, AXE_Y, AXE_OUTIL\n";

class AxisQueries : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(k5x_test::load_text(st, kQueryMachine), 0); }
  State st;
};

// What each query must answer, per identifier from -3 to 7.
struct Expect {
  int id, type;
  const char* name;  // null when missing
  int previous, link_count, tlien0, tlien1, law, sense;
};

const Expect kExpect[] = {
    {-3, -100, nullptr, -300, 0, -400, -400, 0, 0},
    {-2, -2, "", 5, 0, -400, -400, 0, 1},            // tool under B
    {-1, -1, "", 6, 0, -400, -400, 0, 1},            // workpiece on the C table
    {0, 0, "Frame", -1, 2, 1, 2, 0, 1},              // frame: children X and Y
    {1, -4, "SlideX", 0, 1, 3, -400, 0, 1},          // X hung on the frame, carries Z
    {2, -4, "PalletY", 0, 1, 6, -400, 0, 1},         // Y carries C
    {3, -4, "RamZ", 1, 1, 5, -400, 0, 1},            // Z carries B
    {4, -100, nullptr, -300, 0, -400, -400, 0, 0},   // no A
    {5, -3, "HeadB", 3, 1, -2, -400, 1, -1},         // B carries the tool
    {6, -3, "TableC", 2, 1, -1, -400, 2, 1},         // C carries the workpiece
    {7, -100, nullptr, -300, 0, -400, -400, 0, 0},
};

TEST_F(AxisQueries, EveryIdentifier) {
  for (const Expect& e : kExpect) {
    SCOPED_TRACE(e.id);
    const bool exists = e.name != nullptr;
    EXPECT_EQ(axis_type(st, e.id), e.type);
    EXPECT_EQ(axis_type_ex(st, e.id), exists ? e.id : -100);
    EXPECT_STREQ(axis_name(st, e.id), e.name);  // two nulls compare equal
    EXPECT_EQ(axis_direction(st, e.id) != nullptr, exists);
    EXPECT_EQ(axis_point(st, e.id) != nullptr, exists);
    EXPECT_EQ(axis_color(st, e.id) != nullptr, exists);
    EXPECT_EQ(axis_parent(st, e.id), e.previous);
    EXPECT_EQ(axis_link_count(st, e.id), e.link_count);
    EXPECT_EQ(axis_link_translation(st, e.id, 0), e.tlien0);
    EXPECT_EQ(axis_link_translation(st, e.id, 1), e.tlien1);
    EXPECT_EQ(axis_link_translation(st, e.id, 2), -400);
    EXPECT_EQ(axis_link(st, e.id, 2), -1);
    EXPECT_EQ(axis_link(st, e.id, -1), -1);  // unchecked index: must not read outside the links
    EXPECT_EQ(axis_link_rotation(st, e.id, 2), nullptr);
    EXPECT_EQ(axis_law(st, e.id), e.law);
    EXPECT_EQ(axis_sense(st, e.id), e.sense);
    EXPECT_EQ(axis_locked(st, e.id), 0);
  }
}

TEST_F(AxisQueries, LinksContentsAndCollisions) {
  EXPECT_EQ(axis_link(st, kIdFrame, 1), 5);
  EXPECT_EQ(axis_link(st, kIdTool, 0), -1);  // j beyond nlien
  EXPECT_STREQ(axis_link_rotation(st, kIdFrame, 1), "PalletY");
  EXPECT_STREQ(axis_link_rotation(st, kIdB, 0), "");  // the tool has no name, but exists
  EXPECT_EQ(axis_point(st, kIdB)[2], 150.0);
  EXPECT_EQ(axis_direction(st, kIdB)[1], 1.0);
  // The tool's line named C, X and the frame, C's line Y and the tool: each j from -2 to 6 reads
  // its own flag (no two slots agree on both records), and beyond is 0.
  const int tool[] = {0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0}, c[] = {0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0};
  for (int j = -3; j <= 7; ++j) {
    EXPECT_EQ(axis_collisions(st, kIdTool, j), tool[j + 3]) << j;
    EXPECT_EQ(axis_collisions(st, kIdC, j), c[j + 3]) << j;
  }
  EXPECT_EQ(axis_collisions(st, kIdA, kIdX), 0);
}

TEST_F(AxisQueries, PreviousAndTlienTranslateOddTargets) {
  // A parent index past the record count comes back as it is; so does a parent of unknown kind.
  AxisRecord& x = st.machine.records[1];
  x.previous = 20;
  EXPECT_EQ(axis_parent(st, kIdX), 20);
  x.previous = 2;
  for (int kind : {3, -7}) {
    st.machine.records[2].kind = kind;
    EXPECT_EQ(axis_parent(st, kIdX), 2) << kind;
    EXPECT_EQ(axis_link_translation(st, kIdX, 0), -400) << kind;  // as a link target: -400
  }
  x.links[0].child = 12;  // a link beyond the count
  EXPECT_EQ(axis_link_translation(st, kIdX, 0), -400);
  EXPECT_EQ(axis_link_rotation(st, kIdX, 0), nullptr);
  st.machine.records[2].kind = kKindTool;  // a tool-kind parent is reported by its kind
  EXPECT_EQ(axis_parent(st, kIdX), -2);
}

TEST_F(AxisQueries, FixeFlagAndInvertedToolAxisTest) {
  EXPECT_EQ(set_axis_locked(st, kIdC, 7), 7);
  EXPECT_EQ(axis_locked(st, kIdC), 7);
  EXPECT_EQ(set_axis_locked(st, kIdA, 1), 0);
  // A proper direction gets 1 and comes back normalised, the tool axis unchanged; a vector that
  // cannot be normalised gets 0 and is copied, as it is, into the tool axis.
  double v[3] = {0, 0, 2}, zero[3] = {0, 0, 0};
  const double* d = axis_direction(st, kIdTool);
  EXPECT_EQ(tool_record(st, v), 1);
  EXPECT_EQ(v[2], 1.0);
  EXPECT_EQ(d[2], -1.0);
  EXPECT_EQ(tool_record(st, zero), 0);
  EXPECT_EQ(d[2], 0.0);
  State empty;  // nothing loaded: no tool record, every identifier missing
  double none[3] = {0, 0, 0};
  EXPECT_EQ(tool_record(empty, none), 1);
  EXPECT_EQ(axis_type(empty, kIdFrame), -100);
  EXPECT_EQ(axis_parent(empty, kIdWorkpiece), -300);
}

}  // namespace
