// CAM files in, G-code out: the APT reader against small made-up cases, and whole programs read
// back and put through the machine's forward transforms. (The shared CAM toolpaths go through
// the program, whose outputs for them are recorded.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "geometry/transforms.h"
#include "test_machines.h"
#include "toolpath/apt_reader.h"
#include "toolpath/gcode_writer.h"
#include "toolpath/planner.h"

namespace {

struct Read {
  std::vector<k5x::ProgrammedMove> moves;
  std::vector<k5x::AptEvent> events;
  std::vector<std::string> errors;
  std::map<std::string, long> unknown;
};

Read read_apt(const std::string& text, k5x::AptOptions options = {}) {
  std::FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  Read r;
  k5x::AptReader reader(f, options);
  k5x::ProgrammedMove m;
  k5x::AptEvent e;
  for (k5x::AptReader::Result res; (res = reader.next(&m, &e)) != k5x::AptReader::kEnd;) {
    if (res == k5x::AptReader::kMove) r.moves.push_back(m);
    if (res == k5x::AptReader::kEvent) r.events.push_back(e);
    if (res == k5x::AptReader::kError)
      r.errors.push_back(std::to_string(reader.line()) + ": " + reader.message());
  }
  r.unknown = reader.unknown();
  std::fclose(f);
  return r;
}

std::string slurp(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

TEST(AptReader, FramesCirclesEventsAndMalformedRecords) {
  const Read r = read_apt(
      "UNITS/MM\n"
      "MSYS/10,0,0,0,1,0,-1,0,0\n"  // local X along +Y, local Y along -X
      "LOADTL/7\n"
      "SPINDL/1200,CCLW\n"
      "COOLNT/MIST\n"
      "GOTO/1,0,0,1,0,0\n"
      "GOTO/1,2\n"               // malformed
      "MSYS/0,0,0,1,0,0,0,0,0\n"  // malformed: the Y axis is zero
      "MSYS/0,0,0,1,0,0,0,1,0\n"
      "FEDRAT/MMPM,500\n"
      "GOTO/10,0,0,0,0,1\n"
      "CIRCLE/0,0,0,0,0,1,10,0.01,0.5,1,0\n"
      "GOTO/0,10,0\n"
      "PPRINT/HELLO $\n"
      " WORLD\n"
      "PAINT/COLOR,3\n"
      "FINI\n");
  ASSERT_EQ(r.errors.size(), 2u);
  EXPECT_EQ(r.errors[0].compare(0, 3, "7: "), 0) << r.errors[0];
  EXPECT_EQ(r.errors[1].compare(0, 3, "8: "), 0) << r.errors[1];
  ASSERT_GE(r.moves.size(), 3u);
  // Rotated frame: (1, 0, 0) local is (10, 1, 0) in the workpiece; the axis turns alike.
  EXPECT_NEAR(r.moves[0].point[0], 10.0, 1e-12);
  EXPECT_NEAR(r.moves[0].point[1], 1.0, 1e-12);
  EXPECT_NEAR(r.moves[0].axis[1], 1.0, 1e-12);
  ASSERT_EQ(r.events.size(), 5u);
  EXPECT_EQ(r.events[0].kind, k5x::AptEvent::tool_load);
  EXPECT_EQ(r.events[0].tool, 7);
  EXPECT_EQ(r.events[1].speed, -1200.0);
  EXPECT_EQ(r.events[2].coolant_mode, 2);
  EXPECT_EQ(r.events[3].text, "PPRINT HELLO WORLD");
  EXPECT_EQ(r.events[3].before, static_cast<long>(r.moves.size()));
  EXPECT_EQ(r.unknown.at("PAINT"), 1);
}

// Found by fuzzing: a circle whose radius dwarfs the chord tolerance asked for more chords than
// an int holds. Numbers out of range are errors of their record, never infinite moves.
TEST(AptReader, HostileNumbersAreErrorsOfTheirRecord) {
  k5x::AptOptions options;
  options.chord_tolerance = 1e-300;
  const Read r = read_apt(
      "UNITS/INCHES\nGOTO/1e307,0,0\nGOTO/1,0,0\n"
      "CIRCLE/0,0,0,0,0,1,1,0,0,0,0\nGOTO/0,1,0\n"
      "CIRCLE/-1e308,0,0,0,0,1,1e308,0,0,0,0\nGOTO/1,1,0\n", options);
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0], "2: GOTO/: the point lies beyond the range of numbers");
  for (const k5x::ProgrammedMove& m : r.moves)
    for (double v : m.point) EXPECT_TRUE(std::isfinite(v));
  // The quarter circle in the most chords allowed; the circle beyond range, a straight move.
  EXPECT_EQ(r.moves.size(), 1000000u + 2u);
  // What follows a NUL in a number is not dropped unseen.
  const char kNul[] = "GOTO/1,2,3\0x\nGOTO/1,2,4\n";
  const Read nul = read_apt(std::string(kNul, sizeof kNul - 1));
  ASSERT_EQ(nul.errors.size(), 1u);
  EXPECT_EQ(nul.errors[0], "1: GOTO/: not a number: '3\\x00x'");
  EXPECT_EQ(nul.moves.size(), 1u);
}

