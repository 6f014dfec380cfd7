// Texts handed over by callers: the by-reference definition path (pointer and length, blank
// padded as fixed-length strings are, any length the caller claims up to the text's own, zero
// or negative included), and the context texts.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "k5x.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t pad = data[0] % 64;
  std::vector<char> text(reinterpret_cast<const char*>(data) + 2,
                         reinterpret_cast<const char*>(data) + size);
  text.insert(text.end(), pad, ' ');
  // Second byte: the length claimed, from -8 up to the whole text.
  const int whole = static_cast<int>(text.size());
  const int length = data[1] < 8 ? -static_cast<int>(data[1]) : (data[1] * whole) / 255;
  int status = 0;
  k5x_setsilentmode(1);
  KF5X_MACHINE_DEF(text.data(), length, &status);
  const std::string c_text(text.begin(), text.end());
  const double origin[3] = {1.0, 2.0, 3.0};
  k5x_ctx_setContext(c_text.c_str(), c_text.c_str(), c_text.c_str(), nullptr,
                     data[1] % 2 ? origin : nullptr);
  // The getters hand out the stored text itself: read, never freed by the caller.
  char* out = nullptr;
  if (k5x_ctx_getContext(&out) == 0 && out != nullptr) (void)out[0];
  return 0;
}
