// The toolpath readers of k5x post on arbitrary bytes: lines of six numbers, and APT / CLSF
// records (continuations, MSYS frames, circles, every record kind).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "toolpath/apt_reader.h"
#include "toolpath/text_io.h"

namespace {

constexpr std::size_t kLongest = 4096;

// Each line that is a GOTO record read ahead, from a buffer of the line's own size so that a
// read past its end is caught.
class ReadAhead final : public k5x::AptLines {
 public:
  explicit ReadAhead(std::FILE* in) : reader_(in, kLongest) {}
  k5x::LineReader::Result next(const char** b, const char** e, const double** numbers,
                               int* count) override {
    const k5x::LineReader::Result r = reader_.next(b, e);
    const std::vector<char> line(*b, *e);
    *count = r == k5x::LineReader::kLine
                 ? k5x::read_goto_line(line.data(), line.data() + line.size(), values_)
                 : 0;
    *numbers = values_;
    return r;
  }

 private:
  k5x::LineReader reader_;
  double values_[6];
};

// What the APT reader makes of the text: every move's bits, event and error, in order.
std::string apt_transcript(char* text, std::size_t size, bool ahead) {
  std::string out;
  std::FILE* in = fmemopen(text, size, "r");
  if (in == nullptr) return out;
  k5x::AptOptions options;
  options.chord_tolerance = 0.05;
  options.longest_line = kLongest;
  k5x::AptReader reader(in, options);
  ReadAhead lines(in);
  if (ahead) reader.read_lines_from(&lines);
  k5x::ProgrammedMove move;
  k5x::AptEvent event;
  // Bounded: a hostile circle may ask for many chords, never for an endless run.
  for (long n = 0; n < 5000; ++n) {
    const k5x::AptReader::Result r = reader.next(&move, &event);
    if (r == k5x::AptReader::kEnd) break;
    out += std::to_string(r) + ' ' + std::to_string(reader.line()) + ' ';
    if (r == k5x::AptReader::kMove) {
      const double bits[] = {move.point[0], move.point[1], move.point[2], move.axis[0],
                             move.axis[1],  move.axis[2],  move.feed,     move.rapid ? 1.0 : 0.0};
      out.append(reinterpret_cast<const char*>(bits), sizeof bits);
    }
    if (r == k5x::AptReader::kEvent) out += std::to_string(event.kind) + event.text;
    if (r == k5x::AptReader::kError) out += reader.message();
    out += '\n';
  }
  std::fclose(in);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<char> copy(reinterpret_cast<const char*>(data), reinterpret_cast<const char*>(data) + size);
  copy.push_back('\0');
  {
    std::FILE* in = fmemopen(copy.data(), size, "r");
    if (in == nullptr) return 0;
    k5x::LineReader reader(in, 4096);
    const char* b = nullptr;
    const char* e = nullptr;
    char reason[160];
    double v[6];
    for (k5x::LineReader::Result r; (r = reader.next(&b, &e)) != k5x::LineReader::kEnd &&
                                    r != k5x::LineReader::kError;)
      if (r == k5x::LineReader::kLine) {
        // In a buffer of the line's own size, so that a read past its end is caught.
        const std::vector<char> line(b, e);
        k5x::parse_move_line(line.data(), line.data() + line.size(), v, 1e-6, reason,
                             sizeof reason);
      }
    std::fclose(in);
  }
  // From the stream, and with the lines read ahead as on two threads: the same records.
  if (apt_transcript(copy.data(), size, false) != apt_transcript(copy.data(), size, true))
    __builtin_trap();
  k5x::looks_like_apt(copy.data(), size);
  return 0;
}
