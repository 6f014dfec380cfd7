// Two machines, two threads: each thread posts the same toolpath on a machine of its own, and
// prints where the path ends up on it. Build: see the README; run: ./build/two_machines
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

#include "k5x.hpp"

int main() {
  // A pass round a boss with the tool leaning out 20 degrees (tool axes in the CAM sense, from
  // the tip towards the spindle; millimetres).
  std::vector<k5x::ProgrammedMove> moves(360);
  for (int i = 0; i < 360; ++i) {
    const double f = i * 3.141592653589793 / 180.0, lean = 20.0 * 3.141592653589793 / 180.0;
    k5x::ProgrammedMove& m = moves[i];
    m.point[0] = 50.0 * std::cos(f);
    m.point[1] = 50.0 * std::sin(f);
    m.point[2] = 5.0;
    m.axis[0] = std::sin(lean) * std::cos(f);
    m.axis[1] = std::sin(lean) * std::sin(f);
    m.axis[2] = std::cos(lean);
    m.line = i + 1;
    m.index = i;
  }
  const char* names[2] = {"DemoHead", "Trunnion"};
  k5x::Post posts[2];
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t)
    threads.emplace_back([&, t] {
      k5x::Machine machine = k5x::Machine::embedded(names[t]);  // this thread's own
      k5x::PlanOptions options;
      options.linearise = k5x::Linearise::tolerance;  // rows within 0.05 of the path
      posts[t] = machine.post(moves, options);
    });
  for (std::thread& t : threads) t.join();
  for (int t = 0; t < 2; ++t) {
    const k5x::PlannedPosition& last = posts[t].positions.back();
    std::printf("%-9s %zu positions, %ld out of travel; last X %.3f Y %.3f Z %.3f A %.3f B %.3f C %.3f\n",
                names[t], posts[t].positions.size(), posts[t].stats.out_of_travel, last.axes[0],
                last.axes[1], last.axes[2], last.axes[3], last.axes[4], last.axes[5]);
  }
  return posts[0].positions.empty() || posts[1].positions.empty() ? 1 : 0;
}
