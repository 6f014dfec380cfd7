// The machine definition reader on arbitrary bytes: from text, and now and then from a file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "geometry/load.h"
#include "machine/checksum.h"
#include "machine/machine_model.h"
#include "motion/increments.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  k5x::State st;
  st.silent = 1;
  if (k5x::machine_def_text(st, text) == 0) {
    // A machine that loads must answer: solve and checksum it once.
    const double dir[3] = {0.3, 0.2, 0.9}, prev[3] = {0.0, 0.0, 0.0};
    double abc[3];
    k5x::solve_direction(st, dir, prev, abc);
    uint32_t sum = 0;
    k5x::machine_checksum(st, 1, &sum);
  }
  if (size % 16 == 0) {
    char path[] = "/tmp/k5x-fuzz-XXXXXX";
    const int fd = mkstemp(path);
    if (fd >= 0) {
      const ssize_t written = write(fd, data, size);
      close(fd);
      if (written == static_cast<ssize_t>(size)) k5x::machine_def(st, path);
      unlink(path);
    }
  }
  return 0;
}
