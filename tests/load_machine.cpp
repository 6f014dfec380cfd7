#include "load_machine.h"

#include <cstdlib>
#include <unistd.h>

#include "cli/embedded_machines.h"
#include "k5x.h"

namespace k5x_test {

int load_machine_c_api(const std::string& name_or_path) {
  const k5x_cli::EmbeddedMachine* m = k5x_cli::find_embedded_machine(name_or_path);
  if (m == nullptr) return k5x_machine_def(name_or_path.c_str());
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/k5x-machine-XXXXXX";
  const int fd = mkstemp(&path[0]);
  if (fd < 0) return 1;
  const std::string text = m->text;
  const ssize_t written = write(fd, text.data(), text.size());
  close(fd);
  const int code = written == static_cast<ssize_t>(text.size()) ? k5x_machine_def(path.c_str()) : 1;
  unlink(path.c_str());
  return code;
}

}  // namespace k5x_test