// What the reader keeps does not grow with the file: continuation lines without end make one
// failed record, read to its last line, and the next record stands; a file of lines that are
// no records keeps a few dozen names of them, and lines of text are counted as text.
TEST(AptReader, WhatIsKeptStaysBounded) {
  k5x::AptOptions options;
  options.longest_line = 64;
  std::string text = "UNITS/MM\nGOTO/1,2,$\n";
  for (int i = 0; i < 40; ++i) text += "3,$\n";
  text += "4\nGOTO/5,6,7\nTool Path Listing has 50 lines.\nPARTNO  BRACKET 12\nINSERT M01\n";
  for (int i = 0; i < 100; ++i) text += "WORD" + std::to_string(i) + "\n";
  const Read r = read_apt(text, options);
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0], "2: record longer than 64 bytes");
  ASSERT_EQ(r.moves.size(), 1u);
  EXPECT_EQ(r.moves[0].point[0], 5.0);
  EXPECT_EQ(r.unknown.size(), 65u);
  // Words without a slash: a record when the first is in capitals, else text.
  EXPECT_EQ(r.unknown.at("(text)"), 1);
  ASSERT_EQ(r.events.size(), 2u);
  EXPECT_EQ(r.events[0].text, "PARTNO BRACKET 12");
  EXPECT_EQ(std::make_pair(r.events[1].kind, r.events[1].text),
            std::make_pair(k5x::AptEvent::insert, std::string("M01")));
  EXPECT_EQ(r.unknown.at("(others)"), 37);
}

// Positions of a G-code program: the axis words of every motion block, modal words carried.
struct Block {
  bool rapid;
  double axes[6];
  double f;
};

std::vector<Block> read_gcode(const std::string& program) {
  std::vector<Block> blocks;
  std::istringstream in(program);
  std::string line;
  Block b{true, {0, 0, 0, 0, 0, 0}, 0.0};
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '(' || line[0] == '%') continue;
    std::istringstream words(line);
    std::string w;
    bool motion = false;
    while (words >> w) {
      const char* axes = "XYZABC";
      if (w == "G0" || w == "G1") b.rapid = w == "G0";
      if (const char* at = std::strchr(axes, w[0])) {
        b.axes[at - axes] = std::atof(w.c_str() + 1);
        motion = true;
      }
      if (w[0] == 'F') b.f = std::atof(w.c_str() + 1);
    }
    if (motion) blocks.push_back(b);
  }
  return blocks;
}

