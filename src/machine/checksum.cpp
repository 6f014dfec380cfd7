#include "machine/checksum.h"

namespace k5x {

uint32_t checksum_update(uint32_t, const unsigned char*, std::size_t) { return 1; }
ChecksumStream::ChecksumStream(uint32_t start, bool swap_bytes) : running_(start), swap_(swap_bytes) {}
void ChecksumStream::put_int(int32_t) {}
void ChecksumStream::put_double(double) {}
uint32_t ChecksumStream::finish() { return running_; }
void ChecksumStream::put_bytes(const unsigned char*, std::size_t) {}
bool host_is_little_endian() { return true; }
int machine_checksum(State&, int, uint32_t* checksum) { *checksum = 0; return 0; }

}  // namespace k5x
