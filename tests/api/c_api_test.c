// The public header compiled as C, and entry points called through the shared library: the
// single-precision entries of each shape give the double answers, narrowed.
#include "k5x.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;
#define CHECK(cond)                                                                           \
  ((cond) ? (void)0                                                                           \
          : (void)(fprintf(stderr, "%s:%d: FAILED: %s\n", __FILE__, __LINE__, #cond), ++failures))

static const char kMachine[] =
    "nommachine = Demo Head\ncourseminimum = AXE_B, -110\nbati = Z\naxe = AXE_X, X\n"
    "axe = AXE_Y, Y\naxe = AXE_Z, Z\nrotation = AXE_C, Z, 0, 1, 0, 0, 300\n"
    "rotation = AXE_B, Y, 0, 1, 0, 0, 150\noutil = -Z\nlien = AXE_BATI\npiece = X, Y, 0, 0, -500\n";

typedef int (*Kf6)(const float *, float *);
typedef int (*K6)(const double *, double *);
typedef int (*Kf3)(const float *, const float *, float *, int *);
typedef int (*K3)(const double *, const double *, double *);
static const Kf6 kf6[3] = {KF5X_M2L, KF5X_L2M, KF5X_MACHINE2TOOL};
static const K6 k6[3] = {k5x_m2l, k5x_l2m, k5x_machine2tool};
static const Kf3 kf3[3] = {KF5X_XYZ2PTS, KF5X_XYZ2IJK, KF5X_PTS2XYZ};
static const K3 k3[3] = {k5x_xyz2pts, k5x_xyz2ijk, k5x_pts2xyz};

int main(void) {
  char path[] = "/tmp/k5x-c-api-XXXXXX";
  const float m_f[6] = {10, 20, 30, 0, -120, 40}, xyz_f[3] = {100, -50, 25};
  const double m_d[6] = {10, 20, 30, 0, -120, 40}, xyz_d[3] = {100, -50, 25};
  double h_d[16];
  float h_f[16], tol;
  int i, j, status, flags[6], tool = -2, frame = 0, fd = mkstemp(path);
  if (fd < 0 || write(fd, kMachine, strlen(kMachine)) != (ssize_t)strlen(kMachine)) return 2;
  close(fd);
  CHECK(k5x_machine_def(path) == 0);
  unlink(path);
  k5x_set_outil(1.0);
  // Each converter against the double function it must forward to: with rtcp 1 and a tool
  // length these all give different answers, so a crossed wire shows.
  for (j = 0; j < 3; ++j) {
    double l_d[6] = {0}, p_d[3] = {0};
    float l_f[6] = {0}, p_f[3] = {0};
    CHECK(kf6[j](m_f, l_f) == k6[j](m_d, l_d));
    CHECK(kf3[j](xyz_f, m_f + 3, p_f, &status) == k3[j](xyz_d, m_d + 3, p_d));
    for (i = 0; i < 6; ++i) CHECK(l_f[i] == (float)l_d[i] && (i > 2 || p_f[i] == (float)p_d[i]));
  }
  CHECK(KF5X_AXE_MAT(&tool, &frame, h_f, &status) == k5x_axe_mat(tool, frame, h_d));
  for (i = 0; i < 16; ++i) CHECK(h_f[i] == (float)h_d[i]);
  // B below its -110: that one axis is out.
  CHECK(KF5X_TESTCOURSESXYZABC(m_f, flags, &status) == -5 && status == -5 && flags[4] == -5);
  k5x_set_tol(0.1);
  KF5X_GET_TOL(&tol);
  CHECK(tol == 0.1f);
  printf("c_api_test: %d checks failed\n", failures);
  return failures != 0;
}
