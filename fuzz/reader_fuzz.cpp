// The toolpath readers of k5x post on arbitrary bytes: lines of six numbers, and APT / CLSF
// records (continuations, MSYS frames, circles, every record kind).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "toolpath/apt_reader.h"
#include "toolpath/text_io.h"

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
  {
    std::FILE* in = fmemopen(copy.data(), size, "r");
    if (in == nullptr) return 0;
    k5x::AptOptions options;
    options.chord_tolerance = 0.05;
    options.longest_line = 4096;
    k5x::AptReader reader(in, options);
    k5x::ProgrammedMove move;
    k5x::AptEvent event;
    // Bounded: a hostile circle may ask for many chords, never for an endless run.
    for (long n = 0; n < 5000; ++n)
      if (reader.next(&move, &event) == k5x::AptReader::kEnd) break;
    std::fclose(in);
    k5x::looks_like_apt(copy.data(), size);
  }
  return 0;
}
