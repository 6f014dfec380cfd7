// Buffered line reading, buffered writing and number formatting for the toolpath path of
// k5x post: one buffer each, allocated once, so that the per-move path neither allocates nor
// makes a system call per line.
#ifndef K5X_TOOLPATH_TEXT_IO_H
#define K5X_TOOLPATH_TEXT_IO_H

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

namespace k5x {

class LineReader {
 public:
  enum Result { kLine, kEnd, kError, kTooLong };

  // The capacity a reader has unless told otherwise.
  static constexpr std::size_t kLongest = std::size_t(1) << 20;

  // Lines longer than capacity bytes are reported as kTooLong (and skipped).
  explicit LineReader(std::FILE* in, std::size_t capacity = kLongest);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Next line without its line ending (LF or CRLF); [*begin, *end) stays valid until the next
  // call. kError: the stream failed (errno is left as the read set it).
  Result next(const char** begin, const char** end);

 private:
  std::FILE* in_;
  char* buf_;
  std::size_t cap_;
  std::size_t start_ = 0, end_ = 0;
  bool eof_ = false;
  bool discarding_ = false;
};

class OutBuffer {
 public:
  explicit OutBuffer(std::FILE* out, std::size_t capacity = std::size_t(1) << 18);
  ~OutBuffer();
  OutBuffer(const OutBuffer&) = delete;
  OutBuffer& operator=(const OutBuffer&) = delete;

  // Makes room for n bytes (n must not exceed the capacity).
  void reserve(std::size_t n) {
    if (cap_ - len_ < n) flush();
  }
  void put(char c) {
    reserve(1);
    buf_[len_++] = c;
  }
  void put(const char* s, std::size_t n);
  void put(const char* s);
  // Fixed-point number with the given decimals; values that would print as -0 print as 0.
  void put_fixed(double v, int decimals);
  void put_int(long v);
  // Writes the buffer out; false once any write failed.
  bool flush();
  bool ok() const { return !failed_; }

 private:
  std::FILE* out_;
  char* buf_;
  std::size_t cap_;
  std::size_t len_ = 0;
  bool failed_ = false;
};

// printf's "%.*f" of v into out (at least 32 bytes), for |v| below 1e9 and decimals 0..9 while
// |v| * 10^decimals stays below 4e15: the rounding (to nearest, ties to even) is decided on the
// exact value of v * 10^decimals, as printf decides it. Returns the end of the text, or null
// outside that range, where a full conversion must do it.
char* fixed_as_printf(char* out, double v, int decimals);

// The value of [begin, end) when it is a plain decimal ("-12.345", "7", ".5"): an optional sign,
// at most 15 digits and at most one point, nothing else. The result is the correctly rounded
// value, the same as a full conversion gives (an exact integer divided by an exact power of
// ten); false, with *out untouched, for anything else, which a full conversion then reads.
bool parse_plain_decimal(const char* begin, const char* end, double* out);
// The same where end is followed by at least eight bytes that may be read, the first of them no
// digit, point or sign: the digits are then read eight at a time up to the end.
bool parse_plain_decimal_padded(const char* begin, const char* end, double* out);

// [begin, end) as it may be shown in a message: each control byte (a NUL, an escape, ...) as
// \xNN, so that nothing is cut short and nothing acts on the terminal.
std::string printable(const char* begin, const char* end);
inline std::string printable(const std::string& text) {
  return printable(text.data(), text.data() + text.size());
}
// A NUL-ended name the same way; empty for none.
inline std::string printable(const char* text) {
  return text != nullptr ? printable(text, text + std::strlen(text)) : std::string();
}

// Parses one toolpath line "X Y Z I J K" (fields separated by blanks or by commas with
// optional blanks around them). Returns 1 with the six values, 0 for a line to skip (blank, or
// starting with '#'), or -1 with a reason written into reason (at most reason_size bytes). A
// direction whose length is not above zero_length is malformed: no machine can follow it.
int parse_move_line(const char* begin, const char* end, double v[6], double zero_length,
                    char* reason, std::size_t reason_size);

}  // namespace k5x

#endif  // K5X_TOOLPATH_TEXT_IO_H
