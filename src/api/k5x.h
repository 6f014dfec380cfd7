/* k5x: kinematics of a five-axis machine tool for CAM post-processing.
 *
 * One machine definition is loaded at a time into process-wide state; every function below
 * works on it. One calling thread at a time; a load must not overlap any other call. Angles are
 * degrees, lengths are the machine file's unit. Positions are six values X, Y, Z, A, B, C;
 * directions three values I, J, K; matrices row-major. Pointers returned point into library
 * storage: never free them (use k5x_machine_free and k5x_ex_abchcpossible_free).
 *
 * Two families: k5x_ functions take values and pointers and use doubles; KF5X_ functions take
 * every argument by address, reals as 32-bit floats and text as pointer + length by value. */
#ifndef K5X_H
#define K5X_H

#include <stdint.h>

#if defined(_WIN32)
#define K5X_API __declspec(dllexport)
#else
#define K5X_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- loading and freeing, checksum ----
 * k5x_machine_def: 0 loaded; 1 file cannot be opened (also a null path); 2 `bati` not first;
 * 3 nine records exist already; 4 current record already has two children; 5 axis line without
 * an AXE_X..AXE_C name; 6 zero axis direction; 7 `outil` without current record; 8 zero tool
 * direction; 9 `piece` without current record; 10 zero or parallel workpiece directions;
 * 11 `lien` field not AXE_BATI; 12 no frame for `lien`, or frame, tool or workpiece missing;
 * 15 `collision` names no record; 16 empty machine name; 17 a number field longer than 255
 * characters. Any non-zero code means no usable machine is loaded. */
K5X_API int k5x_machine_def(const char *path);
/* Releases the interpolation table (the machine stays loaded). */
K5X_API void k5x_machine_free(void);
/* Machine name, or null when none is loaded. */
K5X_API const char *k5x_name_machine(void);
/* mode 1, 2 (same value) or 3 (workpiece as loaded): writes the checksum, returns 1; else 0. */
K5X_API int k5x_machine_checksum(int mode, uint32_t *checksum);

/* ---- chain evaluation and matrices ---- */
K5X_API void k5x_machine_eval(const double q[6]);
/* Transform from record a's frame (measured from its point) to record b's; 1 when a is missing. */
K5X_API int k5x_axe_mat(int a, int b, double H[16]);
K5X_API void k5x_ex_get_axis_matrix(const double v[3], double H[16]);

/* ---- orientation solver and value laws ----
 * k5x_ijk2abc: 0 solved in travel; 1 no machine, zero or unreachable direction; else the travel
 * code of the angles (+-4, +-5, +-6, 9). Both candidates stay in k5x_abc_sol1/k5x_abc_sol2. */
K5X_API int k5x_ijk2abc(const double ijk[3], const double prev[3], double out[3]);
K5X_API double *k5x_abc_sol1(void);
K5X_API double *k5x_abc_sol2(void);
K5X_API double k5x_axe_val(int axis, double from, double to, int *sign);
K5X_API void k5x_abc2abc_loi(const double from[3], const double to[3], double out[3]);

/* ---- point and frame transforms ---- */
K5X_API int k5x_xyz2pts(const double xyz[3], const double abc[3], double out[3]);
/* Tool direction in workpiece coordinates, of length the tool length (not 1). */
K5X_API int k5x_xyz2ijk(const double xyz[3], const double abc[3], double out[3]);
/* Linear axis values that put the tool tip on p; returns the X, Y, Z travel code. */
K5X_API int k5x_pts2xyz(const double p[3], const double abc[3], double xyz[3]);
K5X_API int k5x_m2l(const double m[6], double l[6]);
K5X_API int k5x_l2m(const double l[6], double m[6]);
K5X_API int k5x_machine2tool(const double m[6], double out[6]);
/* Subdivides a move within the tolerance into *n rows (in: minimum; at most 500, then 7) of the
 * shared interpolation table; 8 when out of memory; else the first non-zero travel code. */
K5X_API int k5x_xyzabc(const double s[6], const double e[6], int *n, double **table);
/* Places the workpiece; 1 no workpiece record, 2 no link to it. Z is read from T[12]. */
K5X_API int k5x_set_piece(const double T[16]);
K5X_API int k5x_toolchanger_position(double out[6]);
K5X_API double *k5x_initial_position(void);

