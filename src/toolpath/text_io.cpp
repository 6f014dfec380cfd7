#include "toolpath/text_io.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>

namespace k5x {

LineReader::LineReader(std::FILE* in, std::size_t capacity)
    : in_(in), buf_(new char[capacity < 16 ? 16 : capacity]), cap_(capacity < 16 ? 16 : capacity) {}

LineReader::~LineReader() { delete[] buf_; }

namespace {
constexpr std::size_t kReadPiece = std::size_t(1) << 16;
}  // namespace

LineReader::Result LineReader::next(const char** begin, const char** end) {
  for (;;) {
    char* base = buf_ + start_;
    char* nl = static_cast<char*>(std::memchr(base, '\n', end_ - start_));
    if (nl != nullptr) {
      start_ = static_cast<std::size_t>(nl - buf_) + 1;
      if (discarding_) {
        discarding_ = false;
        return kTooLong;
      }
      char* e = nl;
      if (e > base && e[-1] == '\r') --e;
      *begin = base;
      *end = e;
      return kLine;
    }
    if (eof_) {
      if (discarding_) {
        discarding_ = false;
        start_ = end_;
        return kTooLong;
      }
      if (start_ < end_) {
        char* e = buf_ + end_;
        if (e > base && e[-1] == '\r') --e;
        *begin = base;
        *end = e;
        start_ = end_;
        return kLine;
      }
      return kEnd;
    }
    if (start_ > 0) {
      std::memmove(buf_, buf_ + start_, end_ - start_);
      end_ -= start_;
      start_ = 0;
    }
    if (end_ == cap_) {
      // No line ending within the whole buffer: drop what we hold up to the next one.
      discarding_ = true;
      end_ = 0;
    }
    // Read in pieces that stay in cache while they are parsed; the whole buffer only bounds
    // the longest line.
    const std::size_t want = cap_ - end_ < kReadPiece ? cap_ - end_ : kReadPiece;
    const std::size_t got = std::fread(buf_ + end_, 1, want, in_);
    if (got == 0) {
      if (std::ferror(in_)) return kError;
      eof_ = true;
    }
    end_ += got;
  }
}

// At least one formatted number must fit.
OutBuffer::OutBuffer(std::FILE* out, std::size_t capacity)
    : out_(out),
      buf_(new char[capacity < 4096 ? 4096 : capacity]),
      cap_(capacity < 4096 ? 4096 : capacity) {}

OutBuffer::~OutBuffer() { delete[] buf_; }

bool OutBuffer::flush() {
  if (len_ > 0 && !failed_) {
    if (std::fwrite(buf_, 1, len_, out_) != len_) failed_ = true;
  }
  len_ = 0;
  return !failed_;
}

void OutBuffer::put(const char* s, std::size_t n) {
  while (n > 0) {
    if (len_ == cap_) flush();
    std::size_t k = cap_ - len_;
    if (k > n) k = n;
    std::memcpy(buf_ + len_, s, k);
    len_ += k;
    s += k;
    n -= k;
  }
}

void OutBuffer::put(const char* s) { put(s, std::strlen(s)); }

namespace {

const char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The last n digits of v (leading zeros included), written backwards to end at p.
__attribute__((always_inline)) inline void put_digits_backwards(char* p, std::uint32_t v,
                                                                int n) {
  for (; n >= 2; n -= 2) {
    const std::uint32_t r = v % 100;
    v /= 100;
    *--p = kPairs[2 * r + 1];
    *--p = kPairs[2 * r];
  }
  if (n == 1) *--p = static_cast<char>('0' + v % 10);
}

constexpr std::uint64_t power_of_ten(int d) { return d == 0 ? 1 : 10 * power_of_ten(d - 1); }

inline int digit_count(std::uint32_t v) {
  int n = 1;
  for (; v >= 100; v /= 100) n += 2;
  return v >= 10 ? n + 1 : n;
}

// u units of 10^-D as "integer.fraction" at p; the end of what was written. With D known the
// split is by a constant, and both halves fit 32 bits (u < 10^(9+D) + 1).
template <int D>
__attribute__((always_inline)) inline char* put_units(char* p, std::uint64_t u) {
  constexpr std::uint64_t kUnit = power_of_ten(D);
  const std::uint64_t whole = u / kUnit;
  const int n = digit_count(static_cast<std::uint32_t>(whole));
  p += n;
  put_digits_backwards(p, static_cast<std::uint32_t>(whole), n);
  if (D == 0) return p;
  *p++ = '.';
  p += D;
  put_digits_backwards(p, static_cast<std::uint32_t>(u - whole * kUnit), D);
  return p;
}

// u units of 10^-decimals (decimals 0..9), as put_units writes them. Inlined: where the decimals
// are a constant (the CSV's six), the switch goes.
__attribute__((always_inline)) inline char* put_units_of(char* p, std::uint64_t u, int decimals) {
  switch (decimals) {
    case 0: return put_units<0>(p, u);
    case 1: return put_units<1>(p, u);
    case 2: return put_units<2>(p, u);
    case 3: return put_units<3>(p, u);
    case 4: return put_units<4>(p, u);
    case 5: return put_units<5>(p, u);
    case 6: return put_units<6>(p, u);
    case 7: return put_units<7>(p, u);
    case 8: return put_units<8>(p, u);
    default: return put_units<9>(p, u);
  }
}

const double kPowersOfTen[] = {1.0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

// a = hi + lo with hi holding the upper 26 bits of the significand (Veltkamp), so that products
// of halves are exact.
inline void split(double a, double* hi, double* lo) {
  const double c = 134217729.0 * a;  // 2^27 + 1
  *hi = c - (c - a);
  *lo = a - *hi;
}

}  // namespace

char* fixed_as_printf(char* out, double v, int decimals) {
  if (decimals < 0 || decimals > 9) return nullptr;
  const double a = std::fabs(v);
  if (!(a < 1e9)) return nullptr;  // also NaN
  const double scale = kPowersOfTen[decimals];
  const double x = a * scale;
  if (!(x < 4e15)) return nullptr;
  std::uint64_t q = 0;
  // Below one half, so is the exact product (rounding keeps order): it rounds to 0.
  if (x >= 0.5) {
    // a * scale = x + e exactly (Dekker's product; nothing here overflows or underflows).
    double ah, al, sh, sl;
    split(a, &ah, &al);
    split(scale, &sh, &sl);
    const double e = ((ah * sh - x) + ah * sl + al * sh) + al * sl;
    const double whole = std::floor(x);
    // x - whole is exact below 2^52; so is the half subtracted where it matters (a fraction
    // of a quarter or more; below, |e| is far smaller than what is left), and a sum has the
    // sign of its exact value.
    const double above_half = ((x - whole) - 0.5) + e;
    q = static_cast<std::uint64_t>(whole);
    if (above_half > 0.0 || (above_half == 0.0 && (q & 1) != 0)) ++q;
  }
  char* p = out;
  if (std::signbit(v)) *p++ = '-';
  return put_units_of(p, q, decimals);
}

void OutBuffer::put_fixed(double v, int decimals) {
  // Fixed notation of a double needs at most 309 digits before the point.
  reserve(400);
  if (!std::isfinite(v)) {
    put(std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf"));
    return;
  }
  static const double kHalfUnit[] = {0.5, 0.05, 0.005, 5e-4, 5e-5, 5e-6, 5e-7, 5e-8, 5e-9, 5e-10};
  if (decimals < 0) decimals = 0;
  if (decimals > 9) decimals = 9;
  if (std::fabs(v) < kHalfUnit[decimals]) v = 0.0;
  // Fast path for the values a machine produces: scale to an integer of units of the last
  // decimal and print its digits; the shortest-exact conversion below is several times slower.
  if (std::fabs(v) < 1e9) {
    // Rounded half away from zero, as llround does, without the call: below 1e18 the
    // truncation fits and the fraction it leaves is exact.
    const double x = v * kPowersOfTen[decimals];
    long long q = static_cast<long long>(x);
    const double fraction = x - static_cast<double>(q);
    if (fraction >= 0.5)
      ++q;
    else if (fraction <= -0.5)
      --q;
    const std::uint64_t u = q < 0 ? static_cast<std::uint64_t>(-q) : static_cast<std::uint64_t>(q);
    char* p = buf_ + len_;
    if (q < 0) *p++ = '-';
    len_ = static_cast<std::size_t>(put_units_of(p, u, decimals) - buf_);
    return;
  }
  const auto r = std::to_chars(buf_ + len_, buf_ + cap_, v, std::chars_format::fixed, decimals);
  if (r.ec == std::errc()) {
    len_ = static_cast<std::size_t>(r.ptr - buf_);
  } else {
    put("nan");
  }
}

void OutBuffer::put_int(long v) {
  reserve(24);
  const auto r = std::to_chars(buf_ + len_, buf_ + cap_, v);
  len_ = static_cast<std::size_t>(r.ptr - buf_);
}

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r'; }

void set_reason(char* reason, std::size_t size, const char* what, const char* tok_b,
                const char* tok_e) {
  if (size == 0) return;
  if (tok_b == nullptr) {
    std::snprintf(reason, size, "%s", what);
    return;
  }
  const std::string shown = printable(tok_b, tok_e - tok_b > 40 ? tok_b + 40 : tok_e);
  std::snprintf(reason, size, "%s '%s%s'", what, shown.c_str(), tok_e - tok_b > 40 ? "..." : "");
}

}  // namespace

namespace {

// The digits at p, up to 8 and not past end, as a number; *count is how many there were. Eight
// bytes at a time where eight are there: toolpath numbers are mostly runs of 4 to 8 digits.
inline std::uint64_t take_digits(const char*& p, const char* end, int* count) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  // The first character in the lowest byte: little-endian machines only.
  if (end - p >= 8) {
    std::uint64_t chunk;
    std::memcpy(&chunk, p, 8);
    // A byte is a digit when it is '0'..'9', i.e. when its xor with '0' is at most 9; the high
    // bit of each byte of stop marks the others (masked so no carry crosses a byte).
    const std::uint64_t x = chunk ^ 0x3030303030303030ULL;
    const std::uint64_t stop =
        (((x & 0x7F7F7F7F7F7F7F7FULL) + 0x7676767676767676ULL) | x) & 0x8080808080808080ULL;
    const int n = stop == 0 ? 8 : __builtin_ctzll(stop) >> 3;
    *count = n;
    if (n == 0) return 0;
    p += n;
    // The n digits to the top bytes, zeros before them; then pairs, fours and eights are
    // combined, the lowest-addressed byte being the most significant digit.
    std::uint64_t v = x << (8 * (8 - n));
    v = (v * 10) + (v >> 8);
    v = (((v & 0x000000FF000000FFULL) * (100 + (1000000ULL << 32))) +
         (((v >> 16) & 0x000000FF000000FFULL) * (1 + (10000ULL << 32)))) >>
        32;
    return v;
  }
#endif
  std::uint64_t v = 0;
  const char* from = p;
  for (unsigned d; p < end && p - from < 8 && (d = static_cast<unsigned>(*p - '0')) < 10; ++p)
    v = v * 10 + d;
  *count = static_cast<int>(p - from);
  return v;
}

// The plain decimal at the start of [p, end): where it stops, or null when there is none or it
// has more than 15 digits. *out is set only on success. Inlined, so that a line's six fields share
// the masks and tables.
__attribute__((always_inline)) inline const char* scan_plain_decimal(const char* p,
                                                                     const char* end,
                                                                     double* out) {
  static const double kPow10[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  static const std::uint64_t kScale[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000,
                                         100000000};
  const bool negative = p < end && *p == '-';
  if (p < end && (*p == '-' || *p == '+')) ++p;
  std::uint64_t mantissa = 0;
  int digits = 0, decimals = 0, n = 0;
  // Up to 15 digits the mantissa is exact (and cannot have wrapped); a longer run stops at 16.
  // After a full read of eight, one byte says whether another is needed: the fraction of a
  // unit vector as CAM writes it has eight digits exactly.
  auto more = [&] {
    return n == 8 && digits <= 15 && p < end && static_cast<unsigned>(*p - '0') < 10;
  };
  do {
    const std::uint64_t part = take_digits(p, end, &n);
    mantissa = mantissa * kScale[n] + part;
    digits += n;
  } while (more());
  if (p < end && *p == '.') {
    ++p;
    do {
      const std::uint64_t part = take_digits(p, end, &n);
      mantissa = mantissa * kScale[n] + part;
      digits += n;
      decimals += n;
    } while (more());
  }
  if (digits == 0 || digits > 15) return nullptr;
  // Both operands are exact (below 2^53 and 10^22), so the one division rounds correctly.
  const double v = static_cast<double>(mantissa) / kPow10[decimals];
  *out = negative ? -v : v;
  return p;
}

}  // namespace

std::string printable(const char* begin, const char* end) {
  std::string out;
  for (const char* p = begin; p < end; ++p) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c >= 0x20 && c != 0x7f) {
      out += *p;
      continue;
    }
    char hex[5];
    std::snprintf(hex, sizeof hex, "\\x%02x", c);
    out += hex;
  }
  return out;
}

