// The number reading and writing of the toolpath path against the C++ library's own conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "toolpath/text_io.h"

namespace {

TEST(PlainDecimal, ReadsAsTheFullConversionDoesBitForBit) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 200000; ++i) {
    const int digits = 1 + static_cast<int>(rng() % 15);
    std::string s = rng() % 2 ? "-" : "";
    const int point = static_cast<int>(rng() % (digits + 2)) - 1;  // -1: no point
    for (int d = 0; d < digits; ++d) {
      if (d == point) s += '.';
      s += static_cast<char>('0' + rng() % 10);
    }
    if (point == digits) s += '.';
    double fast = 0.0, full = 0.0;
    ASSERT_TRUE(k5x::parse_plain_decimal(s.data(), s.data() + s.size(), &fast)) << s;
    std::from_chars(s.data(), s.data() + s.size(), full);
    ASSERT_EQ(std::memcmp(&fast, &full, sizeof fast), 0) << s;
  }
  for (const char* s : {"", "-", ".", "1e5", "1.2.3", "12a", "--1", "1234567890123456", "inf"}) {
    double v = 42.0;
    EXPECT_FALSE(k5x::parse_plain_decimal(s, s + std::strlen(s), &v)) << s;
    EXPECT_EQ(v, 42.0);
  }
}

TEST(MoveLine, TakesPlainAndExponentNumbersAndNamesTheBadField) {
  double v[6];
  char reason[160];
  const std::string ok = "1.5, -2 3e1\t0 0 +1";
  const std::size_t size = sizeof reason;
  ASSERT_EQ(k5x::parse_move_line(ok.data(), ok.data() + ok.size(), v, 1e-9, reason, size), 1);
  EXPECT_EQ(v[0], 1.5);
  EXPECT_EQ(v[1], -2.0);
  EXPECT_EQ(v[2], 30.0);
  EXPECT_EQ(v[5], 1.0);
  const std::string bad = "1 2 3 0 0 1.2.3";
  EXPECT_EQ(k5x::parse_move_line(bad.data(), bad.data() + bad.size(), v, 1e-9, reason, size), -1);
  EXPECT_STREQ(reason, "not a number: '1.2.3'");
}

// Values k / 10^d print as the digits of k: every digit position, odd and even decimal counts,
// zero and negative values.
TEST(FixedOutput, PrintsWhatPrintfPrints) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  std::mt19937_64 rng(11);
  std::string expected;
  {
    k5x::OutBuffer out(f);
    char buf[64];
    for (int i = 0; i < 100000; ++i) {
      const int decimals = static_cast<int>(rng() % 10);
      long long k = static_cast<long long>(rng() % 100000000000ULL) >> (rng() % 40);
      if (rng() % 2) k = -k;
      double scale = 1.0;
      for (int d = 0; d < decimals; ++d) scale *= 10.0;
      const double v = static_cast<double>(k) / scale;
      out.put_fixed(v, decimals);
      out.put('\n');
      std::snprintf(buf, sizeof buf, "%.*f\n", decimals, v);
      expected += std::strcmp(buf, "-0\n") == 0 ? "0\n" : buf;
    }
    ASSERT_TRUE(out.flush());
  }
  std::string got(expected.size() + 16, '\0');
  std::rewind(f);
  got.resize(std::fread(&got[0], 1, got.size(), f));
  std::fclose(f);
  const auto diff = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
  const std::size_t at = expected.rfind('\n', diff.second - expected.begin()) + 1;
  EXPECT_EQ(got.substr(at, 24), expected.substr(at, 24)) << "at byte " << at;
}

// Exact ties round away from zero, the same way on both sides of it.
TEST(FixedOutput, RoundsTiesAwayFromZero) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  {
    k5x::OutBuffer out(f);
    const struct {
      double v;
      int decimals;
    } cases[] = {{2.5, 0}, {-2.5, 0}, {0.25, 1}, {-0.125, 2}, {1.0000005, 6}, {0.4999999999, 0}};
    for (const auto& c : cases) {
      out.put_fixed(c.v, c.decimals);
      out.put(' ');
    }
    ASSERT_TRUE(out.flush());
  }
  char got[128] = {0};
  std::rewind(f);
  const std::size_t n = std::fread(got, 1, sizeof got - 1, f);
  std::fclose(f);
  // 1.0000005 is a little above the tie in binary.
  EXPECT_EQ(std::string(got, n), "3 -3 0.3 -0.13 1.000001 0 ");
}

}  // namespace
