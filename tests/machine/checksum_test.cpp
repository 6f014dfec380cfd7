#include "machine/checksum.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "geometry/transforms.h"
#include "test_machines.h"

namespace k5x {
namespace {

using Bytes = std::vector<unsigned char>;

// Little-endian encodings built with shifts, so they do not depend on the host.
void put_le(Bytes& b, uint64_t u, int size) {
  for (int i = 0; i < size; ++i) b.push_back(static_cast<unsigned char>(u >> (8 * i)));
}
void le_int(Bytes& b, int32_t v) { put_le(b, static_cast<uint32_t>(v), 4); }
void le_double(Bytes& b, double v) {
  uint64_t u;
  std::memcpy(&u, &v, sizeof u);
  put_le(b, u, 8);
}
uint32_t hash(uint32_t running, const Bytes& b) { return checksum_update(running, b.data(), b.size()); }

template <typename T>
T byte_reversed(T v) {
  unsigned char b[sizeof v];
  std::memcpy(b, &v, sizeof v);
  for (std::size_t i = 0; i < sizeof v / 2; ++i) std::swap(b[i], b[sizeof v - 1 - i]);
  std::memcpy(&v, b, sizeof v);
  return v;
}

// ---- the hash ----

struct HashCase {
  const char* name;
  Bytes bytes;
  uint32_t expected;
};
void PrintTo(const HashCase& c, std::ostream* os) { *os << c.name; }
class HashTest : public ::testing::TestWithParam<HashCase> {};
TEST_P(HashTest, FromStartValue) { EXPECT_EQ(hash(1, GetParam().bytes), GetParam().expected); }
// abc, FF and 80 are the documented examples; 80 80 was worked by hand: a and b go below zero
// (mod 2^32) and are reduced once, giving 0xFF54FFD3 where unsigned bytes would not.
INSTANTIATE_TEST_SUITE_P(Examples, HashTest,
                         ::testing::Values(HashCase{"abc", {'a', 'b', 'c'}, 0x024D0127u},
                                           HashCase{"FF", {0xFF}, 0x00000000u},
                                           HashCase{"80", {0x80}, 0x00620062u},
                                           HashCase{"8080", {0x80, 0x80}, 0xFF54FFD3u}),
                         [](const auto& p) { return std::string(p.param.name); });

TEST(HashRuleTest, NullGivesStartValueAndEmptyKeepsRunning) {
  EXPECT_EQ(checksum_update(0xDEADBEEFu, nullptr, 0), 1u);
  const unsigned char c = 'x';
  EXPECT_EQ(checksum_update(0xDEADBEEFu, &c, 0), 0xDEADBEEFu);
}

TEST(HashRuleTest, SumsAreReducedEvery5552BytesOfACall) {
  Bytes b(5553, 0);
  b.front() = b.back() = 0x80;
  // By hand: reduced after byte 5552 this gives 0x3DCE00C3; one unreduced block would give
  // 0x3CEDFFD3.
  EXPECT_EQ(hash(1, b), 0x3DCE00C3u);
  const uint32_t first = checksum_update(1, b.data(), 5552);
  EXPECT_EQ(checksum_update(first, b.data() + 5552, 1), 0x3DCE00C3u);
}

// ---- the stream ----

class StreamFlushTest : public ::testing::TestWithParam<bool> {};  // true: forced opposite order
TEST_P(StreamFlushTest, ValuesAreNeverSplitAndBytesAreLittleEndian) {
  const bool forced = GetParam();
  // The forced path reverses every value, so it is fed values reversed beforehand.
  ChecksumStream s(1, forced ? host_is_little_endian() : !host_is_little_endian());
  Bytes ints, tail;
  for (int i = 0; i < 127; ++i) {  // 508 bytes: the double that follows does not fit
    const int32_t v = -2 - i * 977;
    le_int(ints, v);
    s.put_int(forced ? byte_reversed(v) : v);
  }
  le_double(tail, -1.5);
  s.put_double(forced ? byte_reversed(-1.5) : -1.5);
  EXPECT_EQ(s.finish(), hash(hash(1, ints), tail));
}

TEST_P(StreamFlushTest, FullBufferIsFedOnlyWhenTheNextValueComes) {
  const bool forced = GetParam();
  ChecksumStream s(1, forced ? host_is_little_endian() : !host_is_little_endian());
  Bytes head, tail;
  for (int i = 0; i < 65; ++i) {  // 64 doubles fill the 512 bytes exactly
    const double v = -1.25 * (i + 1);
    le_double(i < 64 ? head : tail, v);
    s.put_double(forced ? byte_reversed(v) : v);
  }
  EXPECT_EQ(s.finish(), hash(hash(1, head), tail));
}
INSTANTIATE_TEST_SUITE_P(ByteOrder, StreamFlushTest, ::testing::Values(false, true),
                         [](const auto& p) { return std::string(p.param ? "Swapped" : "Native"); });

// ---- the machine checksum ----

TEST(MachineChecksumTest, OnlyModesOneToThreeCompute) {
  State st;
  st.machine.last_checksum = 42;
  for (int mode : {0, 4, -1, 100}) {
    uint32_t c = 99;
    EXPECT_EQ(machine_checksum(st, mode, &c), 0) << mode;
    EXPECT_EQ(c, 0u) << mode;
  }
  EXPECT_EQ(st.machine.last_checksum, 42u);
}

TEST(MachineChecksumTest, EmptyMachineCoversModeAndCountOnly) {
  State st;
  uint32_t c1 = 0, c2 = 0;
  EXPECT_EQ(machine_checksum(st, 1, &c1), 1);
  EXPECT_EQ(machine_checksum(st, 2, &c2), 1);
  EXPECT_EQ(c1, 0x00080001u);  // eight zero bytes: a stays 1, b counts to 8
  EXPECT_EQ(c2, c1);
  EXPECT_EQ(st.machine.last_checksum, c1);
}

// A frame with the tool as its only child, written field by field.
TEST(MachineChecksumTest, FieldOrderWeightingAndToolLinkFrame) {
  State st;
  Machine& m = st.machine;
  std::snprintf(m.name, sizeof m.name, "M");
  m.mode = 2;
  m.record_count = 2;
  m.frame = 0;
  m.tool = 1;
  AxisRecord& frame = m.records[0];
  record_init(frame);
  frame.offset = 0.5;
  frame.direction[0] = 1.0;
  frame.collision[6] = 1;
  frame.nlien = 1;
  frame.liens[0].ilien = 1;
  const double t[3] = {1, 2, 3};
  std::memcpy(frame.liens[0].translation, t, sizeof t);
  for (double& r : frame.liens[0].rotation) r = 5.0;  // ignored for a tool child
  AxisRecord& tool = m.records[1];
  record_init(tool);
  tool.kind = kKindTool;
  tool.direction[2] = 1.0;
  std::memcpy(tool.point, t, sizeof t);
  tool.previous = 0;

  Bytes b;
  le_int(b, 2);  // mode
  le_int(b, 2);  // record count
  // Tool (identifier -2): directions times -2, so zeros become -0.0.
  for (int v : {-2, kKindTool, -1}) le_int(b, v);
  for (double v : {0.0, -0.0, -0.0, -2.0, -0.0, -0.0, -0.0, 1.0, 2.0, 3.0}) le_double(b, v);
  le_int(b, 0);
  for (int i = 0; i < 9; ++i) le_int(b, 0);
  // Frame (identifier 0): directions times 0.
  for (int v : {0, kKindFrame, -1}) le_int(b, v);
  for (double v : {0.5, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}) le_double(b, v);
  le_int(b, -1);
  for (int i = 0; i < 9; ++i) le_int(b, i == 6 ? 1 : 0);
  le_int(b, 1);
  le_int(b, kKindTool);
  for (double v : t) le_double(b, v);
  // d = Z: u = d x X = Y, w = d x u = -X; rows (u.x, w.x, d.x) ...
  for (double v : {0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0}) le_double(b, v);
  const unsigned char name = 'M';
  const uint32_t expected = hash(checksum_update(1, &name, 1), b);

  uint32_t c = 0;
  EXPECT_EQ(machine_checksum(st, 1, &c), 1);
  EXPECT_EQ(c, expected);
  EXPECT_EQ(machine_checksum(st, 2, &c), 1);
  EXPECT_EQ(c, expected);
}

uint32_t checksum_of(State& st, int mode) {
  uint32_t c = 0;
  EXPECT_EQ(machine_checksum(st, mode, &c), 1);
  return c;
}

uint32_t checksum_of_text(const std::string& text, int mode = 1) {
  State st;
  k5x_test::load_text(st, text);
  return checksum_of(st, mode);
}

class LoadedChecksumTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(k5x_test::load_text(st_, k5x_test::machine_text("DemoHead")), 0); }
  State st_;
};

