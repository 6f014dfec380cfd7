// Runs the benchmarks, then prints the ratios that matter, each between two timings of this same
// run (absolute times say little across machines; ratios within one run do).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// Keeps, per benchmark name, the real time of one iteration in nanoseconds, and, as
// "NAME:COUNTER", the counters given in milliseconds (names ending in _ms), in nanoseconds.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      const double ns = run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations);
      nanoseconds[run.benchmark_name()] = ns;
      for (const auto& [counter, value] : run.counters)
        if (counter.size() > 3 && counter.compare(counter.size() - 3, 3, "_ms") == 0)
          nanoseconds[run.benchmark_name() + ":" + counter] = value.value * 1e6;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> nanoseconds;
};

void ratio(const RatioReporter& r, const char* what, const char* num, const char* den,
           const char* target) {
  const auto a = r.nanoseconds.find(num), b = r.nanoseconds.find(den);
  if (a == r.nanoseconds.end() || b == r.nanoseconds.end() || b->second <= 0.0) {
    std::printf("  %-44s not measured (%s or %s missing)\n", what, num, den);
    return;
  }
  std::printf("  %-44s %9.2f   (%s)\n", what, a->second / b->second, target);
}

// items: what one iteration processes.
void rate(const RatioReporter& r, const char* what, const char* name, const char* target,
          double items = 1.0) {
  const auto a = r.nanoseconds.find(name);
  if (a == r.nanoseconds.end() || a->second <= 0.0) {
    std::printf("  %-44s not measured (%s missing)\n", what, name);
    return;
  }
  std::printf("  %-44s %9.0f   (%s)\n", what, items * 1e9 / a->second, target);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nratios within this run:\n");
  ratio(reporter, "one move / closed-form floor", "BM_OneMove", "BM_FloorMove", "target <= 3");
  ratio(reporter, "KDL LMA move / one move", "BM_KdlMove", "BM_OneMove", "target >= 100");
  ratio(reporter, "enumeration / closed-form floor move", "BM_Enumeration", "BM_FloorMove",
        "target <= 400");
  rate(reporter, "post moves/s, path choice", "BM_PostFile/0/real_time", "target >= 2,000,000");
  rate(reporter, "post moves/s, nearest choice", "BM_PostFile/1/real_time", "");
  rate(reporter, "post moves/s --subdivide, coarse dome", "BM_PostFileSubdivide/0/real_time", "");
  // One iteration posts the whole 200,000-move toolpath.
  const char* fine = "BM_PostFineSubdivide/min_time:2.000/real_time";
  // One thread and two, timed in turn within one benchmark.
  const char* one = "BM_PostThreads/min_time:4.000/real_time:one_thread_ms";
  const char* two = "BM_PostThreads/min_time:4.000/real_time:two_threads_ms";
  rate(reporter, "post moves/s --subdivide, fine path", fine, "target >= 600,000", 200000.0);
  rate(reporter, "post moves/s, whole toolpath, 1 thread", one, "", 200000.0);
  rate(reporter, "post moves/s, whole toolpath, 2 threads", two, "", 200000.0);
  ratio(reporter, "post, 1 thread / 2 threads (time)", one, two, "target >= 1.7");
  benchmark::Shutdown();
  return 0;
}
