#include "test_machines.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

#include "cli/embedded_machines.h"
#include "geometry/chain.h"
#include "kernel/kernel.h"
#include "geometry/load.h"

#include <cmath>

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

void chain_tool_direction(k5x::State& st, const double abc[3], double dir[3]) {
  const double q[6] = {0.0, 0.0, 0.0, abc[0], abc[1], abc[2]};
  k5x::evaluate_chain(st, q);
  const k5x::AxisRecord& tool = st.machine.records[st.machine.tool];
  const k5x::AxisRecord& wp = st.machine.records[st.machine.workpiece];
  const double z[3] = {tool.frame[2], tool.frame[5], tool.frame[8]};
  for (int i = 0; i < 3; ++i)
    dir[i] = wp.frame[i] * z[0] + wp.frame[3 + i] * z[1] + wp.frame[6 + i] * z[2];
}

double angle_between_deg(const double a[3], const double b[3]) {
  double c[3];
  k5x::vcross(a, b, c);
  return std::atan2(k5x::vnorm(c), k5x::vdot(a, b)) * 180.0 / k5x::kPi;
}

bool within_rotary_travel(const k5x::State& st, const double abc[3]) {
  for (int i = 0; i < 3; ++i)
    if (abc[i] < st.machine.travel_min[3 + i] - st.machine.travel_tol ||
        abc[i] > st.machine.travel_max[3 + i] + st.machine.travel_tol)
      return false;
  return true;
}

void expect_values(const double* got, const std::vector<double>& want, double tol) {
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "value " << i;
}

}  // namespace k5x_test