std::string post_to_gcode(k5x::State& st, const std::vector<k5x::ProgrammedMove>& moves,
                          const k5x::PlanOptions& options, const k5x::GcodeOptions& g) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* f = open_memstream(&text, &size);
  {
    k5x::OutBuffer out(f);
    k5x::Dialect dialect;
    std::string error;
    EXPECT_TRUE(k5x::parse_dialect(k5x::shipped_dialect("iso"), &dialect, &error)) << error;
    k5x::GcodeWriter writer(&out, dialect, g);
    k5x::Planner planner(st, options, &writer);
    writer.begin();
    for (const k5x::ProgrammedMove& m : moves) planner.push(m);
    planner.finish();
    writer.end();
    out.flush();
  }
  std::fclose(f);
  std::string program(text, size);
  std::free(text);
  return program;
}

// A tool winding three times round a cone turns the indexed table beyond its 720 degrees: at the
// unwind the program backs the tool out along its axis, retracts, turns, and comes back in
// along the axis at the new angles.
TEST(GcodeWriter, UnwindsBackOutAndComeInAlongTheToolAxis) {
  k5x::State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("IndexedTable")), 0);
  st.silent = 1;
  std::vector<k5x::ProgrammedMove> moves(90);
  for (int i = 0; i < 90; ++i) {
    const double f = 6.0 * 3.141592653589793 * i / 90.0, t = 25.0 * 3.141592653589793 / 180.0;
    const double p[3] = {30.0 * std::cos(f), 30.0 * std::sin(f), 0.0};
    const double a[3] = {std::sin(t) * std::cos(f), std::sin(t) * std::sin(f), std::cos(t)};
    std::memcpy(moves[i].point, p, sizeof p);
    std::memcpy(moves[i].axis, a, sizeof a);
    moves[i].index = i;
    moves[i].line = i + 1;
  }
  k5x::PlanOptions options;
  k5x::GcodeOptions g;
  g.retract = true;
  g.retract_z = 200.0;
  g.length_decimals = 6;
  g.has_axis[3] = false;
  const std::string program = post_to_gcode(st, moves, options, g);
  const std::vector<Block> b = read_gcode(program);
  auto tip = [&](const Block& x, double out[3], double axis[3]) {
    k5x::tip_at(st, x.axes, x.axes + 3, out);
    k5x::tool_axis_at(st, x.axes, x.axes + 3, axis);  // a tool length long
    const double len = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
    for (int i = 0; i < 3; ++i) axis[i] /= len;
  };
  int unwinds = 0;
  for (std::size_t k = 2; k + 4 < b.size(); ++k) {
    if (!(b[k].rapid && b[k].axes[2] == 200.0 && !b[k - 1].rapid)) continue;
    ++unwinds;
    // Out: the block before the retract is the cut's last position moved 5 up its axis.
    double t0[3], a0[3], t1[3], a1[3];
    tip(b[k - 2], t0, a0);
    tip(b[k - 1], t1, a1);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(t1[i], t0[i] + 5.0 * a0[i], 1e-5) << program;
    // In: the last rapid is the next cut position moved 5 up its axis, at its angles.
    std::size_t in = k + 1;
    while (in < b.size() && b[in].rapid) ++in;
    ASSERT_LT(in, b.size());
    tip(b[in - 1], t0, a0);
    tip(b[in], t1, a1);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(t0[i], t1[i] + 5.0 * a1[i], 1e-5) << program;
    for (int i = 3; i < 6; ++i) EXPECT_EQ(b[in - 1].axes[i], b[in].axes[i]);
  }
  EXPECT_EQ(unwinds, 1) << program;
}

