#include "geometry/axis_queries.h"

namespace k5x {

int axe_type(const State& st, int id) { return {};}
int axe_typeex(const State& st, int id) { return {};}
const char* axe_nom(const State& st, int id) { return {};}
double* axe_axe(State& st, int id) { return {};}
double* axe_point(State& st, int id) { return {};}
int* axe_color(State& st, int id) { return {};}
int axe_loi(const State& st, int id) { return {};}
int axe_sens(const State& st, int id) { return {};}
int axe_nlien(const State& st, int id) { return {};}
int axe_ilien(const State& st, int id, int j) { return {};}
int axe_tlien(const State& st, int id, int j) { return {};}
const char* axe_slien(const State& st, int id, int j) { return {};}
int axe_previous(const State& st, int id) { return {};}
int axe_fixe_get(const State& st, int id) { return {};}
int axe_fixe_set(State& st, int id, int flag) { return {};}
int axe_collision(const State& st, int id, int j) { return {};}
int axe_outil(State& st, double v[3]) { return {};}

}  // namespace k5x