TEST_F(LoadedChecksumTest, ModesOneAndTwoAgreeAndTheModeSettingCounts) {
  const uint32_t c1 = checksum_of(st_, 1);
  EXPECT_EQ(checksum_of(st_, 2), c1);
  set_mode(st_, 1);
  EXPECT_NE(checksum_of(st_, 1), c1);
  set_mode(st_, 0);
  EXPECT_EQ(checksum_of(st_, 1), c1);
}

TEST_F(LoadedChecksumTest, MovingTheWorkpieceChangesModesOneAndTwoOnly) {
  const uint32_t c1 = checksum_of(st_, 1), c3 = checksum_of(st_, 3);
  double moved[16] = {1, 0, 0, 10, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1};
  ASSERT_EQ(set_piece(st_, moved), 0);
  EXPECT_NE(checksum_of(st_, 1), c1);
  EXPECT_NE(checksum_of(st_, 2), c1);
  EXPECT_EQ(checksum_of(st_, 3), c3);
}

TEST_F(LoadedChecksumTest, ToolLinkRotationIsRebuiltNotRead) {
  const uint32_t c1 = checksum_of(st_, 1);
  Machine& m = st_.machine;
  Link& to_tool = m.records[m.records[m.tool].previous].liens[0];
  ASSERT_EQ(to_tool.ilien, m.tool);
  to_tool.rotation[0] += 1.0;
  EXPECT_EQ(checksum_of(st_, 1), c1);
  Link& to_b = m.records[m.letter[5]].liens[0];  // C carries B
  to_b.rotation[0] += 1.0;
  EXPECT_NE(checksum_of(st_, 1), c1);
}