// The arc blocks of a program put back through the machine: each goes from where the last block
// left the tool to the end of a circular move of the toolpath, and its points, 17 along it, lie
// on that move's chords at the same share of their length (the way round, the centre, the plane
// and a helix's rise all show there). Returns the planes of the arcs in order.
std::vector<int> check_arcs(k5x::State& st, const std::vector<k5x::ProgrammedMove>& moves,
                            const std::string& program, double tolerance) {
  std::vector<int> planes;
  std::istringstream in(program);
  double at[6] = {0, 0, 0, 0, 0, 0};
  int plane = 17;
  std::size_t next = 1;  // the move after the last arc's end
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '(' || line[0] == '%') continue;
    std::istringstream words(line);
    double to[6], centre[3] = {0, 0, 0};
    std::memcpy(to, at, sizeof to);
    int arc = 0;
    for (std::string w; words >> w;) {
      if (w == "G17" || w == "G18" || w == "G19") plane = std::atoi(w.c_str() + 1);
      if (w == "G2" || w == "G3") arc = w == "G2" ? -1 : 1;
      if (const char* axis = std::strchr("XYZABC", w[0])) to[axis - "XYZABC"] = std::atof(&w[1]);
      if (const char* axis = std::strchr("IJK", w[0])) centre[axis - "IJK"] = std::atof(&w[1]);
    }
    if (arc != 0) {
      SCOPED_TRACE(line);
      planes.push_back(plane);
      double start[3], end[3];
      k5x::tip_at(st, at, at + 3, start);
      k5x::tip_at(st, to, to + 3, end);
      auto near = [](const double* a, const double* b, double d) {
        return std::hypot(std::hypot(a[0] - b[0], a[1] - b[1]), a[2] - b[2]) <= d;
      };
      // The chords of one circular move from where the arc starts to where it ends (the whole
      // move, or one turn of a helix).
      std::vector<const double*> chain;
      for (std::size_t from = next - 1; chain.empty() && from + 1 < moves.size(); ++from) {
        if (!near(moves[from].point, start, 1e-3) || moves[from + 1].arc == k5x::ArcPart::none ||
            (moves[from].arc == k5x::ArcPart::none && moves[from + 1].arc != k5x::ArcPart::first))
          continue;
        std::size_t to = from + 1;
        while (!near(moves[to].point, end, 1e-3) && to + 1 < moves.size() &&
               moves[to + 1].arc == k5x::ArcPart::rest)
          ++to;
        if (!near(moves[to].point, end, 1e-3)) continue;
        for (std::size_t i = from; i <= to; ++i) chain.push_back(moves[i].point);
        next = to + 1;
      }
      EXPECT_FALSE(chain.empty()) << "no circular move from there to there";
      if (chain.empty()) continue;
      std::vector<double> along = {0.0};
      for (std::size_t i = 1; i < chain.size(); ++i)
        along.push_back(along.back() + std::hypot(std::hypot(chain[i][0] - chain[i - 1][0],
                                                             chain[i][1] - chain[i - 1][1]),
                                                  chain[i][2] - chain[i - 1][2]));
      // The plane's axes, turning from the first towards the second about the third.
      const int u = plane == 17 ? 0 : plane == 18 ? 2 : 1;
      const int v = plane == 17 ? 1 : plane == 18 ? 0 : 2, n = 3 - u - v;
      for (int k = 0; k < 3; ++k) centre[k] += at[k];
      const double r = std::hypot(at[u] - centre[u], at[v] - centre[v]);
      EXPECT_NEAR(std::hypot(to[u] - centre[u], to[v] - centre[v]), r, 2e-4) << "end and start";
      const double a0 = std::atan2(at[v] - centre[v], at[u] - centre[u]);
      double turn = std::atan2(to[v] - centre[v], to[u] - centre[u]) - a0;
      while (arc * turn <= 1e-9) turn += arc * 2.0 * 3.141592653589793;
      for (int i = 0; i <= 16; ++i) {
        double x[6], tip[3], want[3];
        std::memcpy(x, to, sizeof x);
        x[u] = centre[u] + r * std::cos(a0 + turn * i / 16.0);
        x[v] = centre[v] + r * std::sin(a0 + turn * i / 16.0);
        x[n] = at[n] + (to[n] - at[n]) * i / 16.0;
        k5x::tip_at(st, x, x + 3, tip);
        const double share = along.back() * i / 16.0;
        std::size_t j = 1;
        while (j + 1 < chain.size() && along[j] < share) ++j;
        const double t = (share - along[j - 1]) / std::fmax(along[j] - along[j - 1], 1e-300);
        for (int k = 0; k < 3; ++k) want[k] = chain[j - 1][k] + (chain[j][k] - chain[j - 1][k]) * t;
        EXPECT_TRUE(near(tip, want, tolerance)) << i << ": " << tip[0] << " " << tip[1] << " "
                                                << tip[2] << " against " << want[0] << " "
                                                << want[1] << " " << want[2];
      }
    }
    std::memcpy(at, to, sizeof at);
  }
  return planes;
}

