// Checksum of the loaded machine: a signed-byte variant of Adler-32 over a little-endian stream.
#ifndef K5X_MACHINE_CHECKSUM_H
#define K5X_MACHINE_CHECKSUM_H

#include <cstddef>
#include <cstdint>

#include "machine/machine_model.h"

namespace k5x {

// Adler-32 running sum with each byte taken as a signed value; a null data pointer gives 1.
uint32_t checksum_update(uint32_t running, const unsigned char* data, std::size_t length);

// Stream of little-endian values staged in 512 bytes; flushes before a value that would not fit.
class ChecksumStream {
 public:
  // swap_bytes reverses every value before appending it (big-endian hosts; forced in tests).
  ChecksumStream(uint32_t start, bool swap_bytes);
  void put_int(int32_t v);
  void put_double(double v);
  // Feeds what is staged and returns the running value.
  uint32_t finish();

 private:
  void put_bytes(const unsigned char* bytes, std::size_t size);
  uint32_t running_;
  bool swap_;
  unsigned char buffer_[512];
  std::size_t fill_ = 0;
};

// True when the host stores the "K5XL" constant with its bytes in that order.
bool host_is_little_endian();

// Modes 1, 2, 3: computes, stores as last checksum, writes *checksum and returns 1. Others: 0.
int machine_checksum(State& st, int mode, uint32_t* checksum);

}  // namespace k5x

#endif  // K5X_MACHINE_CHECKSUM_H