TEST(MachineChecksumTest, AxisThatLostItsLetterCountsOnlyThroughItsParentLink) {
  auto text = [](const char* first_dir, const char* second_dir) {
    return std::string("nommachine=Twin\nbati=Z\naxe=AXE_X,") + first_dir + "\naxe=AXE_X," +
           second_dir + "\noutil=Z\nlien=AXE_BATI\npiece=X,Y\nposition=0,0,0,0,0,0\n";
  };
  const uint32_t base = checksum_of_text(text("X", "X"));
  EXPECT_EQ(checksum_of_text(text("Y", "X")), base);  // the shadowed axis's own fields
  EXPECT_NE(checksum_of_text(text("X", "Y")), base);  // the axis in the slot
}

TEST(MachineChecksumTest, FrameDirectionIsWeightedByZero) {
  auto text = [](const char* letter) {
    return std::string("bati=") + letter +
           "\naxe=AXE_Z,Z\noutil=Z\nlien=AXE_BATI\npiece=X,Y\nposition=0,0,0,0,0,0\n";
  };
  EXPECT_EQ(checksum_of_text(text("X")), checksum_of_text(text("Z")));
  EXPECT_NE(checksum_of_text(text("-X")), checksum_of_text(text("Z")));  // -1 * 0 is -0.0
}

TEST(MachineChecksumTest, WithoutWorkpieceMode3HashesTheSavedOneForAbsentRecords) {
  const std::string no_piece = "nommachine=NoPiece\nbati=Z\naxe=AXE_Z,Z\noutil=Z\n";
  State a, b;
  ASSERT_EQ(k5x_test::load_text(a, no_piece), 12);
  ASSERT_EQ(k5x_test::load_text(b, no_piece), 12);
  b.machine.saved_workpiece.offset = 3.0;
  EXPECT_EQ(checksum_of(a, 1), checksum_of(b, 1));
  EXPECT_NE(checksum_of(a, 3), checksum_of(b, 3));
}

}  // namespace
}  // namespace k5x
