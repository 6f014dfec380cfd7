#include "api/context.h"

#include <cstdlib>
#include <cstring>

#include "geometry/load.h"

namespace k5x {

namespace {

// Private copy with the C allocator, so that ctx_free can release it; null when the text is null
// or the allocation fails (the text then counts as not stored).
char* copy_text(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(std::malloc(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

int hand_out(char* stored, char** out, int missing) {
  if (stored == nullptr || out == nullptr) return missing;
  *out = stored;
  return 0;
}

}  // namespace

void ctx_free(char** p) {
  if (p == nullptr) return;
  std::free(*p);
  *p = nullptr;
}

int ctx_set(State& st, const char* context, const char* machine, const char* machine_data,
            const char* position, const double origin[3]) {
  // Copy before releasing: a caller may hand back the very pointers a getter gave out.
  char* copies[4] = {copy_text(context), copy_text(machine), copy_text(machine_data),
                     copy_text(position)};
  Context& c = st.ctx;
  char** stored[4] = {&c.context, &c.machine, &c.machine_data, &c.position};
  for (int i = 0; i < 4; ++i) {
    ctx_free(stored[i]);
    *stored[i] = copies[i];
  }
  if (origin != nullptr)
    for (int i = 0; i < 3; ++i) c.origin[i] = origin[i];
  return ctx_init(st);
}

int ctx_init(State& st) {
  if (st.ctx.machine_data == nullptr) return -103;
  const double tool_length = st.machine.tool_length;
  release_tables(st);
  int code;
  try {
    code = machine_def(st, st.ctx.machine_data);
  } catch (...) {
    code = 1;
  }
  // The application's tool survives a reload, whatever the file says and even when it failed.
  st.machine.tool_length = tool_length < 0.001 ? 1.0 : tool_length;
  return code;
}

int ctx_get_context(const State& st, char** out) { return hand_out(st.ctx.context, out, -104); }
int ctx_get_machine(const State& st, char** out) { return hand_out(st.ctx.machine, out, -105); }
int ctx_get_machine_data(const State& st, char** out) {
  return hand_out(st.ctx.machine_data, out, -106);
}
int ctx_get_position(const State& st, char** out) { return hand_out(st.ctx.position, out, -107); }

int ctx_get_origin(const State& st, double out[3]) {
  if (out == nullptr) return -108;
  for (int i = 0; i < 3; ++i) out[i] = st.ctx.origin[i];
  return 0;
}

void ctx_clear(State& st) {
  ctx_free(&st.ctx.context);
  ctx_free(&st.ctx.machine);
  ctx_free(&st.ctx.machine_data);
  ctx_free(&st.ctx.position);
}

}  // namespace k5x
