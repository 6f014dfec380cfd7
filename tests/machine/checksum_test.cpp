#include "machine/checksum.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "geometry/transforms.h"
#include "test_machines.h"

namespace k5x {
namespace {

using Bytes = std::vector<unsigned char>;

// Encodings built with shifts, so they do not depend on the host: little-endian unless asked.
void put(Bytes& b, uint64_t u, int size, bool big = false) {
  for (int i = 0; i < size; ++i)
    b.push_back(static_cast<unsigned char>(u >> 8 * (big ? size - 1 - i : i)));
}
void put(Bytes& b, int32_t v, bool big = false) { put(b, static_cast<uint32_t>(v), 4, big); }
void put(Bytes& b, double v, bool big = false) {
  uint64_t u;
  std::memcpy(&u, &v, sizeof u);
  put(b, u, 8, big);
}
uint32_t hash(uint32_t h, const Bytes& b) { return checksum_update(h, b.data(), b.size()); }

uint32_t checksum_of(State& st, int mode) {
  uint32_t c = 0;
  EXPECT_EQ(machine_checksum(st, mode, &c), 1);
  return c;
}

// ---- the hash ----

TEST(HashTest, SignedBytesFromTheStartValueReducedEvery5552) {
  // abc, FF and 80 are the documented examples; 80 80 was worked by hand: a and b go below zero
  // (mod 2^32) and are reduced once, giving 0xFF54FFD3 where unsigned bytes would not.
  const std::pair<Bytes, uint32_t> rows[] = {{{'a', 'b', 'c'}, 0x024D0127u}, {{0xFF}, 0u},
                                             {{0x80}, 0x00620062u}, {{0x80, 0x80}, 0xFF54FFD3u}};
  for (const auto& r : rows) EXPECT_EQ(hash(1, r.first), r.second) << r.first.size() << " bytes";
  EXPECT_EQ(checksum_update(0xDEADBEEFu, nullptr, 0), 1u);
  EXPECT_EQ(checksum_update(0xDEADBEEFu, rows[0].first.data(), 0), 0xDEADBEEFu);
  // The sums are reduced every 5552 bytes of a call.
  Bytes b(5553, 0);
  b.front() = b.back() = 0x80;
  // By hand: reduced after byte 5552 this gives 0x3DCE00C3; one unreduced block would give
  // 0x3CEDFFD3.
  EXPECT_EQ(hash(1, b), 0x3DCE00C3u);
  EXPECT_EQ(checksum_update(checksum_update(1, b.data(), 5552), b.data() + 5552, 1), 0x3DCE00C3u);
}

// ---- the stream ----

// A value is never split: after 508 bytes of ints a double starts a new feed. A full buffer is
// fed only when the next value comes: 64 doubles fill 512 bytes, the 65th is fed on its own. The
// swap flag (set on big-endian hosts, forced here) reverses the bytes of every value.
class StreamTest : public ::testing::TestWithParam<bool> {};
TEST_P(StreamTest, FlushPoints) {
  ChecksumStream split(1, GetParam()), full(1, GetParam());
  const bool big = host_is_little_endian() == GetParam();
  Bytes ints, doubles, tail_split, tail_full;
  for (int i = 0; i < 127; ++i) {
    put(ints, -2 - i * 977, big);
    split.put_int(-2 - i * 977);
  }
  put(tail_split, -1.5, big);
  split.put_double(-1.5);
  for (int i = 0; i < 65; ++i) {
    put(i < 64 ? doubles : tail_full, -1.25 * (i + 1), big);
    full.put_double(-1.25 * (i + 1));
  }
  EXPECT_EQ(split.finish(), hash(hash(1, ints), tail_split));
  EXPECT_EQ(full.finish(), hash(hash(1, doubles), tail_full));
}
INSTANTIATE_TEST_SUITE_P(ByteOrder, StreamTest, ::testing::Values(false, true),
                         [](const auto& p) { return std::string(p.param ? "Swapped" : "Native"); });

// ---- the machine checksum ----

TEST(MachineChecksumTest, OnlyModesOneToThreeComputeAndAnEmptyMachineHashesModeAndCount) {
  State st;
  st.machine.last_checksum = 42;
  for (int mode : {0, 4, -1}) {
    uint32_t c = 99;
    EXPECT_EQ(machine_checksum(st, mode, &c), 0) << mode;
    EXPECT_EQ(c, 0u) << mode;
  }
  EXPECT_EQ(st.machine.last_checksum, 42u);
  EXPECT_EQ(checksum_of(st, 1), 0x00080001u);  // eight zero bytes: a stays 1, b counts to 8
  EXPECT_EQ(st.machine.last_checksum, 0x00080001u);
}

// A frame with the tool as its only child, written field by field.
TEST(MachineChecksumTest, FieldOrderWeightingAndToolLinkFrame) {
  State st;
  Model& m = st.machine;
  std::snprintf(m.name, sizeof m.name, "M");
  m.mode = m.record_count = 2;
  m.frame = 0;
  m.tool = 1;
  AxisRecord& frame = m.records[0];
  record_init(frame);
  frame.offset = 0.5;
  frame.direction[0] = -1.0;
  frame.collision[6] = 1;
  frame.link_count = 1;
  frame.links[0] = Link{1, {1, 2, 3}, {5, 5, 5, 5, 5, 5, 5, 5, 5}};  // rotation unused: tool child
  AxisRecord& tool = m.records[1];
  record_init(tool);
  tool.kind = kKindTool;
  tool.direction[2] = 1.0;
  std::memcpy(tool.point, frame.links[0].translation, sizeof tool.point);
  tool.previous = 0;

  Bytes b;
  for (int v : {2, 2, -2, kKindTool, -1}) put(b, v);  // mode, count; tool: t, kind, axis
  // Directions weighted by t = -2, as doubles, so zeros become -0.0.
  for (double v : {0.0, -0.0, -0.0, -2.0, -0.0, -0.0, -0.0, 1.0, 2.0, 3.0}) put(b, v);
  for (int i = 0; i < 10; ++i) put(b, 0);  // previous, collisions
  for (int v : {0, kKindFrame, -1}) put(b, v);
  // Frame weighted by 0: its -1 becomes -0.0.
  for (double v : {0.5, -0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}) put(b, v);
  for (int v : {-1, 0, 0, 0, 0, 0, 0, 1, 0, 0, 1, kKindTool}) put(b, v);
  for (double v : {1.0, 2.0, 3.0}) put(b, v);
  // d = Z: u = d x X = Y, w = d x u = -X; rows (u.x, w.x, d.x) ...
  for (double v : {0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0}) put(b, v);
  const unsigned char name = 'M';
  const uint32_t expected = hash(checksum_update(1, &name, 1), b);
  EXPECT_EQ(checksum_of(st, 1), expected);
  EXPECT_EQ(checksum_of(st, 2), expected);
}

TEST(MachineChecksumTest, LoadedMachine) {
  State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("DemoHead")), 0);
  const uint32_t c1 = checksum_of(st, 1), c3 = checksum_of(st, 3);
  EXPECT_EQ(checksum_of(st, 2), c1);
  // Moving the workpiece changes modes 1 and 2 only.
  const double moved[16] = {1, 0, 0, 10, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1};
  ASSERT_EQ(place_workpiece(st, moved), 0);
  const uint32_t m1 = checksum_of(st, 1);
  EXPECT_NE(m1, c1);
  EXPECT_EQ(checksum_of(st, 2), m1);
  EXPECT_EQ(checksum_of(st, 3), c3);
  // The rotation of a link to an axis is hashed as stored.
  st.machine.records[st.machine.letter[5]].links[0].rotation[0] += 1.0;  // C carries B
  EXPECT_NE(checksum_of(st, 1), m1);
}

