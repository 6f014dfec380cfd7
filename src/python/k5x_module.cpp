// The k5x module for Python: k5x.Machine over k5x::Machine, with NumPy arrays for whole
// toolpaths. Batch calls release the GIL while they run.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "cpp/k5x.hpp"

namespace py = pybind11;

namespace {

k5x::Vec3 vec3(const py::sequence& s, const char* what) {
  if (py::len(s) != 3) throw py::value_error(std::string(what) + ": three numbers expected");
  k5x::Vec3 v{};
  for (int i = 0; i < 3; ++i) v[i] = s[i].cast<double>();
  return v;
}

k5x::Position pos6(const py::sequence& s, const char* what) {
  if (py::len(s) != 6)
    throw py::value_error(std::string(what) + ": six numbers expected (X, Y, Z, A, B, C)");
  k5x::Position p{};
  for (int i = 0; i < 6; ++i) p[i] = s[i].cast<double>();
  return p;
}

py::tuple tuple3(const k5x::Vec3& v) { return py::make_tuple(v[0], v[1], v[2]); }

// Row status of the batch calls: the travel code (0 in travel, +-k axis k above/below, 9 several),
// kUnreachable for a move no solution reaches (its position is NaN), or kUnwind for a position in
// travel that the travel limits force the rotary axes round to in a cut.
constexpr int kUnreachable = 100;
constexpr int kUnwind = 101;

std::string describe(k5x::Machine& m) {
  std::ostringstream out;
  out << "<k5x.Machine '" << m.name() << "'";
  const char* letters = "XYZABC";
  for (int id = 1; id <= 6; ++id) {
    if (!m.has_axis(id)) continue;
    const k5x::Travel t = m.travel(id);
    out << " " << letters[id - 1];
    if (t.kind == 0)
      out << "[" << t.min << ".." << t.max << "]";
    else if (t.kind == 1)
      out << "[" << t.min << "..]";
    else if (t.kind == -1)
      out << "[.." << t.max << "]";
  }
  out << ">";
  return out.str();
}

py::tuple post(k5x::Machine& m, const py::array& moves, const py::object& start,
               const std::string& choice, const py::object& subdivide, double tolerance,
               double angle_tolerance, const std::string& tool_axis, const std::string& wrap,
               int mode, bool stats) {
  if (moves.ndim() != 2 || moves.shape(1) != 6)
    throw py::value_error("moves: an (N, 6) array of X Y Z I J K expected");
  if (!moves.dtype().is(py::dtype::of<double>()))
    throw py::type_error("moves: a float64 array expected");
  if (!(moves.flags() & py::array::c_style))
    throw py::value_error("moves: a C-contiguous array expected (numpy.ascontiguousarray)");
  const py::ssize_t n = moves.shape(0);
  const double* data = static_cast<const double*>(moves.data());
  for (py::ssize_t i = 0; i < n; ++i)
    for (int k = 0; k < 6; ++k)
      if (!std::isfinite(data[6 * i + k]))
        throw py::value_error("moves: row " + std::to_string(i) + " is not finite");
  k5x::PlanOptions options;
  if (choice == "path")
    options.choice = k5x::Choice::path;
  else if (choice == "nearest")
    options.choice = k5x::Choice::nearest;
  else
    throw py::value_error("choice: 'path' or 'nearest'");
  if (tool_axis != "cam" && tool_axis != "machine")
    throw py::value_error("tool_axis: 'cam' or 'machine'");
  options.cam_axis = tool_axis == "cam";
  if (wrap != "none" && wrap != "modulo") throw py::value_error("wrap: 'none' or 'modulo'");
  options.wrap_modulo = wrap == "modulo";
  if (subdivide.is_none()) {
    options.linearise = k5x::Linearise::none;
  } else {
    const std::string s = subdivide.cast<std::string>();
    if (s == "tolerance")
      options.linearise = k5x::Linearise::tolerance;
    else if (s == "formula")
      options.linearise = k5x::Linearise::formula;
    else
      throw py::value_error("subdivide: None, 'tolerance' or 'formula'");
  }
  options.tolerance = tolerance > 0.0 ? tolerance : m.tolerance();
  if (!(angle_tolerance > 0.0)) throw py::value_error("angle_tolerance must be above 0");
  options.angle_tolerance = angle_tolerance;
  options.mode = mode >= 0 ? mode : m.mode();
  options.mode3r = options.mode;
  // Asked for the account of the run, an unsubdivided post is measured as the program measures
  // a G-code program: what the caller would otherwise have to find out row by row.
  options.measure_deviation = stats;
  if (py::isinstance<py::str>(start)) {
    if (start.cast<std::string>() != "auto") throw py::value_error("start: 'auto' or (A, B, C)");
    options.start_auto = true;
  } else if (!start.is_none()) {
    const k5x::Vec3 s = vec3(start.cast<py::sequence>(), "start");
    for (int k = 0; k < 3; ++k) options.start[k] = s[k];
  }

  // Positions go straight into growing arrays, without the GIL.
  struct Rows : k5x::PositionSink {
    std::vector<double> pos;
    std::vector<int> status;
    std::vector<long long> source;
    std::vector<bool> inserted;
    void position(const k5x::PlannedPosition& p) override {
      for (int k = 0; k < 6; ++k) pos.push_back(p.reachable ? p.axes[k] : NAN);
      status.push_back(!p.reachable ? kUnreachable : p.unwind && p.travel_code == 0 ? kUnwind
                                                                                 : p.travel_code);
      source.push_back(p.index);
      inserted.push_back(p.inserted);
    }
  } rows;
  rows.pos.reserve(static_cast<std::size_t>(n) * 6);
  k5x::PlanStats account;
  {
    py::gil_scoped_release release;
    py::ssize_t i = 0;
    account = m.post(
        [&](k5x::ProgrammedMove* mv) {
          if (i == n) return false;
          const double* v = data + 6 * i;
          for (int k = 0; k < 3; ++k) {
            mv->point[k] = v[k];
            mv->axis[k] = v[3 + k];
          }
          mv->index = i;
          mv->line = i + 1;
          ++i;
          return true;
        },
        options, &rows);
  }
  const py::ssize_t count = static_cast<py::ssize_t>(rows.status.size());
  py::array_t<double> positions({count, static_cast<py::ssize_t>(6)});
  py::array_t<int> status(count);
  py::array_t<long long> source(count);
  py::array_t<bool> inserted(count);
  std::copy(rows.pos.begin(), rows.pos.end(), positions.mutable_data());
  std::copy(rows.status.begin(), rows.status.end(), status.mutable_data());
  std::copy(rows.source.begin(), rows.source.end(), source.mutable_data());
  for (py::ssize_t i = 0; i < count; ++i) inserted.mutable_data()[i] = rows.inserted[i];
  if (!stats) return py::make_tuple(positions, status, source, inserted);
  // Rows of moves rather than lines: the caller numbers moves from 0.
  auto row = [](long line) { return line > 0 ? line - 1 : -1; };
  py::dict d;
  d["moves"] = account.moves;
  d["positions"] = account.positions;
  d["inserted"] = account.inserted;
  d["unreachable"] = account.unreachable;
  d["out_of_travel"] = account.out_of_travel;
  d["swings"] = account.swings;
  d["unwinds"] = account.unwinds;
  d["singular_spread"] = account.singular_spread;
  d["max_tip_deviation"] = account.max_tip_deviation;
  d["max_tip_row"] = row(account.max_tip_deviation > 0.0 ? account.max_tip_line : 0);
  d["max_axis_deviation"] = account.max_axis_deviation;
  d["max_axis_row"] = row(account.max_axis_deviation > 0.0 ? account.max_axis_line : 0);
  d["start_found"] = account.start_found;
  return py::make_tuple(positions, status, source, inserted, d);
}

}  // namespace

