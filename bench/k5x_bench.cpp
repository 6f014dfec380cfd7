// Benchmarks of the hot paths: the orientation solver, placing the linear axes, subdividing a
// move, and the per-move path of k5x post (parse, solve, place, format).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/embedded_machines.h"
#include "cli/pipeline.h"
#include "load_machine.h"
#include "k5x.h"
#include "cpp/machine_impl.h"
#include "geometry/load.h"
#include "machine/machine_model.h"
#include "toolpath/csv_writer.h"
#include "toolpath/planner.h"
#include "toolpath/text_io.h"

namespace {

const double kDeg = 3.141592653589793 / 180.0;

bool load(const char* name) {
  if (k5x_test::load_machine_c_api(name) != 0) return false;
  k5x_setsilentmode(1);
  return true;
}

// Directions tilted up to 60 degrees from (0, 0, -1), the rest direction of DemoHead's tool.
std::vector<double> directions(int n) {
  std::vector<double> d;
  for (int i = 0; i < n; ++i) {
    const double tilt = 60.0 * kDeg * (i % 97) / 96.0, turn = 7.3 * kDeg * i;
    d.push_back(std::sin(tilt) * std::cos(turn));
    d.push_back(std::sin(tilt) * std::sin(turn));
    d.push_back(-std::cos(tilt));
  }
  return d;
}

void BM_Solver(benchmark::State& state) {
  if (!load("DemoHead")) {
    state.SkipWithError("cannot load DemoHead");
    return;
  }
  const std::vector<double> dirs = directions(1024);
  double prev[3] = {0, 0, 0}, out[3];
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(k5x_ijk2abc(&dirs[3 * i], prev, out));
    prev[0] = out[0], prev[1] = out[1], prev[2] = out[2];
    i = (i + 1) & 1023;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Solver);

void BM_Pts2xyz(benchmark::State& state) {
  if (!load("DemoHead")) {
    state.SkipWithError("cannot load DemoHead");
    return;
  }
  double p[3] = {10.0, -20.0, 30.0}, abc[3] = {0.0, 35.0, 120.0}, xyz[3];
  for (auto _ : state) {
    benchmark::DoNotOptimize(k5x_pts2xyz(p, abc, xyz));
    abc[2] += 0.01;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Pts2xyz);

// A move turning B by 10 degrees at the tolerance of 0.05: some tens of steps per call.
void BM_Xyzabc(benchmark::State& state) {
  if (!load("DemoHead")) {
    state.SkipWithError("cannot load DemoHead");
    return;
  }
  k5x_set_rtcp(static_cast<int>(state.range(0)));
  const double s[6] = {0, 0, 0, 0, 10, 30}, e[6] = {5, 5, 0, 0, 20, 40};
  long rows = 0;
  for (auto _ : state) {
    int n = 1;
    double* table = nullptr;
    benchmark::DoNotOptimize(k5x_xyzabc(s, e, &n, &table));
    rows += n;
  }
  state.counters["rows/call"] =
      benchmark::Counter(static_cast<double>(rows) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_Xyzabc)->Arg(0)->Arg(1);

// The per-move path of k5x post from text to CSV, written to /dev/null: a pass over a dome on
// DemoHead, tool axes in CAM sense. Arg 0: plan over the path; 1: nearest, move by move.
void post_run(benchmark::State& state, k5x::Linearise linearise) {
  k5x::State st;
  if (k5x::machine_def_text(st, k5x_cli::find_embedded_machine("DemoHead")->text) != 0) {
    state.SkipWithError("cannot load DemoHead");
    return;
  }
  st.silent = 1;
  const std::vector<double> dirs = directions(1024);
  std::vector<std::string> lines;
  char buf[160];
  for (int i = 0; i < 1024; ++i) {
    std::snprintf(buf, sizeof buf, "%.4f,%.4f,%.4f,%.6f,%.6f,%.6f", 40.0 * dirs[3 * i],
                  40.0 * dirs[3 * i + 1], -40.0 * dirs[3 * i + 2], -dirs[3 * i],
                  -dirs[3 * i + 1], -dirs[3 * i + 2]);
    lines.emplace_back(buf);
  }
  std::FILE* sink = std::fopen("/dev/null", "wb");
  if (sink == nullptr) {
    state.SkipWithError("cannot open /dev/null");
    return;
  }
  {
    k5x::OutBuffer out(sink);
    k5x::CsvWriter csv(&out);
    k5x::PlanOptions options;
    options.linearise = linearise;
    options.choice = state.range(0) == 0 ? k5x::Choice::path : k5x::Choice::nearest;
    k5x::Planner planner(st, options, &csv);
    csv.write_header();
    char reason[160];
    double v[6];
    std::size_t i = 0;
    long line = 0;
    k5x::ProgrammedMove move;
    for (auto _ : state) {
      const std::string& l = lines[i];
      if (k5x::parse_move_line(l.data(), l.data() + l.size(), v, 1e-6, reason, sizeof reason) ==
          1) {
        for (int k = 0; k < 3; ++k) {
          move.point[k] = v[k];
          move.axis[k] = v[3 + k];
        }
        move.line = ++line;
        move.index = line - 1;
        planner.push(move);
      }
      i = (i + 1) & 1023;
    }
    planner.finish();
    out.flush();
    state.counters["rows/move"] = benchmark::Counter(
        static_cast<double>(planner.stats().positions) / static_cast<double>(state.iterations()));
  }
  std::fclose(sink);
  state.SetItemsProcessed(state.iterations());
}

void BM_PostFile(benchmark::State& state) { post_run(state, k5x::Linearise::none); }
BENCHMARK(BM_PostFile)->Arg(0)->Arg(1)->UseRealTime();

void BM_PostFileSubdivide(benchmark::State& state) { post_run(state, k5x::Linearise::tolerance); }
BENCHMARK(BM_PostFileSubdivide)->Arg(0)->Arg(1)->UseRealTime();

// A fine toolpath on the Trunnion: 200,000 moves of about 0.06 mm along a spiral, the tool
// tilting slowly; the subdivision finds little or nothing to insert on it.
constexpr int kFineMoves = 200000;

const std::string& fine_spiral() {
  static const std::string text = [] {
    std::string t;
    char buf[160];
    for (int i = 0; i < kFineMoves; ++i) {
      const double f = i * 0.001, tilt = 0.3 * (0.5 + 0.5 * std::sin(i * 0.00003));
      std::snprintf(buf, sizeof buf, "%.4f %.4f %.4f %.8f %.8f %.8f\n", 60.0 * std::cos(f),
                    60.0 * std::sin(f), 5.0 * std::sin(3.0 * f), std::sin(tilt) * std::cos(f),
                    std::sin(tilt) * std::sin(f), std::cos(tilt));
      t += buf;
    }
    return t;
  }();
  return text;
}

// The whole fine toolpath once through k5x post's pipeline, as the program runs it: on one
// thread, or reading and solving on one, planning and writing on another. Returns the rows written.
long post_pass(k5x::State& st, std::string& text, std::FILE* sink, int threads,
               k5x::Linearise linearise) {
  k5x::PlanOptions options;
  options.linearise = linearise;
  std::FILE* in = fmemopen(&text[0], text.size(), "r");
  k5x::OutBuffer out(sink);
  k5x::CsvWriter csv(&out);
  long positions = 0;
  if (threads == 1) {
    k5x::Planner planner(st, options, &csv);
    k5x_cli::PlainToolpath toolpath(in, st.eps);
    k5x_cli::ReadItem p;
    while (toolpath.next(&p))
      if (p.kind == k5x_cli::ReadItem::move) planner.push(p.m);
    planner.finish();
    positions = planner.stats().positions;
  } else {
    k5x::Planner planner(st, options, &csv);
    k5x::State solving;
    k5x::copy_state(st, solving);
    k5x::Gatherer gatherer(solving, options);
    {
      k5x_cli::PlainToolpath toolpath(in, st.eps);
      k5x_cli::InputThread input(&toolpath, &gatherer);
      k5x_cli::ItemBatch batch;
      k5x::Candidates cand;
      while (input.next(&batch)) {
        for (const k5x_cli::ReadItem& p : batch) {
          if (p.kind != k5x_cli::ReadItem::move) continue;
          batch.unpack(p, &cand);
          planner.push_gathered(p.m, cand, gatherer.start_found());
        }
        input.recycle(std::move(batch));
      }
    }
    planner.finish();
    positions = planner.stats().positions;
  }
  out.flush();
  std::fclose(in);
  return positions;
}

// The Trunnion, the fine toolpath's text and /dev/null, for whole-toolpath runs.
struct FineRun {
  k5x::State st;
  std::string text = fine_spiral();
  std::FILE* sink = nullptr;
  // False (the benchmark skipped) when something is missing.
  bool open(benchmark::State& state) {
    if (k5x::machine_def_text(st, k5x_cli::find_embedded_machine("Trunnion")->text) != 0) {
      state.SkipWithError("cannot load Trunnion");
      return false;
    }
    st.silent = 1;
    sink = std::fopen("/dev/null", "wb");
    if (sink == nullptr) state.SkipWithError("cannot open /dev/null");
    return sink != nullptr;
  }
  long pass(int threads, k5x::Linearise linearise) {
    return post_pass(st, text, sink, threads, linearise);
  }
  ~FineRun() {
    if (sink != nullptr) std::fclose(sink);
  }
};

// One thread against two, pass after pass in turn, so that the machine's drift falls on both
// alike: each iteration posts the whole toolpath once each way. The counters are the mean
// milliseconds of each.
void BM_PostThreads(benchmark::State& state) {
  FineRun run;
  if (!run.open(state)) return;
  double seconds[2] = {0.0, 0.0};
  for (auto _ : state) {
    for (int way = 0; way < 2; ++way) {
      const auto t0 = std::chrono::steady_clock::now();
      benchmark::DoNotOptimize(run.pass(way == 0 ? 1 : 2, k5x::Linearise::none));
      seconds[way] += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["one_thread_ms"] = 1e3 * seconds[0] / n;
  state.counters["two_threads_ms"] = 1e3 * seconds[1] / n;
}
// Long runs: a whole toolpath takes a fifth of a second, and the machine's speed drifts.
BENCHMARK(BM_PostThreads)->UseRealTime()->MinTime(4.0)->Unit(benchmark::kMillisecond);

void BM_PostFineSubdivide(benchmark::State& state) {
  FineRun run;
  if (!run.open(state)) return;
  long positions = 0;
  for (auto _ : state) positions += run.pass(1, k5x::Linearise::tolerance);
  state.counters["rows/move"] = benchmark::Counter(
      static_cast<double>(positions) / (static_cast<double>(state.iterations()) * kFineMoves));
  state.SetItemsProcessed(state.iterations() * kFineMoves);
}
BENCHMARK(BM_PostFineSubdivide)->UseRealTime()->MinTime(2.0)->Unit(benchmark::kMillisecond);

}  // namespace
