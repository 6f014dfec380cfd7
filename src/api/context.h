// Context store: the caller's texts and origin, and reloading from the stored definition path.
#ifndef K5X_API_CONTEXT_H
#define K5X_API_CONTEXT_H

#include "machine/machine_model.h"

namespace k5x {

void ctx_free(char** p);
int ctx_set(State& st, const char* context, const char* machine, const char* machine_data,
            const char* position, const double origin[3]);
int ctx_init(State& st);
int ctx_get_context(const State& st, char** out);
int ctx_get_machine(const State& st, char** out);
int ctx_get_machine_data(const State& st, char** out);
int ctx_get_position(const State& st, char** out);
int ctx_get_origin(const State& st, double out[3]);
// Releases the four texts (end of process or of a test's state).
void ctx_clear(State& st);

}  // namespace k5x

#endif  // K5X_API_CONTEXT_H
