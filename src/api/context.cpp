#include "api/context.h"

namespace k5x {

void ctx_free(char** p) {}
int ctx_set(State& st, const char* context, const char* machine, const char* machine_data, const char* position, const double origin[3]) { return {};}
int ctx_init(State& st) { return {};}
int ctx_get_context(const State& st, char** out) { return {};}
int ctx_get_machine(const State& st, char** out) { return {};}
int ctx_get_machine_data(const State& st, char** out) { return {};}
int ctx_get_position(const State& st, char** out) { return {};}
int ctx_get_origin(const State& st, double out[3]) { return {};}
void ctx_clear(State& st) {}

}  // namespace k5x
