/* The public header compiled as C, and a few entry points called through the shared library. */
#include "k5x.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;

#define CHECK(cond)                                                  \
  do {                                                               \
    if (!(cond)) {                                                   \
      fprintf(stderr, "%s:%d: FAILED: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                    \
    }                                                                \
  } while (0)

static const char kMachine[] =
    "nommachine = Demo Head\n"
    "coursemaximum = AXE_B, 110\n"
    "courseminimum = AXE_B, -110\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 300, Fork C\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 150, Head B\n"
    "outil = -Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, -500\n"
    "position = 0, 0, 0, 0, 0, 0\n";

int main(void) {
  char path[] = "/tmp/k5x-c-api-XXXXXX";
  int fd = mkstemp(path);
  if (fd < 0 || write(fd, kMachine, strlen(kMachine)) != (ssize_t)strlen(kMachine)) {
    fprintf(stderr, "cannot write %s\n", path);
    return 2;
  }
  close(fd);

  CHECK(k5x_name_machine() == NULL);
  CHECK(k5x_util_eps() == 1e-06);

  CHECK(k5x_machine_def(path) == 0);
  /* Blanks are removed from names. */
  CHECK(k5x_name_machine() != NULL && strcmp(k5x_name_machine(), "DemoHead") == 0);

  /* A direction the machine reaches at B 30, C 40, solved back to angles that reproduce it. */
  {
    const double origin[3] = {0.0, 0.0, 0.0}, pose[3] = {0.0, 30.0, 40.0}, prev[3] = {0, 0, 0};
    double dir[3], abc[3] = {0, 0, 0}, back[3];
    int i;
    k5x_set_outil(1.0);
    CHECK(k5x_xyz2ijk(origin, pose, dir) == 0);
    CHECK(k5x_ijk2abc(dir, prev, abc) == 0);
    CHECK(memcmp(abc, k5x_abc_sol1(), sizeof abc) == 0);
    k5x_xyz2ijk(origin, abc, back);
    for (i = 0; i < 3; ++i) CHECK(fabs(back[i] - dir[i]) < 1e-9);
  }

  /* A null path resets the machine and cannot be opened. */
  CHECK(k5x_machine_def(NULL) == 1);
  CHECK(k5x_name_machine() == NULL);
  CHECK(k5x_get_outil() == 0.0);

  unlink(path);
  if (failures != 0) {
    fprintf(stderr, "c_api_test: %d checks failed\n", failures);
    return 1;
  }
  printf("c_api_test: all checks passed\n");
  return 0;
}