// Circles about Z both ways, a helix, circles about Y and X, one about a tilted axis with the
// tool vertical (no plane of the machine: chords), the same circle with the tool along its axis
// (the table tilts it into XY), a whole turn of it, helices of three turns and a circle all but
// closed.
TEST(GcodeWriter, CircularMovesAreArcsThatKeepTheToolOnTheirChords) {
  const Read r = read_apt(
      "UNITS/MM\nFEDRAT/MMPM,600\nGOTO/10,0,0,0,0,1\n"
      "CIRCLE/0,0,0,0,0,1,10\nGOTO/0,10,0\n"
      "CIRCLE/0,0,0,0,0,-1,10\nGOTO/10,0,0\n"
      "CIRCLE/0,0,0,0,0,1,10\nGOTO/-10,0,5\n"
      "CIRCLE/0,0,5,0,1,0,10\nGOTO/0,0,15\n"
      "CIRCLE/0,-10,15,1,0,0,10\nGOTO/0,-10,25\n"
      "CIRCLE/0,-20,25,0.6,0,0.8,10\nGOTO/-8,-20,31\n"
      "GOTO/-8,-20,31,0.6,0,0.8\n"
      "CIRCLE/0,-20,25,0.6,0,0.8,10\nGOTO/0,-30,25\n"
      "CIRCLE/0,-20,25,0.6,0,0.8,10\nGOTO/0,-30,25\n"
      "GOTO/0,-30,25,0,0,1\nCIRCLE/0,-20,0,0,0,-1,10,TIMES,3\nGOTO/0,-30,-6\n"
      "CIRCLE/0,-20,-6,0,0,1,10\nGOTO/-0.002,-29.998,-6\n"
      "GOTO/11,0,-10\nCIRCLE/0,0,-10,0,0,1,11,TIMES,3\nGOTO/11,0,-13\n");
  ASSERT_TRUE(r.errors.empty());
  k5x::State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("Trunnion")), 0);
  st.silent = 1;
  const k5x::PlanOptions options;
  const std::string program = post_to_gcode(st, r.moves, options, k5x::GcodeOptions());
  // 0.01 the chords' own tolerance, and as much again for the arc's within their ends.
  const std::vector<int> planes = check_arcs(st, r.moves, program, 0.02);
  EXPECT_EQ(std::vector<int>(planes.begin(), planes.begin() + 7),
            std::vector<int>({17, 17, 17, 18, 19, 17, 17}))
      << program;
  // Two helices of three turns, in 222 chords for one of them, so that a third of them make a
  // whole turn: each turn an arc or less. A circle whose end falls just short of its start, a
  // little inside it: in two halves, each with its ends equally far from its centre.
  EXPECT_GE(planes.size(), 15u);
  EXPECT_LE(planes.size(), 20u);
}

// The dialect files shipped for users to start from are the ones compiled in (each G-code run
// parses the one it is given).
TEST(Dialects, ShippedFilesAreTheCompiledOnes) {
  for (const char* name : {"iso", "rs274ngc"})
    EXPECT_EQ(slurp(std::string("share/dialects/") + name + ".dialect"),
              std::string(k5x::shipped_dialect(name)))
        << name;
  k5x::Dialect d;
  std::string error;
  EXPECT_FALSE(k5x::parse_dialect("axes = X Y Z A B\n", &d, &error));
  EXPECT_FALSE(k5x::parse_dialect("\nno_such_key = 1\n", &d, &error));
  EXPECT_EQ(error, "2: unknown key 'no_such_key'");
}

}  // namespace