/* ---- travel limits ----
 * Codes: 0 inside, +k above / -k below the travel of axis k (1..6), 9 several axes out. */
K5X_API int k5x_testcoursesXYZ(const double xyz[3], int flags[3]);
K5X_API int k5x_testcoursesABC(const double abc[3], int flags[3]);
K5X_API int k5x_testcoursesXYZABC(const double v[6], int flags[6]);
/* 8 bad axis; else 0 both limits, -1 no minimum, 1 no maximum, 2 neither. */
K5X_API int k5x_axe_course(int axis, double *min, double *max);
K5X_API double k5x_axe_course_minimum(int axis);
K5X_API double k5x_axe_course_maximum(int axis);
/* Return the previous value (0.0 and no change for an axis outside 1..6). */
K5X_API double k5x_axe_set_course_minimum(int axis, double v);
K5X_API double k5x_axe_set_course_maximum(int axis, double v);

/* ---- axis queries (identifiers: -2 tool, -1 workpiece, 0 frame, 1..6 X, Y, Z, A, B, C) ---- */
K5X_API int k5x_axe_type(int id);   /* -100 when missing */
K5X_API int k5x_axe_typeex(int id); /* -100 when missing */
K5X_API const char *k5x_axe_nom(int id);
K5X_API double *k5x_axe_axe(int id);
K5X_API double *k5x_axe_point(int id);
K5X_API int *k5x_axe_color(int id);
K5X_API int k5x_axe_loi(int id);
K5X_API int k5x_axe_sens(int id);
K5X_API int k5x_axe_nlien(int id);
K5X_API int k5x_axe_ilien(int id, int j);
K5X_API int k5x_axe_tlien(int id, int j);       /* -400 when missing */
K5X_API const char *k5x_axe_slien(int id, int j);
K5X_API int k5x_axe_previous(int id);           /* -300 when missing */
K5X_API int k5x_axe_fixe_get(int id);
K5X_API int k5x_axe_fixe_set(int id, int flag);
K5X_API int k5x_axe_collision(int id, int j);
/* Normalises v in place and returns 1 for a proper direction (the tool axis is not changed);
 * a zero v becomes the tool axis and gives 0. */
K5X_API int k5x_axe_outil(double v[3]);

/* ---- rotary increments ---- */
K5X_API double k5x_get_axe_increment(int id);
K5X_API void k5x_set_axe_increment(int id, double step);
K5X_API int k5x_get_increment_behaviour(void);
K5X_API void k5x_set_increment_behaviour(int behaviour, double tolerance);
K5X_API double k5x_get_increment_tolerance(void);
K5X_API int k5x_get_increment_machine(double steps[3]);
K5X_API double k5x_increment_compute(const double in[3], const double dir[3], double out[3]);
K5X_API double k5x_increment_deviation_getmax(void);
K5X_API void k5x_increment_deviation_reset(void);

/* ---- interpolation ---- */
K5X_API int k5x_interpolation(const double p0[6], const double p1[6], double t, double out[6]);
K5X_API int k5x_interpolationtable(const double p0[6], const double p1[6], int *n,
                                   double **table);

/* ---- three-rotary solver, solution enumeration ---- */
/* 1 in-travel solution; a travel code when only out-of-travel ones exist; -1 none. */
K5X_API int k5x_ex_getabc_3r(const double dir[3], const double prev[3], double out[3], int mode);
/* Number of in-travel solutions (buffers owned by the library), -1 above 5184, -2 no memory. */
K5X_API int k5x_ex_getallabchcpossible(const double dir[3], int *count, double **solutions,
                                       int **flags);
K5X_API void k5x_ex_abchcpossible_free(void);
K5X_API int k5x_ex_getinit_ijk_2_abc_not_hc(const double dir[3], double abc[3]);

/* ---- settings ---- */
K5X_API void k5x_set_mode(int mode);
K5X_API int k5x_get_mode(void);
K5X_API void k5x_set_rtcp(int rtcp);
K5X_API int k5x_get_rtcp(void);
K5X_API void k5x_set_tol(double tol);
K5X_API double k5x_get_tol(void);
K5X_API void k5x_set_tol_course(double tol);
K5X_API double k5x_get_tol_course(void);
K5X_API void k5x_set_outil(double length);
K5X_API double k5x_get_outil(void);
K5X_API double k5x_util_eps(void);
K5X_API void k5x_util_eps_set(double eps);
K5X_API void k5x_setsilentmode(char silent);

