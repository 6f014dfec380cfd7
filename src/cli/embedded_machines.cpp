#include "cli/embedded_machines.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "cpp/embedded.h"
#include "k5x.h"

namespace k5x_cli {


const EmbeddedMachine* embedded_machines(int* count) { return k5x::embedded_machine_table(count); }

const EmbeddedMachine* find_embedded_machine(const std::string& name) {
  int count = 0;
  const EmbeddedMachine* all = embedded_machines(&count);
  for (int i = 0; i < count; ++i)
    if (name == all[i].name) return &all[i];
  return nullptr;
}

int load_machine_arg(const std::string& machine_arg, std::string* label) {
  return load_machine_arg(machine_arg, label, [](const char* path) { return k5x_machine_def(path); });
}

int load_machine_arg(const std::string& machine_arg, std::string* label,
                     const std::function<int(const char*)>& load) {
  int count = 0;
  const EmbeddedMachine* m =
      machine_arg.empty() ? embedded_machines(&count) : find_embedded_machine(machine_arg);
  if (m == nullptr) {
    if (label) *label = machine_arg;
    return load(machine_arg.c_str());
  }
  if (label) *label = std::string("embedded machine ") + m->name;
  // The library reads files only: hand it the text through a private temporary file.
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/k5x-machine-XXXXXX";
  const int fd = mkstemp(&path[0]);
  if (fd < 0) return 1;
  const std::string text = m->text;
  const ssize_t written = write(fd, text.data(), text.size());
  close(fd);
  const int code = written == static_cast<ssize_t>(text.size()) ? load(path.c_str()) : 1;
  unlink(path.c_str());
  return code;
}

}  // namespace k5x_cli
