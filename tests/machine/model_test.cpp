#include "machine/machine_model.h"

#include <gtest/gtest.h>

#include <ostream>

namespace k5x {
namespace {

struct NameCase {
  const char* text;
  int id;
};
void PrintTo(const NameCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class AxisNameTest : public ::testing::TestWithParam<NameCase> {};
TEST_P(AxisNameTest, ExactCaseSensitiveTable) {
  EXPECT_EQ(axis_id_by_name(GetParam().text), GetParam().id);
}
INSTANTIATE_TEST_SUITE_P(
    Names, AxisNameTest,
    ::testing::Values(NameCase{"AXE_OUTIL", -2}, NameCase{"AXE_PIECE", -1}, NameCase{"AXE_BATI", 0},
                      NameCase{"AXE_X", 1}, NameCase{"AXE_Z", 3}, NameCase{"AXE_C", 6},
                      NameCase{"axe_x", -5}, NameCase{"AXE_X\t", -5}, NameCase{"AXE_", -5},
                      NameCase{"", -5}, NameCase{"AXE_XY", -5}));

TEST(AxisNameNullTest, NullIsUnknown) { EXPECT_EQ(axis_id_by_name(nullptr), kIdUnknown); }

class RecordNewTest : public ::testing::Test {
 protected:
  State st_;
};

TEST_F(RecordNewTest, ThirdChildIsCountedButNotLinked) {
  const int root = record_new(st_, kNone);
  ASSERT_EQ(root, 0);
  EXPECT_EQ(record_new(st_, root), 1);
  EXPECT_EQ(record_new(st_, root), 2);
  EXPECT_EQ(record_new(st_, root), -2);
  EXPECT_EQ(st_.machine.record_count, 4);
  EXPECT_EQ(st_.machine.records[3].previous, root);
  EXPECT_EQ(st_.machine.records[root].nlien, 2);
  EXPECT_EQ(st_.machine.records[root].liens[1].ilien, 2);
}

TEST_F(RecordNewTest, NewLinkStartsZeroAndIdentity) {
  const int root = record_new(st_, kNone);
  // Dirty the link slot first: a new link must not inherit a previous machine's values.
  st_.machine.records[root].liens[0].translation[1] = 7.0;
  st_.machine.records[root].liens[0].rotation[1] = 7.0;
  ASSERT_EQ(record_new(st_, root), 1);
  const Link& l = st_.machine.records[root].liens[0];
  for (int i = 0; i < 3; ++i) EXPECT_EQ(l.translation[i], 0.0);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(l.rotation[i], i % 4 == 0 ? 1.0 : 0.0) << i;
}

TEST_F(RecordNewTest, TenthRecordIsRefusedWithoutChange) {
  for (int i = 0; i < kMaxRecords; ++i) ASSERT_EQ(record_new(st_, i - 1), i);
  EXPECT_EQ(record_new(st_, 0), -1);
  EXPECT_EQ(st_.machine.record_count, kMaxRecords);
  EXPECT_EQ(st_.machine.records[0].nlien, 1);
}

TEST(RecordByIdTest, IdentifiersOutsideTheTableGiveNone) {
  State st;
  st.machine.tool = 2;
  st.machine.workpiece = 1;
  st.machine.frame = 0;
  for (int k = 0; k < 6; ++k) st.machine.letter[k] = 3 + k % 3;
  EXPECT_EQ(record_by_id(st, kIdTool), &st.machine.records[2]);
  EXPECT_EQ(record_by_id(st, kIdWorkpiece), &st.machine.records[1]);
  EXPECT_EQ(record_by_id(st, kIdC), &st.machine.records[5]);
  for (int id : {7, -3, -5, 100, -100}) EXPECT_EQ(record_by_id(st, id), nullptr) << id;
  st.machine.letter[1] = kNone;
  EXPECT_EQ(record_by_id(st, kIdY), nullptr);
}

TEST(SettingsTest, OutOfRangeModesAreIgnored) {
  State st;
  set_mode(st, 1);
  set_mode(st, 3);
  EXPECT_EQ(st.machine.mode, 1);
  set_rtcp(st, 0);
  set_rtcp(st, -1);
  EXPECT_EQ(st.machine.rtcp, 0);
  EXPECT_EQ(name_machine(st), nullptr);
}

}  // namespace
}  // namespace k5x
