#include "cli/embedded_machines.h"

#include <string>

#include "cpp/embedded.h"

namespace k5x_cli {

const EmbeddedMachine* embedded_machines(int* count) { return k5x::embedded_machine_table(count); }

const EmbeddedMachine* find_embedded_machine(const std::string& name) {
  int count = 0;
  const EmbeddedMachine* all = embedded_machines(&count);
  for (int i = 0; i < count; ++i)
    if (name == all[i].name) return &all[i];
  return nullptr;
}

}  // namespace k5x_cli