PYBIND11_MODULE(k5x, mod) {
  mod.doc() =
      "Five-axis machine-tool kinematics for CAM post-processing.\n\n"
      "k5x.Machine loads a machine definition and answers what a post-processor asks: rotary\n"
      "angles for a tool direction, linear axes for a tool point, travel, whole toolpaths.\n"
      "Angles in degrees, lengths in the machine file's unit.";
  static py::exception<k5x::LoadError> load_error(mod, "LoadError", PyExc_RuntimeError);
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const k5x::LoadError& e) {
      // The instance carries the load code, for callers that branch on it, and the line that
      // stopped the reading with its own code (0 and 0 when none did).
      py::object err = py::reinterpret_borrow<py::object>(load_error.ptr())(e.what());
      err.attr("code") = e.code();
      err.attr("line") = e.line();
      err.attr("line_code") = e.line_code();
      PyErr_SetObject(load_error.ptr(), err.ptr());
    }
  });
  mod.attr("UNREACHABLE") = kUnreachable;
  mod.attr("UNWIND") = kUnwind;
  mod.def("embedded_machines", &k5x::embedded_machines,
          "Names of the machines compiled into the library, the default first.");
  mod.def("load_code_meaning", &k5x::load_code_meaning, py::arg("code"),
          "What a load code of a machine definition means.");

  py::class_<k5x::Machine>(mod, "Machine",
                           "A machine with its whole state: one per thread, setup or machine.")
      .def_static("from_file", &k5x::Machine::from_file, py::arg("path"),
                  "Loads a machine definition file; raises k5x.LoadError.")
      .def_static("from_text", &k5x::Machine::from_text, py::arg("text"),
                  "Loads a machine definition given as text; raises k5x.LoadError.")
      .def_static("embedded", &k5x::Machine::embedded, py::arg("name"),
                  "Loads a machine compiled into the library (see k5x.embedded_machines()).")
      .def("__copy__", [](const k5x::Machine& m) { return k5x::Machine(m); })
      .def("copy", [](const k5x::Machine& m) { return k5x::Machine(m); },
           "An independent copy of the machine.")
      .def("__repr__", &describe)
      .def_property_readonly("name", &k5x::Machine::name, "The machine's name.")
      .def(
          "solve",
          [](k5x::Machine& m, const py::sequence& d, const py::sequence& prev) {
            const k5x::Orientation o = m.solve(vec3(d, "direction"), vec3(prev, "previous"));
            return py::make_tuple(o.code, tuple3(o.angles));
          },
          py::arg("direction"), py::arg("previous") = py::make_tuple(0.0, 0.0, 0.0),
          "Rotary angles (A, B, C) putting the tool along direction, nearest previous.\n"
          "Returns (code, angles): 0 in travel, 1 unreachable, else a travel code.")
      .def(
          "solve_three_rotary",
          [](k5x::Machine& m, const py::sequence& d, const py::sequence& prev, int mode) {
            const k5x::Orientation o =
                m.solve_three_rotary(vec3(d, "direction"), vec3(prev, "previous"), mode);
            return py::make_tuple(o.code, tuple3(o.angles));
          },
          py::arg("direction"), py::arg("previous") = py::make_tuple(0.0, 0.0, 0.0),
          py::arg("mode") = 0,
          "Machines with three rotary axes: (code, angles); 1 in travel, -1 none, else a travel "
          "code.")
      .def(
          "all_solutions",
          [](k5x::Machine& m, const py::sequence& d) {
            const k5x::AllSolutions all = m.all_solutions(vec3(d, "direction"));
            py::array_t<double> a({static_cast<py::ssize_t>(all.angles.size()),
                                   static_cast<py::ssize_t>(3)});
            for (std::size_t i = 0; i < all.angles.size(); ++i)
              for (int k = 0; k < 3; ++k) a.mutable_at(i, k) = all.angles[i][k];
            return py::make_tuple(all.code, a, all.free_axes);
          },
          py::arg("direction"),
          "Every in-travel solution: (code, (N, 3) array of angles, free-axis flags).")
      .def(
          "place",
          [](k5x::Machine& m, const py::sequence& p, const py::sequence& abc) {
            const k5x::Coded<k5x::Vec3> r = m.place(vec3(p, "point"), vec3(abc, "angles"));
            return py::make_tuple(r.code, tuple3(r.value));
          },
          py::arg("point"), py::arg("angles"),
          "Linear axes (X, Y, Z) putting the tool tip on point at the angles: (code, xyz).")
      .def(
          "tip", [](k5x::Machine& m, const py::sequence& p) { return tuple3(m.tip(pos6(p, "position"))); },
          py::arg("position"), "The tool tip at a machine position, in the workpiece frame.")
      .def(
          "tool_vector",
          [](k5x::Machine& m, const py::sequence& p) {
            return tuple3(m.tool_vector(pos6(p, "position")));
          },
          py::arg("position"), "The tool direction at a position, scaled by the tool length.")
      .def(
          "travel_test",
          [](k5x::Machine& m, const py::sequence& p) {
            const k5x::TravelCheck t = m.travel_test(pos6(p, "position"));
            return py::make_tuple(t.code, t.flags);
          },
          py::arg("position"), "(code, flags): 0 in travel, +-k axis k above/below, 9 several.")
      .def(
          "travel",
          [](k5x::Machine& m, int axis) {
            const k5x::Travel t = m.travel(axis);
            return py::make_tuple(t.kind, t.min, t.max);
          },
          py::arg("axis"), "(kind, min, max) of axis 1..6 (X..C).")
      .def(
          "subdivide",
          [](k5x::Machine& m, const py::sequence& a, const py::sequence& b) {
            const k5x::Rows r = m.subdivide(pos6(a, "start"), pos6(b, "end"));
            py::array_t<double> rows({static_cast<py::ssize_t>(r.rows.size()),
                                      static_cast<py::ssize_t>(6)});
            for (std::size_t i = 0; i < r.rows.size(); ++i)
              for (int k = 0; k < 6; ++k) rows.mutable_at(i, k) = r.rows[i][k];
            return py::make_tuple(r.code, rows);
          },
          py::arg("start"), py::arg("end"),
          "The library's subdivision of a move: (code, (N, 6) rows ending on end).")
      .def(
          "checksum",
          [](k5x::Machine& m, int mode) {
            const k5x::Coded<std::uint32_t> c = m.checksum(mode);
            return py::make_tuple(c.code, c.value);
          },
          py::arg("mode") = 1, "The machine checksum: (code, value).")
      .def_property("mode", &k5x::Machine::mode, &k5x::Machine::set_mode, "Solution choice 0..2.")
      .def_property("rtcp", &k5x::Machine::rtcp, &k5x::Machine::set_rtcp, "RTCP mode 0..2.")
      .def_property("tolerance", &k5x::Machine::tolerance, &k5x::Machine::set_tolerance,
                    "Tolerance of the subdivision.")
      .def_property("tool_length", &k5x::Machine::tool_length, &k5x::Machine::set_tool_length,
                    "Tool length.")
      .def("has_axis", &k5x::Machine::has_axis, py::arg("id"),
           "True when the machine has the axis (1..6 for X..C).")
      .def("axis_name", &k5x::Machine::axis_name, py::arg("id"), "The record's name.")
      .def_property_readonly("tool_axis_is_cam_sense", &k5x::Machine::tool_axis_is_cam_sense,
                             "True when the file's tool direction points from the tip to the "
                             "spindle, as CAM systems write tool axes.")
      .def("post", &post, py::arg("moves"), py::arg("start") = py::none(),
           py::arg("choice") = "path", py::arg("subdivide") = py::none(),
           py::arg("tolerance") = 0.0, py::arg("angle_tolerance") = 0.5,
           py::arg("tool_axis") = "cam", py::arg("wrap") = "none", py::arg("mode") = -1,
           py::arg("stats") = false,
           "Posts a whole toolpath as `k5x post` does.\n\n"
           "moves: (N, 6) float64 C-contiguous array of X Y Z I J K (tool axis from the tip to\n"
           "the spindle unless tool_axis='machine'). start: None (from 0, 0, 0), 'auto' or\n"
           "(A, B, C). choice: 'path' or 'nearest'. subdivide: None, 'tolerance' or 'formula'.\n"
           "Returns (positions (M, 6), status (M,), source (M,), inserted (M,)): status is the\n"
           "row's travel code, k5x.UNREACHABLE (positions NaN) or k5x.UNWIND (in travel, but the\n"
           "rotary axes must turn round in the cut: retract there); source the move's row in\n"
           "moves; inserted rows lead up to their source move. With stats=True a fifth item,\n"
           "a dict, gives the account `k5x post` prints: moves, positions, inserted, unreachable,\n"
           "out_of_travel, swings, unwinds, singular_spread, start_found, and the largest\n"
           "deviation of the tip (mm) and the axis (degrees) between consecutive rows, with\n"
           "axes moving linearly, and the row of moves it is in (max_tip_deviation,\n"
           "max_tip_row, max_axis_deviation, max_axis_row; -1 when none). The GIL is released\n"
           "meanwhile.");
}
