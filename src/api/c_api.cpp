#include "k5x.h"

extern "C" {

int k5x_machine_def(const char *path) { return {};}
void k5x_machine_free(void) {}
const char * k5x_name_machine(void) { return {};}
int k5x_machine_checksum(int mode, uint32_t *checksum) { return {};}
void k5x_machine_eval(const double q[6]) {}
int k5x_axe_mat(int a, int b, double H[16]) { return {};}
void k5x_ex_get_axis_matrix(const double v[3], double H[16]) {}
int k5x_ijk2abc(const double ijk[3], const double prev[3], double out[3]) { return {};}
double * k5x_abc_sol1(void) { return {};}
double * k5x_abc_sol2(void) { return {};}
double k5x_axe_val(int axis, double from, double to, int *sign) { return {};}
void k5x_abc2abc_loi(const double from[3], const double to[3], double out[3]) {}
int k5x_xyz2pts(const double xyz[3], const double abc[3], double out[3]) { return {};}
int k5x_xyz2ijk(const double xyz[3], const double abc[3], double out[3]) { return {};}
int k5x_pts2xyz(const double p[3], const double abc[3], double xyz[3]) { return {};}
int k5x_m2l(const double m[6], double l[6]) { return {};}
int k5x_l2m(const double l[6], double m[6]) { return {};}
int k5x_machine2tool(const double m[6], double out[6]) { return {};}
int k5x_xyzabc(const double s[6], const double e[6], int *n, double **table) { return {};}
int k5x_set_piece(const double T[16]) { return {};}
int k5x_toolchanger_position(double out[6]) { return {};}
double * k5x_initial_position(void) { return {};}
int k5x_testcoursesXYZ(const double xyz[3], int flags[3]) { return {};}
int k5x_testcoursesABC(const double abc[3], int flags[3]) { return {};}
int k5x_testcoursesXYZABC(const double v[6], int flags[6]) { return {};}
int k5x_axe_course(int axis, double *min, double *max) { return {};}
double k5x_axe_course_minimum(int axis) { return {};}
double k5x_axe_course_maximum(int axis) { return {};}
double k5x_axe_set_course_minimum(int axis, double v) { return {};}
double k5x_axe_set_course_maximum(int axis, double v) { return {};}
int k5x_axe_type(int id) { return {};}
int k5x_axe_typeex(int id) { return {};}
const char * k5x_axe_nom(int id) { return {};}
double * k5x_axe_axe(int id) { return {};}
double * k5x_axe_point(int id) { return {};}
int * k5x_axe_color(int id) { return {};}
int k5x_axe_loi(int id) { return {};}
int k5x_axe_sens(int id) { return {};}
int k5x_axe_nlien(int id) { return {};}
int k5x_axe_ilien(int id, int j) { return {};}
int k5x_axe_tlien(int id, int j) { return {};}
const char * k5x_axe_slien(int id, int j) { return {};}
int k5x_axe_previous(int id) { return {};}
int k5x_axe_fixe_get(int id) { return {};}
int k5x_axe_fixe_set(int id, int flag) { return {};}
int k5x_axe_collision(int id, int j) { return {};}
int k5x_axe_outil(double v[3]) { return {};}
double k5x_get_axe_increment(int id) { return {};}
void k5x_set_axe_increment(int id, double step) {}
int k5x_get_increment_behaviour(void) { return {};}
void k5x_set_increment_behaviour(int behaviour, double tolerance) {}
double k5x_get_increment_tolerance(void) { return {};}
int k5x_get_increment_machine(double steps[3]) { return {};}
double k5x_increment_compute(const double in[3], const double dir[3], double out[3]) { return {};}
double k5x_increment_deviation_getmax(void) { return {};}
void k5x_increment_deviation_reset(void) {}
int k5x_interpolation(const double p0[6], const double p1[6], double t, double out[6]) { return {};}
int k5x_interpolationtable(const double p0[6], const double p1[6], int *n, double **table) { return {};}
int k5x_ex_getabc_3r(const double dir[3], const double prev[3], double out[3], int mode) { return {};}
int k5x_ex_getallabchcpossible(const double dir[3], int *count, double **solutions, int **flags) { return {};}
void k5x_ex_abchcpossible_free(void) {}
int k5x_ex_getinit_ijk_2_abc_not_hc(const double dir[3], double abc[3]) { return {};}
void k5x_set_mode(int mode) {}
int k5x_get_mode(void) { return {};}
void k5x_set_rtcp(int rtcp) {}
int k5x_get_rtcp(void) { return {};}
void k5x_set_tol(double tol) {}
double k5x_get_tol(void) { return {};}
void k5x_set_tol_course(double tol) {}
double k5x_get_tol_course(void) { return {};}
void k5x_set_outil(double length) {}
double k5x_get_outil(void) { return {};}
double k5x_util_eps(void) { return {};}
void k5x_util_eps_set(double eps) {}
void k5x_setsilentmode(char silent) {}
int k5x_ctx_setContext(const char *context, const char *machine, const char *machineData, const char *position, const double origin[3]) { return {};}
int k5x_ctx_initContext(void) { return {};}
int k5x_ctx_getContext(char **out) { return {};}
int k5x_ctx_getMachine(char **out) { return {};}
int k5x_ctx_getMachineData(char **out) { return {};}
int k5x_ctx_getPosition(char **out) { return {};}
int k5x_ctx_getOrigin(double out[3]) { return {};}
void k5x_ctx_free(char **p) {}

}  // extern "C"