/* ---- context (codes -103 to -108) ---- */
K5X_API int k5x_ctx_setContext(const char *context, const char *machine, const char *machineData,
                               const char *position, const double origin[3]);
K5X_API int k5x_ctx_initContext(void);
K5X_API int k5x_ctx_getContext(char **out);
K5X_API int k5x_ctx_getMachine(char **out);
K5X_API int k5x_ctx_getMachineData(char **out);
K5X_API int k5x_ctx_getPosition(char **out);
K5X_API int k5x_ctx_getOrigin(double out[3]);
K5X_API void k5x_ctx_free(char **p);

/* ---- by-reference family ---- */
K5X_API int KF5X_MACHINE_DEF(const char *text, int length, int *status);
K5X_API void KF5X_MACHINE_EVAL(const float q[6]);
K5X_API void KF5X_MACHINE_FREE(void);
K5X_API void KF5X_MACHINE_CHECKSUM(const int *n, int *values, int *count);
K5X_API void KF5X_SET_TOL(const float *v);
K5X_API void KF5X_GET_TOL(float *v);
K5X_API void KF5X_SET_OUTIL(const float *v);
K5X_API void KF5X_GET_OUTIL(float *v);
K5X_API void KF5X_SET_MODE(const int *v);
K5X_API int KF5X_GET_MODE(int *v);
K5X_API void KF5X_SET_RTCP(const int *v);
K5X_API int KF5X_GET_RTCP(int *v);
K5X_API int KF5X_SET_PIECE(const float m[16]);
K5X_API int KF5X_IJK2ABC(const float ijk[3], const float prev[3], float abc[3], int *status);
K5X_API int KF5X_PTS2XYZ(const float p[3], const float abc[3], float xyz[3], int *status);
K5X_API int KF5X_XYZ2IJK(const float xyz[3], const float abc[3], float ijk[3], int *status);
K5X_API int KF5X_XYZ2PTS(const float xyz[3], const float abc[3], float p[3], int *status);
K5X_API int KF5X_XYZABC(const float from[6], const float to[6], int *count, float *points,
                        int *status);
K5X_API int KF5X_INTERPOLATIONTABLE(const float from[6], const float to[6], int *count,
                                    float *points, int *status);
K5X_API int KF5X_AXE_MAT(const int *a, const int *b, float m[16], int *status);
K5X_API int KF5X_M2L(const float in[6], float out[6]);
K5X_API int KF5X_L2M(const float in[6], float out[6]);
K5X_API int KF5X_MACHINE2TOOL(const float in[6], float out[6]);
K5X_API int KF5X_TESTCOURSESXYZABC(const float v[6], int flags[6], int *status);
K5X_API int KF5X_TESTCOURSESXYZ(const float v[3], int flags[3], int *status);
K5X_API int KF5X_TESTCOURSESABC(const float v[3], int flags[3], int *status);
K5X_API void KF5X_AXE_COURSE_MINIMUM(const int *axis, float *v);
K5X_API void KF5X_AXE_COURSE_MAXIMUM(const int *axis, float *v);
K5X_API void KF5X_EX_ABCHCPOSSIBLE_FREE(void);
K5X_API int KF5X_EX_GETALLABCHCPOSSIBLE(const float dir[3], int *count, float *angles,
                                        int *flags, int *status);
K5X_API int KF5X_EX_GETINIT_IJK_2_ABC_NOT_HC(const float dir[3], float abc[3], int *status);
K5X_API void KF5X_EX_GET_AXIS_MATRIX(const float in[3], float out[16]);
K5X_API void KF5X_SET_INCREMENT_BEHAVIOUR(const int *behaviour, const float *value);
K5X_API void KF5X_GET_INCREMENT_MACHINE(int *flag, float steps[3]);
K5X_API int K5FX_TOOLCHANGER_POSITION(float pos[6], int *status);

#ifdef __cplusplus
}
#endif

#endif /* K5X_H */
