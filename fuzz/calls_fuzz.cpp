// The whole C ABI driven by a byte program: each step picks a function and its arguments from
// raw doubles (NaN, infinities, +-1e308, denormals, -0.0, ordinary values or the input's own
// bits) and from counts and ids of every size and sign, on one of the embedded machines.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <unistd.h>
#include <vector>

#include "cpp/embedded.h"
#include "k5x.h"

namespace {

struct Input {
  const uint8_t* p;
  size_t n;
  uint8_t byte() {
    if (n == 0) return 0;
    --n;
    return *p++;
  }
  double number() {
    static const double kPalette[] = {0.0, -0.0, 1.0, -1.0, 0.5, 90.0, -180.0, 360.0, 1e-7,
                                      4.9e-324, 2.2e-308, 1e308, -1e308, 12345.678,
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN()};
    const uint8_t b = byte();
    if (b < 200) return kPalette[b % (sizeof kPalette / sizeof kPalette[0])];
    double raw = 0.0;
    uint8_t bytes[8];
    for (uint8_t& c : bytes) c = byte();
    std::memcpy(&raw, bytes, sizeof raw);
    return raw;
  }
  int integer() {
    static const int kPalette[] = {0, 1, -1, 2, 3, 4, 5, 6, 7, 9, -2, -3, -5, 100, 500, 5184,
                                   std::numeric_limits<int>::max(),
                                   std::numeric_limits<int>::min()};
    return kPalette[byte() % (sizeof kPalette / sizeof kPalette[0])];
  }
  void numbers(double* v, int count) {
    for (int i = 0; i < count; ++i) v[i] = number();
  }
};

// The embedded machines as files, written once: the C ABI loads from paths.
const std::vector<std::string>& machine_files() {
  static std::vector<std::string> files;
  if (files.empty()) {
    int count = 0;
    const k5x::EmbeddedMachine* all = k5x::embedded_machine_table(&count);
    for (int i = 0; i < count; ++i) {
      char path[] = "/tmp/k5x-fuzz-machine-XXXXXX";
      const int fd = mkstemp(path);
      if (fd < 0) continue;
      const size_t size = std::strlen(all[i].text);
      if (write(fd, all[i].text, size) != static_cast<ssize_t>(size)) {
        close(fd);
        continue;
      }
      close(fd);
      files.push_back(path);
    }
  }
  return files;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string>& files = machine_files();
  if (files.empty()) return 0;
  Input in{data, size};
  k5x_setsilentmode(1);
  k5x_machine_def(files[in.byte() % files.size()].c_str());
  double a[16], b[16], c[16];
  int flags[6], n = 0;
  double* table = nullptr;
  int* iflags = nullptr;
  uint32_t sum = 0;
  char* text = nullptr;
  // The enumeration and the three-rotary solver may take long on purpose-made travel and steps
  // (bounded, but a million discrete tests): a few per input keep the fuzzer fast.
  int slow = 0;
  for (int step = 0; step < 64 && in.n > 0; ++step) {
    in.numbers(a, 6);
    in.numbers(b, 6);
    const int i = in.integer(), j = in.integer();
    switch (in.byte() % 40) {
      case 0: k5x_ijk2abc(a, b, c); break;
      case 1: k5x_pts2xyz(a, b, c); break;
      case 2: k5x_xyz2pts(a, b, c); break;
      case 3: k5x_xyz2ijk(a, b, c); break;
      case 4: k5x_m2l(a, c); break;
      case 5: k5x_l2m(a, c); break;
      case 6: k5x_machine2tool(a, c); break;
      case 7: n = i; k5x_xyzabc(a, b, &n, &table); break;
      case 8: in.numbers(a, 16); k5x_set_piece(a); break;
      case 9: k5x_testcoursesXYZABC(a, flags); k5x_testcoursesABC(a, flags); break;
      case 10: k5x_axe_course(i, &c[0], &c[1]); break;
      case 11: k5x_axe_set_course_minimum(i, a[0]); break;
      case 12: k5x_axe_set_course_maximum(i, a[0]); break;
      case 13:
        k5x_axe_type(i); k5x_axe_typeex(i); k5x_axe_nom(i); k5x_axe_axe(i); k5x_axe_point(i);
        k5x_axe_color(i); k5x_axe_loi(i); k5x_axe_sens(i); k5x_axe_nlien(i);
        k5x_axe_previous(i);
        break;
      case 14: k5x_axe_ilien(i, j); k5x_axe_tlien(i, j); k5x_axe_slien(i, j); k5x_axe_collision(i, j); break;
      case 15: k5x_axe_fixe_set(i, j); k5x_axe_fixe_get(i); break;
      case 16: k5x_axe_outil(a); break;
      case 17: k5x_set_axe_increment(i, a[0]); k5x_get_axe_increment(i); break;
      case 18: k5x_set_increment_behaviour(i, a[0]); break;
      case 19: k5x_increment_compute(a, b, c); k5x_get_increment_machine(c); break;
      case 20: k5x_interpolation(a, b, a[0], c); break;
      case 21: n = i; k5x_interpolationtable(a, b, &n, &table); break;
      case 22: if (++slow <= 2) k5x_ex_getabc_3r(a, b, c, i); break;
      case 23: if (++slow <= 2) k5x_ex_getallabchcpossible(a, &n, &table, &iflags); break;
      case 24: k5x_ex_abchcpossible_free(); break;
      case 25: if (++slow <= 2) k5x_ex_getinit_ijk_2_abc_not_hc(a, c); break;
      case 26: k5x_set_mode(i); k5x_set_rtcp(j); break;
      case 27: k5x_set_tol(a[0]); k5x_set_tol_course(a[1]); break;
      case 28: k5x_set_outil(a[0]); break;
      case 29: k5x_util_eps_set(a[0]); break;
      case 30: k5x_machine_eval(a); break;
      case 31: k5x_axe_mat(i, j, c); break;
      case 32: k5x_ex_get_axis_matrix(a, c); break;
      case 33: k5x_abc2abc_loi(a, b, c); k5x_axe_val(i, a[0], a[1], &n); break;
      case 34: k5x_machine_checksum(i, &sum); break;
      case 35: k5x_toolchanger_position(c); k5x_initial_position(); break;
      case 36: k5x_machine_free(); break;
      case 37: k5x_ctx_setContext("c", "m", files[0].c_str(), "p", a); k5x_ctx_initContext(); break;
      case 38: k5x_ctx_getMachineData(&text); k5x_ctx_getOrigin(c); break;  // not the caller's to free
      default: k5x_abc_sol1(); k5x_abc_sol2(); k5x_increment_deviation_getmax(); break;
    }
  }
  // The next input starts from defaults, as a fresh process would.
  k5x_util_eps_set(1e-6);
  k5x_set_increment_behaviour(0, 0.005);
  return 0;
}
