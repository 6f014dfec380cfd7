#include "k5x.h"

extern "C" {

int KF5X_MACHINE_DEF(const char *text, int length, int *status) { return {};}
void KF5X_MACHINE_EVAL(const float q[6]) {}
void KF5X_MACHINE_FREE(void) {}
void KF5X_MACHINE_CHECKSUM(const int *n, int *values, int *count) {}
void KF5X_SET_TOL(const float *v) {}
void KF5X_GET_TOL(float *v) {}
void KF5X_SET_OUTIL(const float *v) {}
void KF5X_GET_OUTIL(float *v) {}
void KF5X_SET_MODE(const int *v) {}
int KF5X_GET_MODE(int *v) { return {};}
void KF5X_SET_RTCP(const int *v) {}
int KF5X_GET_RTCP(int *v) { return {};}
int KF5X_SET_PIECE(const float m[16]) { return {};}
int KF5X_IJK2ABC(const float ijk[3], const float prev[3], float abc[3], int *status) { return {};}
int KF5X_PTS2XYZ(const float p[3], const float abc[3], float xyz[3], int *status) { return {};}
int KF5X_XYZ2IJK(const float xyz[3], const float abc[3], float ijk[3], int *status) { return {};}
int KF5X_XYZ2PTS(const float xyz[3], const float abc[3], float p[3], int *status) { return {};}
int KF5X_XYZABC(const float from[6], const float to[6], int *count, float *points, int *status) { return {};}
int KF5X_INTERPOLATIONTABLE(const float from[6], const float to[6], int *count, float *points, int *status) { return {};}
int KF5X_AXE_MAT(const int *a, const int *b, float m[16], int *status) { return {};}
int KF5X_M2L(const float in[6], float out[6]) { return {};}
int KF5X_L2M(const float in[6], float out[6]) { return {};}
int KF5X_MACHINE2TOOL(const float in[6], float out[6]) { return {};}
int KF5X_TESTCOURSESXYZABC(const float v[6], int flags[6], int *status) { return {};}
int KF5X_TESTCOURSESXYZ(const float v[3], int flags[3], int *status) { return {};}
int KF5X_TESTCOURSESABC(const float v[3], int flags[3], int *status) { return {};}
void KF5X_AXE_COURSE_MINIMUM(const int *axis, float *v) {}
void KF5X_AXE_COURSE_MAXIMUM(const int *axis, float *v) {}
void KF5X_EX_ABCHCPOSSIBLE_FREE(void) {}
int KF5X_EX_GETALLABCHCPOSSIBLE(const float dir[3], int *count, float *angles, int *flags, int *status) { return {};}
int KF5X_EX_GETINIT_IJK_2_ABC_NOT_HC(const float dir[3], float abc[3], int *status) { return {};}
void KF5X_EX_GET_AXIS_MATRIX(const float in[3], float out[16]) {}
void KF5X_SET_INCREMENT_BEHAVIOUR(const int *behaviour, const float *value) {}
void KF5X_GET_INCREMENT_MACHINE(int *flag, float steps[3]) {}
int K5FX_TOOLCHANGER_POSITION(float pos[6], int *status) { return {};}

}  // extern "C"
