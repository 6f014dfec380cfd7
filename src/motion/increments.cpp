#include "motion/increments.h"

namespace k5x {

double get_axe_increment(const State& st, int id) { return {};}
void set_axe_increment(State& st, int id, double step) {}
int get_increment_behaviour(const State& st) { return {};}
void set_increment_behaviour(State& st, int behaviour, double tolerance) {}
double get_increment_tolerance(const State& st) { return {};}
int get_increment_machine(const State& st, double steps[3]) { return {};}
double increment_compute(State& st, const double in[3], const double dir[3], double out[3]) { return {};}
double increment_deviation_getmax(const State& st) { return {};}
void increment_deviation_reset(State& st) {}

}  // namespace k5x
