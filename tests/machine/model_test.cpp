#include "machine/machine_model.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

namespace k5x {
namespace {

TEST(ModelTest, AxisNameTableIsExact) {
  const struct {
    const char* text;
    int id;
  } rows[] = {{"AXE_OUTIL", -2}, {"AXE_PIECE", -1}, {"AXE_BATI", 0}, {"AXE_X", 1},
              {"AXE_C", 6},      {"axe_x", -5},     {"AXE_X\t", -5}, {"AXE_", -5},
              {"", -5},          {"AXE_XY", -5},    {nullptr, -5}};
  for (const auto& r : rows) EXPECT_EQ(axis_id_by_name(r.text), r.id) << (r.text ? r.text : "null");
}

TEST(ModelTest, RecordNewLinksAtMostTwoChildrenAndNineRecords) {
  State st;
  Model& m = st.machine;
  ASSERT_EQ(record_new(st, kNone), 0);
  // A new link must not inherit what an earlier machine left in the slot.
  m.records[0].links[0].translation[1] = 7.0;
  m.records[0].links[0].rotation[1] = 7.0;
  EXPECT_EQ(record_new(st, 0), 1);
  const Link& l = m.records[0].links[0];
  EXPECT_EQ(std::vector<double>(l.translation, l.translation + 3), std::vector<double>(3, 0.0));
  EXPECT_EQ(std::vector<double>(l.rotation, l.rotation + 9),
            std::vector<double>({1, 0, 0, 0, 1, 0, 0, 0, 1}));
  EXPECT_EQ(record_new(st, 0), 2);
  // The third child is appended and counted, with its parent set, but not linked.
  EXPECT_EQ(record_new(st, 0), -2);
  EXPECT_EQ(std::make_tuple(m.record_count, m.records[3].previous, m.records[0].link_count,
                            m.records[0].links[1].child),
            std::make_tuple(4, 0, 2, 2));
  for (int i = 4; i < kMaxRecords; ++i) ASSERT_EQ(record_new(st, i - 1), i);
  EXPECT_EQ(record_new(st, 1), -1);
  EXPECT_EQ(std::make_pair(m.record_count, m.records[1].link_count), std::make_pair(kMaxRecords, 0));
}

}  // namespace
}  // namespace k5x