bool parse_plain_decimal(const char* begin, const char* end, double* out) {
  double v = 0.0;
  if (scan_plain_decimal(begin, end, &v) != end) return false;
  *out = v;
  return true;
}

bool parse_plain_decimal_padded(const char* begin, const char* end, double* out) {
  double v = 0.0;
  // The byte at end stops the scan as end itself would, and the eight after it may be read.
  if (scan_plain_decimal(begin, end + 8, &v) != end) return false;
  *out = v;
  return true;
}

int parse_move_line(const char* b, const char* e, double v[6], double zero_length, char* reason,
                    std::size_t reason_size) {
  const char* p = b;
  while (p < e && is_blank(*p)) ++p;
  if (p == e || *p == '#') return 0;
  int n = 0;
  for (;;) {
    // p is at the start of a field (blanks skipped).
    if (p == e || *p == ',') {
      set_reason(reason, reason_size, "empty field", nullptr, nullptr);
      return -1;
    }
    const char* tok = p;
    double x = 0.0;
    // Most fields are plain decimals, read in the one pass that finds where they end; the
    // others go to the full conversion.
    const char* q = n < 6 ? scan_plain_decimal(p, e, &x) : nullptr;
    if (q != nullptr && (q == e || is_blank(*q) || *q == ',')) {
      p = q;
    } else {
      while (p < e && !is_blank(*p) && *p != ',') ++p;
      const char* tok_end = p;
      if (n == 6) {
        set_reason(reason, reason_size,
                   "more than 6 numbers (expected X Y Z I J K), extra field", tok, tok_end);
        return -1;
      }
      const char* num = tok;
      // from_chars takes no '+'; one is allowed, but not before another sign.
      if (num < tok_end && *num == '+') {
        ++num;
        if (num < tok_end && (*num == '-' || *num == '+')) num = tok_end;
      }
      const auto r = std::from_chars(num, tok_end, x);
      if (num == tok_end || r.ptr != tok_end || r.ec == std::errc::invalid_argument) {
        set_reason(reason, reason_size, "not a number:", tok, tok_end);
        return -1;
      }
      if (r.ec == std::errc::result_out_of_range || !std::isfinite(x)) {
        set_reason(reason, reason_size, "number out of range:", tok, tok_end);
        return -1;
      }
    }
    v[n++] = x;
    while (p < e && is_blank(*p)) ++p;
    if (p == e) break;
    if (*p == ',') {
      ++p;
      while (p < e && is_blank(*p)) ++p;
      if (p == e) {
        set_reason(reason, reason_size, "empty field after the last comma", nullptr, nullptr);
        return -1;
      }
    }
  }
  if (n != 6) {
    char what[64];
    std::snprintf(what, sizeof what, "expected 6 numbers (X Y Z I J K), found %d", n);
    set_reason(reason, reason_size, what, nullptr, nullptr);
    return -1;
  }
  double len = std::sqrt(v[3] * v[3] + v[4] * v[4] + v[5] * v[5]);
  if (!std::isfinite(len)) {
    // The squares overflow (so would the library's normalisation): scale the direction down.
    const double big = std::fmax(std::fabs(v[3]), std::fmax(std::fabs(v[4]), std::fabs(v[5])));
    for (int k = 3; k < 6; ++k) v[k] /= big;
    len = std::sqrt(v[3] * v[3] + v[4] * v[4] + v[5] * v[5]);
  }
  if (!(len > zero_length)) {
    set_reason(reason, reason_size, "zero tool direction (I J K)", nullptr, nullptr);
    return -1;
  }
  return 1;
}

}  // namespace k5x