TEST(MachineChecksumTest, AxisThatLostItsLetterCountsOnlyThroughItsParentLink) {
  auto checksum_of_text = [](const std::string& first_dir, const std::string& second_dir) {
    State st;
    EXPECT_EQ(k5x_test::load_text(st, "bati=Z\naxe=AXE_X," + first_dir + "\naxe=AXE_X," +
                                          second_dir + "\noutil=Z\nlien=AXE_BATI\npiece=X,Y\n"),
              0);
    return checksum_of(st, 1);
  };
  const uint32_t base = checksum_of_text("X", "X");
  EXPECT_EQ(checksum_of_text("Y", "X"), base);  // the shadowed axis's own fields
  EXPECT_NE(checksum_of_text("X", "Y"), base);  // the axis in the slot
}

TEST(MachineChecksumTest, WithoutWorkpieceMode3HashesTheSavedOneForAbsentRecords) {
  State st;
  ASSERT_EQ(k5x_test::load_text(st, "bati=Z\naxe=AXE_Z,Z\noutil=Z\n"), 12);
  const uint32_t c1 = checksum_of(st, 1), c3 = checksum_of(st, 3);
  st.machine.saved_workpiece.offset = 3.0;
  EXPECT_EQ(checksum_of(st, 1), c1);
  EXPECT_NE(checksum_of(st, 3), c3);
}

}  // namespace
}  // namespace k5x
