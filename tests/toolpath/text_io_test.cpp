// The number reading and writing of the toolpath path against the C++ library's own conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "toolpath/text_io.h"

namespace {

// Alone and as fields of a line, with every separator, so that numbers end both at the end of
// the text and before more of it.
TEST(PlainDecimal, ReadsAsTheFullConversionDoesBitForBit) {
  std::mt19937_64 rng(7);
  const char* const separators[] = {" ", ",", ", ", "\t", " ,  "};
  for (int i = 0; i < 40000; ++i) {
    std::string line, numbers[6];
    for (std::string& s : numbers) {
      // Up to 17 digits: past 15 the full conversion reads them.
      const int digits = 1 + static_cast<int>(rng() % 17);
      s = rng() % 2 ? "-" : (rng() % 8 ? "" : "+");
      const int point = static_cast<int>(rng() % (digits + 2)) - 1;  // -1: no point
      for (int d = 0; d < digits; ++d) {
        if (d == point) s += '.';
        s += static_cast<char>('0' + rng() % 10);
      }
      if (point == digits) s += '.';
      if (!line.empty()) line += separators[rng() % 5];
      line += s;
    }
    double v[6];
    char reason[160];
    // A buffer of the line's own size: the sanitizer builds catch a read past its end.
    const std::vector<char> exact(line.begin(), line.end());
    ASSERT_EQ(k5x::parse_move_line(exact.data(), exact.data() + exact.size(), v, -1.0, reason, 160),
              1)
        << line << ": " << reason;
    for (int k = 0; k < 6; ++k) {
      const std::string& s = numbers[k];
      const char* b = s.data() + (s[0] == '+');
      double full = 0.0, alone = 0.0;
      std::from_chars(b, s.data() + s.size(), full);
      ASSERT_EQ(std::memcmp(&v[k], &full, sizeof full), 0) << line << " field " << k;
      if (s.size() - (s[0] == '+' || s[0] == '-') - (s.find('.') != std::string::npos) > 15)
        continue;
      const std::vector<char> number(s.begin(), s.end());
      ASSERT_TRUE(k5x::parse_plain_decimal(number.data(), number.data() + number.size(), &alone))
          << s;
      ASSERT_EQ(std::memcmp(&alone, &full, sizeof full), 0) << s;
      // Followed by a NUL and room: the same value, and a number that runs on is no number.
      std::vector<char> padded(number);
      padded.resize(number.size() + 8, '\0');
      double fast = 0.0;
      ASSERT_TRUE(k5x::parse_plain_decimal_padded(padded.data(), padded.data() + s.size(), &fast));
      ASSERT_EQ(std::memcmp(&fast, &full, sizeof full), 0) << s;
      padded[s.size()] = '7';
      EXPECT_FALSE(k5x::parse_plain_decimal_padded(padded.data(), padded.data() + s.size(), &fast));
    }
  }
  for (const char* s : {"", "-", ".", "1e5", "1.2.3", "12a", "--1", "1234567890123456", "inf"}) {
    double v = 42.0;
    EXPECT_FALSE(k5x::parse_plain_decimal(s, s + std::strlen(s), &v)) << s;
    EXPECT_EQ(v, 42.0);
  }
  // What the plain reading leaves, the full conversion takes.
  double v[6];
  char reason[160];
  const std::string line = "1.5, -2 3e1\t0 0 +1";
  ASSERT_EQ(k5x::parse_move_line(line.data(), line.data() + line.size(), v, 1e-9, reason, 160), 1);
  EXPECT_EQ(v[2], 30.0);
  EXPECT_EQ(v[5], 1.0);
}

// Values k / 10^d print as printf prints them (every digit position, odd and even decimal
// counts, zero and negative values); exact ties round away from zero.
TEST(FixedOutput, PrintsWhatPrintfPrintsAndRoundsTiesAwayFromZero) {
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
      const double v = static_cast<double>(k) / std::pow(10.0, decimals);
      out.put_fixed(v, decimals);
      out.put('\n');
      std::snprintf(buf, sizeof buf, "%.*f\n", decimals, v);
      expected += std::strcmp(buf, "-0\n") == 0 ? "0\n" : buf;
    }
    // 1.0000005 lies a little above its tie in binary.
    const double ties[][2] = {{2.5, 0}, {-2.5, 0}, {0.25, 1}, {-0.125, 2}, {1.0000005, 6}};
    for (const auto& t : ties) {
      out.put_fixed(t[0], static_cast<int>(t[1]));
      out.put('\n');
    }
    expected += "3\n-3\n0.3\n-0.13\n1.000001\n";
    ASSERT_TRUE(out.flush());
  }
  std::string got(expected.size() + 16, '\0');
  std::rewind(f);
  got.resize(std::fread(&got[0], 1, got.size(), f));
  std::fclose(f);
  const std::size_t at = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end())
                             .second - expected.begin();
  const std::size_t line = expected.rfind('\n', at == 0 ? 0 : at - 1) + 1;
  EXPECT_EQ(got.substr(line, 24), expected.substr(line, 24)) << "at byte " << line;
}

}  // namespace

// The G-code writer's numbers: printf's own text for every value it takes, exact ties of the
// last decimal and their neighbours included, and nothing (for a full conversion) outside.
TEST(FixedOutput, FixedAsPrintfIsPrintfOrNothing) {
  std::mt19937_64 rng(13);
  char got[64], want[64];
  auto check = [&](double v, int decimals) {
    char* end = k5x::fixed_as_printf(got, v, decimals);
    if (end == nullptr) return false;
    *end = '\0';
    std::snprintf(want, sizeof want, "%.*f", decimals, v);
    EXPECT_STREQ(got, want) << std::hexfloat << v << " at " << decimals;
    return true;
  };
  int taken = 0;
  for (int i = 0; i < 300000; ++i) {
    const int decimals = static_cast<int>(rng() % 10);
    const double scale = std::pow(10.0, decimals);
    double v;
    switch (i % 3) {
      case 0:  // anywhere, from 1e-12 to 1e9
        v = std::pow(10.0, -12.0 + 21.0 * static_cast<double>(rng() % 1000000) / 1e6);
        break;
      case 1:  // an exact tie when the binary allows it: (k + 1/2) / 10^d
        v = (static_cast<double>(rng() % 2000000) + 0.5) / scale;
        break;
      default:  // the neighbours of a tie
        v = std::nextafter((static_cast<double>(rng() % 2000000) + 0.5) / scale,
                           rng() % 2 ? 0.0 : 1e300);
    }
    if (rng() % 2) v = -v;
    taken += check(v, decimals);
  }
  EXPECT_GT(taken, 250000);
  for (const double v : {0.0, -0.0, 0.5, 1.5, 2.5, -2.5, 0.125, 999999999.5, -1e-300})
    EXPECT_TRUE(check(v, 0) && check(v, 2) && check(v, 6)) << v;
  for (const double v : {1e9, -2e9, 1e300, std::nan(""), HUGE_VAL})
    EXPECT_EQ(k5x::fixed_as_printf(got, v, 3), nullptr) << v;
  EXPECT_EQ(k5x::fixed_as_printf(got, 1e7, 9), nullptr);  // 10^16 units
}
