// Record-by-record queries of the loaded machine, by axis identifier.
#ifndef K5X_GEOMETRY_AXIS_QUERIES_H
#define K5X_GEOMETRY_AXIS_QUERIES_H

#include "machine/machine_model.h"

namespace k5x {

int axe_type(const State& st, int id);
int axe_typeex(const State& st, int id);
const char* axe_nom(const State& st, int id);
double* axe_axe(State& st, int id);
double* axe_point(State& st, int id);
int* axe_color(State& st, int id);
int axe_loi(const State& st, int id);
int axe_sens(const State& st, int id);
int axe_nlien(const State& st, int id);
int axe_ilien(const State& st, int id, int j);
int axe_tlien(const State& st, int id, int j);
const char* axe_slien(const State& st, int id, int j);
int axe_previous(const State& st, int id);
int axe_fixe_get(const State& st, int id);
int axe_fixe_set(State& st, int id, int flag);
int axe_collision(const State& st, int id, int j);
int axe_outil(State& st, double v[3]);

}  // namespace k5x

#endif  // K5X_GEOMETRY_AXIS_QUERIES_H
