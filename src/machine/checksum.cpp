#include "machine/checksum.h"

#include <cstring>

#include "kernel/kernel.h"

namespace k5x {

namespace {

constexpr uint32_t kModulus = 65521;
// Largest n with 255n(n+1)/2 + (n+1)(65521-1) below 2^32, as in Adler-32; the signed bytes can
// wrap the sums below zero inside a block, so the block ends are part of the result.
constexpr std::size_t kBlock = 5552;
// Little-endian bytes of this constant spell "K5XL".
constexpr uint32_t kByteOrderMark = 0x4C58354Bu;

// Columns u, w, d of a tool link, built from the tool's direction alone so that the hash does not
// depend on how the link's stored rotation was derived.
void tool_link_frame(const double d[3], double eps, double m[9]) {
  const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0};
  double u[3], w[3];
  vcross(d, x, u);
  if (vnormalize(u, eps) != 0) {
    vcross(d, y, u);
    vnormalize(u, eps);
  }
  vcross(d, u, w);
  for (int r = 0; r < 3; ++r) {
    m[3 * r] = u[r];
    m[3 * r + 1] = w[r];
    m[3 * r + 2] = d[r];
  }
}

void put_vector(ChecksumStream& s, const double* v, int n, double weight) {
  for (int i = 0; i < n; ++i) s.put_double(v[i] * weight);
}

}  // namespace

uint32_t checksum_update(uint32_t running, const unsigned char* data, std::size_t length) {
  if (data == nullptr) return 1;
  uint32_t a = running & 0xFFFFu;
  uint32_t b = running >> 16;
  while (length > 0) {
    const std::size_t n = length < kBlock ? length : kBlock;
    for (std::size_t i = 0; i < n; ++i) {
      // Bytes count as signed: 0x80..0xFF subtract, which plain Adler-32 never does.
      a += static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(data[i])));
      b += a;
    }
    a %= kModulus;
    b %= kModulus;
    data += n;
    length -= n;
  }
  return (b << 16) | a;
}

ChecksumStream::ChecksumStream(uint32_t start, bool swap_bytes)
    : running_(start), swap_(swap_bytes) {}

void ChecksumStream::put_int(int32_t v) {
  unsigned char bytes[sizeof v];
  std::memcpy(bytes, &v, sizeof v);
  put_bytes(bytes, sizeof v);
}

void ChecksumStream::put_double(double v) {
  unsigned char bytes[sizeof v];
  std::memcpy(bytes, &v, sizeof v);
  put_bytes(bytes, sizeof v);
}

uint32_t ChecksumStream::finish() {
  running_ = checksum_update(running_, buffer_, fill_);
  fill_ = 0;
  return running_;
}

void ChecksumStream::put_bytes(const unsigned char* bytes, std::size_t size) {
  // A value is never split across two feeds.
  if (fill_ + size > sizeof buffer_) {
    running_ = checksum_update(running_, buffer_, fill_);
    fill_ = 0;
  }
  for (std::size_t i = 0; i < size; ++i) buffer_[fill_ + i] = bytes[swap_ ? size - 1 - i : i];
  fill_ += size;
}

bool host_is_little_endian() {
  const uint32_t mark = kByteOrderMark;
  char text[sizeof mark];
  std::memcpy(text, &mark, sizeof mark);
  return std::memcmp(text, "K5XL", sizeof text) == 0;
}

int machine_checksum(State& st, int mode, uint32_t* checksum) {
  if (checksum != nullptr) *checksum = 0;
  if (mode < 1 || mode > 3) return 0;
  const Model& m = st.machine;
  uint32_t h = checksum_update(0, nullptr, 0);
  const void* end = std::memchr(m.name, '\0', sizeof m.name);
  const std::size_t name_length =
      end == nullptr ? sizeof m.name : static_cast<std::size_t>(static_cast<const char*>(end) - m.name);
  h = checksum_update(h, reinterpret_cast<const unsigned char*>(m.name), name_length);

  ChecksumStream s(h, !host_is_little_endian());
  s.put_int(m.mode);
  s.put_int(m.record_count);
  const bool as_loaded = mode == 3;
  for (int t = kIdTool; t <= kIdC; ++t) {
    const int index = record_index_by_id(st, t);
    const AxisRecord* r = index < 0 ? nullptr : &m.records[index];
    // Compared by index: with no workpiece loaded, an absent record counts as the workpiece too.
    if (as_loaded && index == m.workpiece) r = &m.saved_workpiece;
    if (r == nullptr) continue;
    s.put_int(t);
    s.put_int(r->kind);
    s.put_int(r->axis);
    s.put_double(r->offset);
    // Weighted by the identifier, so that equal directions on different records differ.
    put_vector(s, r->direction, 3, static_cast<double>(t));
    put_vector(s, r->direction2, 3, static_cast<double>(t));
    put_vector(s, r->point, 3, 1.0);
    s.put_int(r->previous);
    for (int flag : r->collision) s.put_int(flag);
    for (int k = 0; k < r->link_count && k < kMaxLinks; ++k) {
      const Link* l = &r->links[k];
      if (as_loaded && l->child == m.workpiece) l = &m.saved_link;
      const bool child_known = l->child >= 0 && l->child < kMaxRecords;
      const AxisRecord* child = child_known ? &m.records[l->child] : nullptr;
      s.put_int(l->child);
      s.put_int(child != nullptr ? child->kind : 0);
      put_vector(s, l->translation, 3, 1.0);
      if (child != nullptr && child->kind == kKindTool) {
        double frame[9];
        tool_link_frame(child->direction, st.eps, frame);
        put_vector(s, frame, 9, 1.0);
      } else {
        put_vector(s, l->rotation, 9, 1.0);
      }
    }
  }
  h = s.finish();
  st.machine.last_checksum = h;
  if (checksum != nullptr) *checksum = h;
  return 1;
}

}  // namespace k5x
