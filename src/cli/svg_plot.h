// SVG plot of the six axis values along a toolpath: one panel for X, Y, Z and one for A, B, C,
// travel limits drawn, failing moves marked.
#ifndef K5X_CLI_SVG_PLOT_H
#define K5X_CLI_SVG_PLOT_H

#include <cstdio>

namespace k5x_cli {

// Axis facts the plot needs; filled from the loaded machine by the caller.
struct PlotAxes {
  bool present[6] = {};
  bool has_min[6] = {}, has_max[6] = {};
  double min[6] = {}, max[6] = {};
};

// Collects samples in a fixed number of buckets: when the buckets are full, neighbours are
// merged pairwise and each bucket covers twice as many samples. Memory stays constant however
// long the toolpath, and a bucket keeps the extremes of its samples so that spikes survive.
class SvgPlot {
 public:
  static const int kBuckets = 1024;

  // One written position; out_of_travel marks it.
  void add_position(const double pos[6], bool out_of_travel);
  // One move without a position (unreachable direction).
  void add_unreachable();

  long samples() const { return slots_; }

  // Writes a standalone SVG document; false when writing failed.
  bool write(std::FILE* f, const char* title, const PlotAxes& axes) const;

 private:
  struct Bucket {
    double lo[6], hi[6];
    int count;  // positions in the bucket
    bool out_of_travel, unreachable;
  };
  Bucket* slot_bucket();
  void halve();

  Bucket b_[kBuckets];
  int used_ = 0;      // buckets in use
  long width_ = 1;    // samples per bucket
  long slots_ = 0;    // samples so far
};

}  // namespace k5x_cli

#endif  // K5X_CLI_SVG_PLOT_H
