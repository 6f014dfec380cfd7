#include "toolpath/apt_reader.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "toolpath/text_io.h"

namespace k5x {

namespace {

constexpr double kInch = 25.4;
constexpr double kPi = 3.141592653589793;

// The blanks and letters of the "C" locale, whatever locale the host program has set: the
// same file reads the same everywhere.
bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
char to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Narrows [*b, *e) to what lies between the blanks around it.
void trim_range(const char** b, const char** e) {
  while (*b < *e && is_space(**b)) ++*b;
  while (*e > *b && is_space((*e)[-1])) --*e;
}

std::string trim(const std::string& s) {
  const char* b = s.data();
  const char* e = b + s.size();
  trim_range(&b, &e);
  return std::string(b, e);
}

void upper_in_place(std::string* s) {
  for (char& c : *s) c = to_upper(c);
}

std::string upper(std::string s) {
  upper_in_place(&s);
  return s;
}

// Where c first is in [b, e), or null.
const char* find_char(const char* b, const char* e, char c) {
  return static_cast<const char*>(std::memchr(b, c, static_cast<std::size_t>(e - b)));
}

// Where "$$" first starts in [b, e), or null.
const char* find_comment(const char* b, const char* e) {
  for (const char* p = b; e - p >= 2;) {
    p = static_cast<const char*>(std::memchr(p, '$', static_cast<std::size_t>(e - p - 1)));
    if (p == nullptr) return nullptr;
    if (p[1] == '$') return p;
    ++p;
  }
  return nullptr;
}

bool parse_number(const char* b, const char* e, double* out) {
  if (b == e) return false;
  // A field of the usual length is copied with a NUL and room after it, so that its digits
  // are read eight at a time up to its end.
  const std::size_t n = static_cast<std::size_t>(e - b);
  char padded[40];
  if (n <= sizeof padded - 8) {
    std::memcpy(padded, b, n);
    std::memset(padded + n, 0, 8);
    if (parse_plain_decimal_padded(padded, padded + n, out)) return true;
  } else if (parse_plain_decimal(b, e, out)) {
    return true;
  }
  // The full conversion wants the text on its own, ended by a NUL.
  const std::string text(b, e);
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  // The whole field, a NUL in it included, or it is no number.
  if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool parse_number(const std::string& text, double* out) {
  return parse_number(text.data(), text.data() + text.size(), out);
}

double norm3(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

void cross3(const double a[3], const double b[3], double c[3]) {
  const double x = a[1] * b[2] - a[2] * b[1], y = a[2] * b[0] - a[0] * b[2],
               z = a[0] * b[1] - a[1] * b[0];
  c[0] = x;
  c[1] = y;
  c[2] = z;
}

double dot3(const double a[3], const double b[3]) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

}  // namespace

int read_goto_line(const char* b, const char* e, double numbers[6]) {
  // Only a line that is a record by itself: no comment, no continuation. The name and the
  // fields are found and read as record() finds and reads them.
  if (find_comment(b, e) != nullptr) return 0;
  trim_range(&b, &e);
  if (b == e || e[-1] == '$') return 0;
  const char* slash = find_char(b, e, '/');
  if (slash == nullptr) return 0;
  const char* name = b;
  const char* name_end = slash;
  trim_range(&name, &name_end);
  if (name_end - name != 4 || to_upper(name[0]) != 'G' || to_upper(name[1]) != 'O' ||
      to_upper(name[2]) != 'T' || to_upper(name[3]) != 'O')
    return 0;
  int n = 0;
  for (const char* p = slash + 1;;) {
    const char* comma = find_char(p, e, ',');
    const char* fb = p;
    const char* fe = comma != nullptr ? comma : e;
    trim_range(&fb, &fe);
    if (n == 6 || !parse_number(fb, fe, &numbers[n])) return 0;
    ++n;
    if (comma == nullptr) break;
    p = comma + 1;
  }
  return n == 3 || n == 6 ? n : 0;
}

AptReader::AptReader(std::FILE* in, const AptOptions& options)
    : reader_(in, options.longest_line), options_(options) {
  if (options_.units == AptUnits::inches) scale_ = kInch;
  units_known_ = options_.units != AptUnits::automatic;
}

AptReader::Result AptReader::fail(const std::string& why) {
  message_ = why;
  return kError;
}

// One record: a line, or several joined where a line ends with a single '$'. A '$$' starts a
// comment, to the end of the line.
bool AptReader::read_record() {
  record_.clear();
  const char* b = nullptr;
  const char* e = nullptr;
  bool continued = false;
  // Continuation lines past the longest line a record may have are read to the record's end
  // and the record fails: memory stays bounded whatever the file.
  bool overlong = false;
  auto refuse = [&](const char* what) {
    too_long_ = what;
    record_ = "$$";
    return true;
  };
  for (;;) {
    const double* numbers = nullptr;
    int count = 0;
    const LineReader::Result r =
        lines_ != nullptr ? lines_->next(&b, &e, &numbers, &count) : reader_.next(&b, &e);
    if (r == LineReader::kEnd || r == LineReader::kError)
      return overlong ? refuse("record") : !record_.empty();
    ++line_;
    if (!continued) record_line_ = line_;
    // Reported as the record's failure, never dropped unseen.
    if (r == LineReader::kTooLong) return refuse("line");
    if (count > 0 && !continued) {
      std::memcpy(ahead_, numbers, static_cast<std::size_t>(count) * sizeof(double));
      ahead_count_ = static_cast<std::size_t>(count);
      return true;
    }
    const char* comment = find_comment(b, e);
    if (comment == b && !continued) {
      record_.assign("$$");
      record_.append(b + 2, e);
      return true;
    }
    const char* body = b;
    const char* body_end = comment != nullptr ? comment : e;
    trim_range(&body, &body_end);
    const bool more = body < body_end && body_end[-1] == '$';
    if (more) --body_end;
    const std::size_t length = static_cast<std::size_t>(body_end - body);
    overlong = overlong || record_.size() + length > options_.longest_line;
    if (!overlong) record_.append(body, length);
    if (more) {
      continued = true;
      continue;
    }
    if (overlong) return refuse("record");
    if (record_.empty() && !continued) continue;  // a blank line
    return true;
  }
}

bool AptReader::numbers(std::size_t from, std::size_t count_min, std::size_t count_max,
                        double* out, std::size_t* count) {
  *count = 0;
  if (fields_.size() < from + count_min) {
    message_ = name_ + "/ needs " + std::to_string(count_min) + " numbers, found " +
               std::to_string(fields_.size() > from ? fields_.size() - from : 0);
    return false;
  }
  for (std::size_t i = from; i < fields_.size(); ++i) {
    if (*count == count_max) {
      message_ = name_ + "/ takes at most " + std::to_string(count_max) + " numbers";
      return false;
    }
    const char* b = record_.data() + fields_[i].begin;
    if (!parse_number(b, record_.data() + fields_[i].end, &out[*count])) {
      message_ = name_ + "/: not a number: '" + printable(field(i)) + "'";
      return false;
    }
    ++*count;
  }
  return true;
}

void AptReader::to_workpiece(const double local[3], double out[3], bool direction) const {
  for (int k = 0; k < 3; ++k) {
    out[k] = frame_[3 * k] * local[0] + frame_[3 * k + 1] * local[1] + frame_[3 * k + 2] * local[2];
    if (!direction) out[k] += origin_[k];
  }
}

AptReader::Result AptReader::emit_move(const double point[3], ProgrammedMove* move, ArcPart arc) {
  for (int k = 0; k < 3; ++k) {
    move->point[k] = point[k];
    move->axis[k] = axis_[k];
    last_[k] = point[k];
  }
  have_last_ = true;
  move->line = record_line_;
  move->index = index_++;
  move->rapid = rapid_;
  move->arc = arc;
  move->feed = feed_per_rev_ > 0.0 ? feed_per_rev_ * std::fabs(spindle_rpm_) : feed_;
  rapid_ = false;
  return kMove;
}

// The arc from the last point to end about the circle's axis, counter-clockwise seen from the
// axis' tip, in chords within the tolerance; a rise along the axis is spread evenly.
AptReader::Result AptReader::queue_circle(const double end[3], ProgrammedMove* move) {
  circle_pending_ = false;
  if (!have_last_) return emit_move(end, move);
  const double* c = circle_center_;
  const double* n = circle_axis_;
  double a[3], b[3];
  for (int k = 0; k < 3; ++k) {
    a[k] = last_[k] - c[k];
    b[k] = end[k] - c[k];
  }
  const double ha = dot3(a, n), hb = dot3(b, n);
  for (int k = 0; k < 3; ++k) {
    a[k] -= ha * n[k];
    b[k] -= hb * n[k];
  }
  const double r = norm3(a);
  double ab[3];
  cross3(a, b, ab);
  double sweep = std::atan2(dot3(ab, n), dot3(a, b));
  if (sweep <= 1e-12) sweep += 2.0 * kPi;
  sweep += 2.0 * kPi * circle_turns_;
  const double tol = options_.chord_tolerance;
  int steps = 1;
  if (r > tol && tol > 0.0) {
    // In double until clamped: a radius far above the tolerance makes the step vanish.
    const double wanted = std::ceil(sweep / (2.0 * std::acos(1.0 - tol / r)));
    steps = !(wanted >= 1.0) ? 1 : (wanted > 1e6 ? 1000000 : static_cast<int>(wanted));
  }
  double u[3];  // n x a, a quarter turn ahead of a
  cross3(n, a, u);
  arc_.clear();
  for (int i = 1; i <= steps; ++i) {
    const double t = static_cast<double>(i) / steps;
    const double phi = sweep * t, cp = std::cos(phi), sp = std::sin(phi);
    for (int k = 0; k < 3; ++k)
      arc_.push_back(i == steps ? end[k] : c[k] + cp * a[k] + sp * u[k] + (ha + (hb - ha) * t) * n[k]);
  }
  for (double v : arc_)
    if (!std::isfinite(v)) {
      arc_.clear();
      return fail("CIRCLE/: the arc lies beyond the range of numbers");
    }
  arc_next_ = 0;
  arc_line_ = circle_line_;
  const long line = record_line_;
  record_line_ = arc_line_;
  const Result r0 = emit_move(&arc_[0], move, ArcPart::first);
  record_line_ = line;
  arc_next_ = 3;
  return r0;
}

AptReader::Result AptReader::next(ProgrammedMove* move, AptEvent* event) {
  if (arc_next_ < arc_.size()) {
    // The rest of an arc keeps the circle's line; its end point is the GOTO's.
    const bool last = arc_next_ + 3 >= arc_.size();
    const long line = record_line_;
    if (!last) record_line_ = arc_line_;
    const Result r = emit_move(&arc_[arc_next_], move, ArcPart::rest);
    record_line_ = line;
    arc_next_ += 3;
    return r;
  }
  for (;;) {
    if (!read_record()) return kEnd;
    const Result r = record(move, event);
    if (r != kEnd) return r;  // kEnd from record(): nothing to hand out, read on
  }
}

// A GOTO or FROM record's numbers (name_ says which).
AptReader::Result AptReader::go_to(const double* v, std::size_t n, ProgrammedMove* move) {
  if (n != 3 && n != 6) return fail(name_ + "/ needs 3 or 6 numbers, found " + std::to_string(n));
  if (n == 6 && multax_) {
    const double len = norm3(v + 3);
    if (!(len > 1e-9)) return fail(name_ + "/: zero tool axis");
    double local[3] = {v[3] / len, v[4] / len, v[5] / len};
    to_workpiece(local, axis_, true);
  }
  double local[3] = {v[0] * scale_, v[1] * scale_, v[2] * scale_}, point[3];
  to_workpiece(local, point, false);
  if (!std::isfinite(point[0]) || !std::isfinite(point[1]) || !std::isfinite(point[2]))
    return fail(name_ + "/: the point lies beyond the range of numbers");
  if (name_ == "FROM") {
    for (int k = 0; k < 3; ++k) from_[k] = point[k];
    have_from_ = true;
    rapid_ = true;
  }
  if (circle_pending_) return queue_circle(point, move);
  return emit_move(point, move);
}

AptReader::Result AptReader::record(ProgrammedMove* move, AptEvent* event) {
  fields_.clear();
  if (too_long_ != nullptr) {
    const char* what = too_long_;
    too_long_ = nullptr;
    return fail(std::string(what) + " longer than " + std::to_string(options_.longest_line) +
                " bytes");
  }
  event->before = index_;
  event->line = record_line_;
  event->text.clear();
  if (ahead_count_ > 0) {
    const std::size_t n = ahead_count_;
    ahead_count_ = 0;
    name_.assign("GOTO");
    return go_to(ahead_, n, move);
  }
  if (record_.compare(0, 2, "$$") == 0) {
    event->kind = AptEvent::comment;
    event->text = trim(record_.substr(2));
    return event->text.empty() ? kEnd : kEvent;
  }
  // The name and the fields are read in place: the strings are kept from record to record, so
  // that a move record allocates nothing.
  const std::size_t slash = record_.find('/');
  const char* text = record_.data();
  const char* name = text;
  const char* name_end = text + (slash == std::string::npos ? record_.size() : slash);
  trim_range(&name, &name_end);
  name_.assign(name, name_end);
  upper_in_place(&name_);
  if (slash != std::string::npos) {
    std::size_t start = slash + 1;
    for (;;) {
      const std::size_t comma = record_.find(',', start);
      const char* b = text + start;
      const char* e = text + (comma == std::string::npos ? record_.size() : comma);
      trim_range(&b, &e);
      fields_.push_back({static_cast<std::size_t>(b - text), static_cast<std::size_t>(e - text)});
      if (comma == std::string::npos) break;
      start = comma + 1;
    }
  }
  double v[16];
  std::size_t n = 0;
  if (name_ == "GOTO" || name_ == "FROM") {
    if (!numbers(0, 3, 6, v, &n)) return kError;
    return go_to(v, n, move);
  }
  if (name_ == "GOHOME") {
    if (!have_from_) return fail("GOHOME/ without a FROM/ point");
    rapid_ = true;
    return emit_move(from_, move);
  }
  if (name_ == "RAPID") {
    rapid_ = true;
    return kEnd;
  }
  if (name_ == "MULTAX") {
    const std::string mode = fields_.empty() ? "ON" : upper(field(0));
    if (mode != "ON" && mode != "OFF") return fail("MULTAX/ takes ON or OFF");
    multax_ = mode == "ON";
    return kEnd;
  }
  if (name_ == "TLAXIS") {
    if (!numbers(0, 3, 3, v, &n)) return kError;
    const double len = norm3(v);
    if (!(len > 1e-9)) return fail("TLAXIS/: zero tool axis");
    const double local[3] = {v[0] / len, v[1] / len, v[2] / len};
    to_workpiece(local, axis_, true);
    return kEnd;
  }
  if (name_ == "UNITS") {
    const std::string u = fields_.empty() ? "" : upper(field(0));
    if (u != "MM" && u != "INCHES" && u != "INCH") return fail("UNITS/ takes MM or INCHES");
    if (options_.units == AptUnits::automatic) {
      scale_ = u == "MM" ? 1.0 : kInch;
      units_known_ = true;
    }
    return kEnd;
  }
  if (name_ == "FEDRAT") {
    std::string unit;
    std::size_t from = 0;
    if (!fields_.empty() && !parse_number(field(0), v)) {
      unit = upper(field(0));
      from = 1;
    }
    if (!numbers(from, 1, 1, v, &n)) return kError;
    if (!(v[0] > 0.0)) return fail("FEDRAT/: the feed must be above 0");
    const bool inch = unit == "IPM" || unit == "IPR";
    if (!unit.empty() && unit != "IPM" && unit != "IPR" && unit != "MMPM" && unit != "MMPR")
      return fail("FEDRAT/: unknown feed unit '" + printable(unit) + "'");
    // A feed in inches says the file is in inches, unless the units were given.
    if (!units_known_ && !unit.empty()) {
      scale_ = inch ? kInch : 1.0;
      units_known_ = true;
    }
    const double f = v[0] * (inch ? kInch : (unit.empty() ? scale_ : 1.0));
    if (unit == "IPR" || unit == "MMPR") {
      feed_per_rev_ = f;
    } else {
      feed_ = f;
      feed_per_rev_ = 0.0;
    }
    return kEnd;
  }
  if (name_ == "LOADTL" || name_ == "LOAD") {
    std::size_t from = 0;
    if (name_ == "LOAD") {
      if (fields_.empty() || upper(field(0)) != "TOOL") return fail("LOAD/ takes TOOL,n");
      from = 1;
    }
    if (fields_.size() <= from || !parse_number(field(from), v) || v[0] < 0.0 || v[0] > 1e9 ||
        v[0] != std::floor(v[0]))
      return fail(name_ + "/ needs a tool number");
    event->kind = AptEvent::tool_load;
    event->tool = static_cast<int>(v[0]);
    event->text = tool_data_;
    return kEvent;
  }
  if (name_ == "TLDATA") {
    tool_data_ = "TLDATA/" + record_.substr(slash + 1);
    return kEnd;
  }
  if (name_ == "SPINDL") {
    event->kind = AptEvent::spindle;
    double rpm = 0.0;
    bool ccw = false, off = false;
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      const std::string f = field(i), w = upper(f);
      if (w == "OFF") off = true;
      else if (w == "CCLW" || w == "CCW") ccw = true;
      else if (w == "CLW" || w == "CW" || w == "RPM" || w == "ON" || w.empty()) continue;
      else if (!parse_number(f, &rpm) || rpm < 0.0)
        return fail("SPINDL/: not a speed: '" + printable(f) + "'");
    }
    if (!off && rpm == 0.0) rpm = std::fabs(spindle_rpm_);
    spindle_rpm_ = off ? 0.0 : (ccw ? -rpm : rpm);
    event->speed = spindle_rpm_;
    event->started = !off;
    return kEvent;
  }
  if (name_ == "COOLNT") {
    const std::string w = fields_.empty() ? "ON" : upper(field(0));
    event->kind = AptEvent::coolant;
    if (w == "OFF") event->coolant_mode = 0;
    else if (w == "ON" || w == "FLOOD") event->coolant_mode = 1;
    else if (w == "MIST") event->coolant_mode = 2;
    else return fail("COOLNT/ takes ON, FLOOD, MIST or OFF");
    return kEvent;
  }
  if (name_ == "MSYS") {
    if (!numbers(0, 9, 9, v, &n)) return kError;
    double x[3] = {v[3], v[4], v[5]}, y[3] = {v[6], v[7], v[8]}, z[3];
    const double lx = norm3(x);
    cross3(x, y, z);
    const double lz = norm3(z);
    if (!(lx > 1e-9) || !(lz > 1e-9 * lx * norm3(y))) return fail("MSYS/: zero or parallel axes");
    for (int k = 0; k < 3; ++k) {
      x[k] /= lx;
      z[k] /= lz;
    }
    cross3(z, x, y);  // square the frame: Y from Z and X
    for (int k = 0; k < 3; ++k) {
      origin_[k] = v[k] * scale_;
      frame_[3 * k] = x[k];
      frame_[3 * k + 1] = y[k];
      frame_[3 * k + 2] = z[k];
    }
    return kEnd;
  }
  if (name_ == "CIRCLE") {
    // Numbers, then optionally TIMES,n: the circle is gone round n times in all (a helix when
    // the end lies along the axis), so n - 1 whole turns come before the end.
    circle_turns_ = 0;
    for (std::size_t i = 0; i + 1 < fields_.size(); ++i) {
      if (upper(field(i)) != "TIMES") continue;
      double times = 0.0;
      if (!parse_number(field(i + 1), &times) || times < 1.0 || times > 1000.0 ||
          times != std::floor(times))
        return fail("CIRCLE/: TIMES needs a whole number from 1 to 1000");
      circle_turns_ = static_cast<int>(times) - 1;
      fields_.resize(i);
      break;
    }
    if (!numbers(0, 7, 16, v, &n)) return kError;
    const double len = norm3(v + 3);
    if (!(len > 1e-9) || !(v[6] > 0.0)) return fail("CIRCLE/: zero axis or radius");
    const double local_c[3] = {v[0] * scale_, v[1] * scale_, v[2] * scale_};
    const double local_n[3] = {v[3] / len, v[4] / len, v[5] / len};
    to_workpiece(local_c, circle_center_, false);
    to_workpiece(local_n, circle_axis_, true);
    circle_radius_ = v[6] * scale_;
    circle_pending_ = true;
    circle_line_ = record_line_;
    return kEnd;
  }
  // Without a slash, a record's name is its first word and the rest of the line its text.
  const std::size_t space =
      slash == std::string::npos ? name_.find_first_of(" \t") : std::string::npos;
  const std::string word = space == std::string::npos ? name_ : name_.substr(0, space);
  const std::size_t at = record_.find_first_not_of(" \t");
  std::string rest;
  if (slash != std::string::npos)
    rest = record_.substr(slash + 1);
  else if (at != std::string::npos)
    rest = record_.substr(at + word.size());
  if (word == "PPRINT" || name_ == "TOOL PATH" || word == "PARTNO") {
    event->kind = AptEvent::comment;
    event->text = trim((slash != std::string::npos ? name_ : word) + " " + trim(rest));
    return kEvent;
  }
  if (word == "INSERT") {
    // Its text goes into the program as it is: a block for the controller, the CAM's to answer
    // for (control codes excepted).
    event->kind = AptEvent::insert;
    event->text = printable(trim(rest));
    return event->text.empty() ? kEnd : kEvent;
  }
  if (name_ == "END-OF-PATH") {
    event->kind = AptEvent::end_of_path;
    return kEvent;
  }
  if (name_ == "FINI") {
    event->kind = AptEvent::end_of_program;
    return kEvent;
  }
  // Counted under its name, never dropped silently. Several words without a slash are a record
  // named by its first word when that is written in capitals as APT is; else they are text (a
  // listing's header or trailer, say), counted as such.
  std::string key = word;
  if (space != std::string::npos) {
    for (std::size_t i = at; i < at + word.size(); ++i)
      if (record_[i] >= 'a' && record_[i] <= 'z') key = "(text)";
  }
  if (key.size() > 40) key = key.substr(0, 40);
  key = printable(key);
  // A few dozen names are kept: a file that is no APT at all must not add one for every line.
  constexpr std::size_t kNamesKept = 64;
  if (unknown_.size() >= kNamesKept && unknown_.find(key) == unknown_.end()) key = "(others)";
  ++unknown_[key];
  return kEnd;
}

AptUnits scan_apt_units(std::FILE* in) {
  AptUnits found = AptUnits::automatic;
  const long start = std::ftell(in);
  {
    LineReader reader(in);
    const char* b = nullptr;
    const char* e = nullptr;
    for (LineReader::Result r; (r = reader.next(&b, &e)) != LineReader::kEnd && r != LineReader::kError;) {
      if (r != LineReader::kLine) continue;
      const std::string line = upper(trim(std::string(b, e)));
      if (line.compare(0, 6, "UNITS/") == 0) {
        found = line.find("MM") != std::string::npos ? AptUnits::mm : AptUnits::inches;
        break;
      }
      if (line.compare(0, 7, "FEDRAT/") == 0) {
        if (line.find("IPM") != std::string::npos || line.find("IPR") != std::string::npos) {
          found = AptUnits::inches;
          break;
        }
        if (line.find("MMPM") != std::string::npos || line.find("MMPR") != std::string::npos) {
          found = AptUnits::mm;
          break;
        }
      }
    }
  }
  std::fseek(in, start, SEEK_SET);
  return found;
}

bool looks_like_apt(const char* text, std::size_t size) {
  std::size_t pos = 0;
  for (int lines = 0; pos < size && lines < 200; ++lines) {
    std::size_t end = pos;
    while (end < size && text[end] != '\n') ++end;
    std::string line = upper(trim(std::string(text + pos, end - pos)));
    pos = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (line == "RAPID" || line.compare(0, 2, "$$") == 0) return true;
    const std::size_t slash = line.find('/');
    if (slash != std::string::npos && slash > 0 && std::isalpha(static_cast<unsigned char>(line[0])))
      return true;
    // A first move line of numbers: the plain format.
    if (std::isdigit(static_cast<unsigned char>(line[0])) || line[0] == '-' || line[0] == '+' ||
        line[0] == '.')
      return false;
  }
  return false;
}

}  // namespace k5x
