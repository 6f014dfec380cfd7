#include "test_machines.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

#include "cli/embedded_machines.h"
#include "machine/loader.h"

namespace k5x_test {

namespace {

std::vector<std::string>& temp_files() {
  static std::vector<std::string> files;
  static const bool registered = [] {
    std::atexit([] {
      for (const std::string& f : temp_files()) unlink(f.c_str());
    });
    return true;
  }();
  (void)registered;
  return files;
}

}  // namespace

std::string write_temp_file(const std::string& text) {
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/k5x-test-XXXXXX";
  const int fd = mkstemp(&path[0]);
  if (fd < 0) std::abort();
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
  close(fd);
  temp_files().push_back(path);
  return path;
}

int load_text(k5x::State& st, const std::string& text) {
  return k5x::machine_def(st, write_temp_file(text).c_str());
}

std::string machine_text(const std::string& name) {
  const k5x_cli::EmbeddedMachine* m = k5x_cli::find_embedded_machine(name);
  if (m == nullptr) {
    std::fprintf(stderr, "no embedded machine named %s\n", name.c_str());
    std::abort();
  }
  return m->text;
}

}  // namespace k5x_test
