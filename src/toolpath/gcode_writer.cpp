#include "toolpath/gcode_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <system_error>

namespace k5x {

namespace {

struct ArcFit {
  double offset[2] = {0.0, 0.0};  // the centre from the first point, along the plane's axes
  // sweep in radians, counter-clockwise about the normal positive
  double radius = 0.0, sweep = 0.0, rise = 0.0;
};

// Fixed notation into [out, limit), rounded as printf rounds (to the nearest, ties to even, on
// the exact value); the end of the text, out itself when nothing could be written.
char* printf_fixed(char* out, char* limit, double value, int decimals) {
  if (char* end = fixed_as_printf(out, value, decimals)) return end;
  const auto r = std::to_chars(out, limit, value, std::chars_format::fixed, decimals);
  return r.ec == std::errc() ? r.ptr : out;
}

// The generic ISO dialect: every key a dialect may set, and the values others start from.
const char kIso[] =
    "# k5x G-code dialect: generic ISO\n"
    "comment_open = (\n"
    "comment_close = )\n"
    "program_start = %\n"
    "program_end = M30\n"
    "program_trailer = %\n"
    "units_mm = G21\n"
    "absolute = G90\n"
    "plane = G17\n"
    "plane_zx = G18\n"
    "plane_yz = G19\n"
    "arc_cw = G2\n"
    "arc_ccw = G3\n"
    "arc_centre = I J K\n"
    "work_offset = G54\n"
    "rapid = G0\n"
    "linear = G1\n"
    "inverse_time = G93\n"
    "per_minute = G94\n"
    "tcp_on = G43.4 H{tool}\n"
    "tcp_off = G49\n"
    "tool_change = T{tool} M6\n"
    "spindle_cw = S{speed} M3\n"
    "spindle_ccw = S{speed} M4\n"
    "spindle_off = M5\n"
    "coolant_flood = M8\n"
    "coolant_mist = M7\n"
    "coolant_off = M9\n"
    "axes = X Y Z A B C\n"
    "line_number = N\n";

// An open-source controller's conventions: program end M2, comments in parentheses, no trailer.
const char kRs274ngc[] =
    "# k5x G-code dialect: RS274/NGC conventions\n"
    "program_start = %\n"
    "program_end = M2\n"
    "program_trailer = %\n"
    "tcp_on = G43.4 H{tool}\n"
    "tcp_off = G49\n";

std::string trim(const std::string& s) {
  std::size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
  return s.substr(b, e - b);
}

std::string replace(std::string text, const char* key, const std::string& value) {
  for (std::size_t at; (at = text.find(key)) != std::string::npos;)
    text.replace(at, std::strlen(key), value);
  return text;
}

bool parse_into(const std::string& text, Dialect* out, std::string* error) {
  std::istringstream in(text);
  std::string line;
  for (long n = 1; std::getline(in, line); ++n) {
    line = trim(line);
    if (line.empty() || line[0] == '#') continue;
    const std::size_t eq = line.find('=');
    if (eq == std::string::npos) {
      *error = std::to_string(n) + ": expected 'key = value'";
      return false;
    }
    const std::string key = trim(line.substr(0, eq));
    if (out->words.find(key) == out->words.end()) {
      *error = std::to_string(n) + ": unknown key '" + key + "'";
      return false;
    }
    out->words[key] = trim(line.substr(eq + 1));
  }
  return true;
}

// The axes of each plane: the two it spans, in the order that makes a turn from the first
// towards the second counter-clockwise seen from the third, which is its normal.
constexpr int kPlaneAxes[3][3] = {{0, 1, 2}, {2, 0, 1}, {1, 2, 0}};

// The circle (or helix about the plane's normal) the points go round, in one sense, by less
// than half a turn from point to point and at most one in all, each within tolerance of it. Its
// centre is put where the first and last points are equally far from it, as a controller checks.
enum class Fit { arc, none, beyond_a_turn };

Fit fit_arc(const std::vector<std::array<double, 3>>& p, const double start[3], int plane,
            double tolerance, ArcFit* fit) {
  const int u = kPlaneAxes[plane][0], v = kPlaneAxes[plane][1], n = kPlaneAxes[plane][2];
  const std::size_t last = p.size() - 1;
  // The centre through the first point as it was placed (the written ones are too coarse to put
  // it within their own precision) and two more: a third and two thirds of the way, or the next
  // two where those fall a whole turn round onto the first.
  double ox = 0.0, oy = 0.0, best = 0.0;
  const std::size_t i1 = std::max<std::size_t>(1, last / 3);
  const std::size_t pairs[2][2] = {{i1, std::max(i1 + 1, 2 * last / 3)}, {1, 2}};
  for (const auto& pair : pairs) {
    const double bx = p[pair[0]][u] - start[u], by = p[pair[0]][v] - start[v];
    const double cx = p[pair[1]][u] - start[u], cy = p[pair[1]][v] - start[v];
    const double b2 = bx * bx + by * by, c2 = cx * cx + cy * cy;
    const double d = 2.0 * (bx * cy - by * cx);
    const double quality = std::fabs(d) / (b2 + c2);
    if (!(quality > best)) continue;
    best = quality;
    ox = (cy * b2 - by * c2) / d + start[u] - p[0][u];
    oy = (bx * c2 - cx * b2) / d + start[v] - p[0][v];
  }
  if (!(best > 1e-9)) return Fit::none;
  // Onto the perpendicular bisector of the first and last points, so that a controller finds
  // them equally far from the centre; unless they are one point (a whole circle).
  const double ex = p[last][u] - p[0][u], ey = p[last][v] - p[0][v];
  const double e = std::hypot(ex, ey);
  if (e > 1e-9) {
    // Round to an end this near the start, the bisector is too short a base to put the centre
    // on: in two halves.
    double reach = 0.0;
    for (const auto& q : p) reach = std::fmax(reach, std::hypot(q[u] - p[0][u], q[v] - p[0][v]));
    if (e < 0.25 * std::hypot(ox, oy) && reach > std::hypot(ox, oy)) return Fit::beyond_a_turn;
    const double wx = -ey / e, wy = ex / e, along = (ox - 0.5 * ex) * wx + (oy - 0.5 * ey) * wy;
    ox = 0.5 * ex + along * wx;
    oy = 0.5 * ey + along * wy;
  }
  const double r = std::hypot(ox, oy);
  const double cu = p[0][u] + ox, cv = p[0][v] + oy;
  if (!(r > tolerance)) return Fit::none;
  std::vector<double> turned(p.size(), 0.0);
  double sweep = 0.0, before = std::atan2(p[0][v] - cv, p[0][u] - cu);
  for (std::size_t i = 1; i <= last; ++i) {
    const double du = p[i][u] - cu, dv = p[i][v] - cv;
    if (!(std::fabs(std::hypot(du, dv) - r) <= tolerance)) return Fit::none;
    const double at = std::atan2(dv, du);
    double step = at - before;
    if (step > kPi) step -= 2.0 * kPi;
    if (step <= -kPi) step += 2.0 * kPi;
    before = at;
    if (!(std::fabs(step) > 1e-9 && std::fabs(step) < kPi - 1e-6) ||
        (i > 1 && (step > 0.0) != (sweep > 0.0)))
      return Fit::none;
    sweep += step;
    turned[i] = sweep;
  }
  if (std::fabs(sweep) > 2.0 * kPi + 1e-9) return Fit::beyond_a_turn;
  const double rise = p[last][n] - p[0][n];
  for (std::size_t i = 1; i <= last; ++i)
    if (!(std::fabs(p[i][n] - p[0][n] - rise * turned[i] / sweep) <= tolerance)) return Fit::none;
  fit->offset[0] = ox;
  fit->offset[1] = oy;
  fit->radius = r;
  fit->sweep = sweep;
  fit->rise = rise;
  return Fit::arc;
}

}  // namespace

const std::string& Dialect::get(const std::string& key) const {
  static const std::string kEmpty;
  const auto it = words.find(key);
  return it == words.end() ? kEmpty : it->second;
}

const char* shipped_dialect(const std::string& name) {
  if (name == "iso") return kIso;
  if (name == "rs274ngc") return kRs274ngc;
  return nullptr;
}

bool parse_dialect(const std::string& text, Dialect* out, std::string* error) {
  Dialect d;
  // The keys are the generic dialect's; a user's file changes some of them.
  std::istringstream in(kIso);
  std::string line;
  while (std::getline(in, line)) {
    const std::size_t eq = line.find('=');
    if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
    d.words[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
  }
  if (!parse_into(text, &d, error)) return false;
  std::istringstream axes(d.get("axes"));
  std::string letter;
  int count = 0;
  while (axes >> letter) ++count;
  if (count != 6) {
    *error = "axes: six letters needed (X Y Z A B C), found " + std::to_string(count);
    return false;
  }
  std::istringstream centre(d.get("arc_centre"));
  for (count = 0; centre >> letter;) ++count;
  if (count != 3) {
    *error = "arc_centre: three letters needed (I J K), found " + std::to_string(count);
    return false;
  }
  *out = d;
  return true;
}

GcodeWriter::GcodeWriter(OutBuffer* out, const Dialect& dialect, const GcodeOptions& options)
    : out_(out), dialect_(dialect), opt_(options) {
  std::istringstream letters(dialect_.get("axes"));
  std::size_t longest_letter = 0;
  for (std::string& letter : letter_) {
    letters >> letter;
    longest_letter = std::max(longest_letter, letter.size());
  }
  std::istringstream centre(dialect_.get("arc_centre"));
  for (std::string& letter : centre_letter_) {
    centre >> letter;
    longest_letter = std::max(longest_letter, letter.size());
  }
  rapid_ = dialect_.get("rapid");
  linear_ = dialect_.get("linear");
  inverse_time_ = dialect_.get("inverse_time");
  per_minute_ = dialect_.get("per_minute");
  arc_cw_ = dialect_.get("arc_cw");
  arc_ccw_ = dialect_.get("arc_ccw");
  planes_[0] = dialect_.get("plane");
  planes_[1] = dialect_.get("plane_zx");
  planes_[2] = dialect_.get("plane_yz");
  // A dialect without arc words (a controller without circular moves) keeps the chords.
  for (const std::string* w : {&arc_cw_, &arc_ccw_, &planes_[0], &planes_[1], &planes_[2]})
    if (w->empty()) opt_.arcs = false;
  // A number in fixed notation has at most 309 digits before the point and 9 after it.
  word_room_ = longest_letter + 400;
  lead_room_ = std::max(inverse_time_.size(), per_minute_.size()) + 1 +
               std::max({rapid_.size(), linear_.size(), arc_cw_.size(), arc_ccw_.size()}) + 1 +
               std::max({planes_[0].size(), planes_[1].size(), planes_[2].size()});
  word_.resize(word_room_);
  last_words_.resize(6 * word_room_);
  // The axis words, an arc's two centre words and the feed.
  line_.resize(lead_room_ + 8 * (1 + word_room_) + 1 + kFeedRoom);
}

void GcodeWriter::block(std::string_view text, bool numbered) {
  if (text.empty()) return;
  if (numbered && opt_.line_numbers) {
    line_number_ += 10;
    out_->put(dialect_.get("line_number").c_str());
    out_->put_int(line_number_);
    out_->put(' ');
  }
  out_->put(text.data(), text.size());
  out_->put('\n');
  ++blocks_;
}

void GcodeWriter::comment(const std::string& text) {
  std::string clean;
  const std::string& close = dialect_.get("comment_close");
  for (char c : text) {
    // Nothing in a comment may end it early, break the line or reach the controller as a
    // control code.
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f || (!close.empty() && close.find(c) != std::string::npos) ||
        dialect_.get("comment_open").find(c) != std::string::npos)
      c = ' ';
    clean += c;
  }
  out_->put(dialect_.get("comment_open").c_str());
  out_->put(clean.c_str());
  out_->put(close.c_str());
  out_->put('\n');
}

std::string_view GcodeWriter::word(int axis, double value) {
  return number_word(letter_[axis], axis < 3 ? opt_.length_decimals : opt_.angle_decimals, value);
}

std::string_view GcodeWriter::number_word(const std::string& letter, int decimals, double value) {
  char* w = word_.data();
  std::memcpy(w, letter.data(), letter.size());
  char* number = w + letter.size();
  char* end = printf_fixed(number, w + word_room_, value, decimals);
  // -0.000 is 0.000 to a controller, but not to a reader comparing words.
  if (number < end && *number == '-') {
    bool zero = true;
    for (const char* c = number + 1; c < end; ++c)
      if (*c >= '1' && *c <= '9') zero = false;
    if (zero) {
      std::memmove(number, number + 1, static_cast<std::size_t>(end - number - 1));
      --end;
    }
  }
  return {w, static_cast<std::size_t>(end - w)};
}

bool GcodeWriter::changed(int k, std::string_view w) {
  char* last = &last_words_[static_cast<std::size_t>(k) * word_room_];
  if (last_size_[k] == w.size() && std::memcmp(last, w.data(), w.size()) == 0) return false;
  std::memcpy(last, w.data(), w.size());
  last_size_[k] = w.size();
  return true;
}

std::size_t GcodeWriter::changed_words(const double v[6], int from, int to) {
  std::size_t end = lead_room_;
  for (int k = from; k < to; ++k) {
    if (!opt_.has_axis[k]) continue;
    // The same value has the same word, the one last written or found unchanged.
    std::uint64_t bits;
    std::memcpy(&bits, &v[k], sizeof bits);
    if (have_value_[k] && bits == last_value_[k]) continue;
    last_value_[k] = bits;
    have_value_[k] = true;
    const std::string_view w = word(k, v[k]);
    if (!changed(k, w)) continue;
    line_[end++] = ' ';
    std::memcpy(&line_[end], w.data(), w.size());
    end += w.size();
  }
  return end;
}

void GcodeWriter::put_before(std::size_t* start, std::string_view text) {
  *start -= text.size();
  std::memcpy(&line_[*start], text.data(), text.size());
}

void GcodeWriter::begin() {
  block(dialect_.get("program_start"), false);
  std::istringstream header(opt_.header);
  for (std::string line; std::getline(header, line);) comment(line);
  block(dialect_.get("units_mm") + " " + dialect_.get("absolute") + " " + dialect_.get("plane"));
  block(dialect_.get("work_offset"));
}

void GcodeWriter::event(const AptEvent& e) { pending_.push_back(e); }

void GcodeWriter::flush_events(long index, bool all) {
  while (pending_next_ < pending_.size() && (all || pending_[pending_next_].before <= index))
    write_event(pending_[pending_next_++]);
  if (pending_next_ == pending_.size()) {
    pending_.clear();
    pending_next_ = 0;
  }
}

void GcodeWriter::write_event(const AptEvent& e) {
  char speed[32];
  switch (e.kind) {
    case AptEvent::comment:
      comment(e.text);
      break;
    case AptEvent::tool_load:
      tool_ = e.tool;
      // The old tool goes up before the change, wherever it stood, and the new one comes to
      // its first position as the first tool does: up, rotary axes, over, down.
      if (have_last_ && opt_.retract && !opt_.tcp) {
        retract_to_height();
        have_last_ = false;
      }
      if (!e.text.empty()) comment(e.text);
      if (tcp_on_) block(dialect_.get("tcp_off"));
      tcp_on_ = false;
      block(replace(dialect_.get("tool_change"), "{tool}", std::to_string(e.tool)));
      break;
    case AptEvent::spindle:
      std::snprintf(speed, sizeof speed, "%.0f", std::fabs(e.speed));
      if (!e.started) {
        block(dialect_.get("spindle_off"));
      } else if (e.speed == 0.0) {
        // On at a speed the toolpath has not given: the code without its S word.
        std::string code = dialect_.get(std::signbit(e.speed) ? "spindle_ccw" : "spindle_cw");
        code = replace(code, "S{speed}", "");
        code.erase(0, code.find_first_not_of(' '));
        block(code);
      } else {
        block(replace(dialect_.get(e.speed > 0.0 ? "spindle_cw" : "spindle_ccw"), "{speed}", speed));
      }
      spindle_started_ = spindle_started_ || e.started;
      spindle_stopped_ = !e.started;
      break;
    case AptEvent::coolant:
      block(dialect_.get(e.coolant_mode == 0 ? "coolant_off"
                         : e.coolant_mode == 2 ? "coolant_mist" : "coolant_flood"));
      coolant_stopped_ = e.coolant_mode == 0;
      break;
    case AptEvent::end_of_path:
      comment("end of path");
      break;
    case AptEvent::end_of_program:
      break;
    case AptEvent::insert:
      block(e.text);
      break;
  }
}

void GcodeWriter::position(const PlannedPosition& p) {
  if (opt_.arcs) {
    if (p.arc == ArcPart::rest && !held_.empty()) {
      // Far more chords than any circle needs (the turns of a helix, a tiny tolerance): they
      // are written as they come rather than held.
      if (held_.size() >= kMostChordsHeld) {
        for (const PlannedPosition& h : held_) write_position(h);
        held_.clear();
        write_position(p);
        return;
      }
      held_.push_back(p);
      return;
    }
    write_held();
    if (p.arc == ArcPart::first) {
      held_.push_back(p);
      return;
    }
  }
  write_position(p);
}

void GcodeWriter::write_position(const PlannedPosition& p) {
  flush_events(p.index, false);
  if (!p.reachable) {
    comment("line " + std::to_string(p.line) + ": no solution for the tool axis, move skipped");
    return;
  }
  if (opt_.tcp && !tcp_on_) {
    block(replace(dialect_.get("tcp_on"), "{tool}", std::to_string(tool_)));
    tcp_on_ = true;
  }
  double v[6];
  for (int k = 0; k < 6; ++k) v[k] = p.axes[k];
  if (opt_.tcp)
    for (int k = 0; k < 3; ++k) v[k] = p.tip[k];
  // The first position is reached from wherever the machine stands: a positioning move,
  // retracted first where there is a height to retract to. A first position that is a cut is
  // approached that way to a clearance above it, and entered at the feed.
  const bool approach = !have_last_ && !p.rapid && !p.inserted;
  const bool rapid = (p.rapid || !have_last_) && !p.inserted;
  double turn = 0.0;
  for (int k = 3; k < 6 && have_last_; ++k)
    if (opt_.has_axis[k]) turn = std::fmax(turn, std::fabs(p.axes[k] - last_axes_[k]));
  const bool unwind = p.unwind && !p.inserted;
  const bool retract =
      opt_.retract && !opt_.tcp && (!have_last_ || turn > opt_.retract_degrees);
  if (unwind && !retract)
    comment("line " + std::to_string(p.line) + ": the rotary axes must turn round in the cut; " +
            (opt_.tcp ? "with tool-centre-point control the tool is not retracted"
                      : "--retract-z retracts the tool first"));
  if (rapid && !unwind && !opt_.retract && !opt_.tcp && turn > opt_.retract_degrees) {
    ++unretracted_swings_;
    char degrees[32];
    std::snprintf(degrees, sizeof degrees, "%.0f", turn);
    comment("line " + std::to_string(p.line) + ": the rotary axes swing " + degrees +
            " degrees in this rapid with no height to retract to; --retract-z retracts the "
            "tool first");
  }
  const double feed = p.feed > 0.0 ? p.feed : opt_.default_feed;
  // The tip's way into the block written last: the straight line between the tips.
  double length = 0.0;
  for (int k = 0; k < 3 && have_last_; ++k)
    length += (p.tip[k] - last_tip_[k]) * (p.tip[k] - last_tip_[k]);
  length = std::sqrt(length);
  if ((rapid || unwind) && retract) {
    if (unwind) {
      // In the cut: out along the tool axis at the feed first.
      motion_block(p.leave, false, distance3(p.leave, last_axes_), 0.0, feed);
    }
    // Clear of the workpiece before the rotary axes swing round.
    retract_to_height();
    rapid_words(v, 3, 6);
    if (unwind) {
      // Over the place to come back to, down to the clearance above it, and in along the
      // tool axis at the feed.
      rapid_words(p.enter, 0, 2);
      rapid_words(p.enter, 2, 3);
      length = distance3(p.enter, p.axes);
      turn = 0.0;
    } else {
      // Over the place before going down to it.
      rapid_words(v, 0, 2);
    }
  }
  if (approach) {
    double above[6];
    for (int k = 0; k < 6; ++k) above[k] = v[k];
    above[2] += opt_.approach_clearance;
    rapid_words(above, 0, 6);
    length = opt_.approach_clearance;
  }
  if (p.travel_code != 0 && p.line != out_of_travel_line_) {
    // Written as planned, for the controller's own limits to stop; said once per move.
    out_of_travel_line_ = p.line;
    std::string axes;
    for (int k = 0; k < 6; ++k)
      if (p.travel_flags[k] != 0)
        axes += std::string(" ") + "XYZABC"[k] + (p.travel_flags[k] > 0 ? "+" : "-");
    comment("line " + std::to_string(p.line) + ": out of travel:" + axes);
  }
  // Nothing moves at the written precision: the next block is measured from the last written.
  if (!motion_block(v, rapid && !approach, length, turn, feed)) return;
  for (int k = 0; k < 6; ++k) last_axes_[k] = p.axes[k];
  for (int k = 0; k < 3; ++k) last_tip_[k] = p.tip[k];
  have_last_ = true;
}

void GcodeWriter::write_held() {
  if (held_.empty()) return;
  write_chords(0, held_.size());
  held_.clear();
}

void GcodeWriter::write_chords(std::size_t begin, std::size_t end) {
  const int written = write_arc(begin, end);
  if (written == 1) return;
  // The turns of a helix: an arc each, or less.
  if (written == 2 && end - begin >= 4) {
    const std::size_t middle = begin + (end - begin) / 2;
    write_chords(begin, middle);
    write_chords(middle, end);
    return;
  }
  for (std::size_t i = begin; i < end; ++i) write_position(held_[i]);
}

bool GcodeWriter::same_word(int k, double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  if (have_value_[k] && bits == last_value_[k]) return true;
  const std::string_view w = word(k, value);
  const char* last = &last_words_[static_cast<std::size_t>(k) * word_room_];
  return last_size_[k] == w.size() && std::memcmp(last, w.data(), w.size()) == 0;
}

int GcodeWriter::write_arc(std::size_t begin, std::size_t end) {
  const PlannedPosition& first = held_[begin];
  const PlannedPosition& last = held_[end - 1];
  const std::size_t count = end - begin;
  if (!have_last_ || count < 2) return 0;
  for (std::size_t i = begin; i < end; ++i) {
    const PlannedPosition& h = held_[i];
    if (!h.reachable || h.rapid || h.inserted || h.unwind || h.travel_code != 0 ||
        !(h.feed == first.feed))
      return 0;
    for (int k = 3; k < 6; ++k)
      if (opt_.has_axis[k] && !same_word(k, h.axes[k])) return 0;
  }
  flush_events(first.index, false);
  // Nothing may come between the chords, and the tool-centre-point mode must already be on.
  if (pending_next_ < pending_.size() && pending_[pending_next_].before <= last.index)
    return 0;
  if (opt_.tcp && !tcp_on_) return 0;
  // Where the controller stands as written, the chords' ends as placed and the last as written.
  std::vector<std::array<double, 3>> points(count + 1);
  const double* start = opt_.tcp ? last_tip_ : last_axes_;
  for (int k = 0; k < 3; ++k) {
    const std::size_t letter = letter_[k].size();
    const std::string written(&last_words_[static_cast<std::size_t>(k) * word_room_] + letter,
                              last_size_[k] > letter ? last_size_[k] - letter : 0);
    points[0][k] = std::strtod(written.c_str(), nullptr);
    for (std::size_t i = 0; i < count; ++i)
      points[i + 1][k] = opt_.tcp ? held_[begin + i].tip[k] : held_[begin + i].axes[k];
    const std::string_view w = word(k, points.back()[k]);
    points.back()[k] = std::strtod(std::string(w.substr(letter)).c_str(), nullptr);
  }
  ArcFit fit;
  int plane = 0;
  bool beyond_a_turn = false;
  auto fits = [&](int q) {
    if (!opt_.has_axis[kPlaneAxes[q][0]] || !opt_.has_axis[kPlaneAxes[q][1]]) return false;
    const Fit f = fit_arc(points, start, q, opt_.arc_tolerance, &fit);
    beyond_a_turn = beyond_a_turn || f == Fit::beyond_a_turn;
    return f == Fit::arc;
  };
  while (plane < 3 && !fits(plane)) ++plane;
  if (plane == 3) return beyond_a_turn ? 2 : 0;
  std::string tail;
  // The centre words in the order of their axes: I before K in the ZX plane.
  for (int j = 0; j < 2; ++j) {
    const int i = plane == 1 ? 1 - j : j;
    const int k = kPlaneAxes[plane][i];
    tail += ' ';
    tail += number_word(centre_letter_[k], opt_.length_decimals, fit.offset[i]);
    // The end in the plane is written even where it is the start: a whole circle says so.
    have_value_[k] = false;
    last_size_[k] = 0;
  }
  double v[6];
  for (int k = 0; k < 6; ++k) v[k] = last.axes[k];
  if (opt_.tcp)
    for (int k = 0; k < 3; ++k) v[k] = last.tip[k];
  const double length = std::hypot(fit.radius * fit.sweep, fit.rise);
  const double feed = first.feed > 0.0 ? first.feed : opt_.default_feed;
  const std::string_view plane_word = plane == plane_ ? std::string_view() : planes_[plane];
  motion_block(v, fit.sweep > 0.0 ? arc_ccw_ : arc_cw_, plane_word, tail, length, 0.0, feed);
  plane_ = plane;
  ++arcs_;
  for (int k = 0; k < 6; ++k) last_axes_[k] = last.axes[k];
  for (int k = 0; k < 3; ++k) last_tip_[k] = last.tip[k];
  return 1;
}

double GcodeWriter::distance3(const double a[6], const double b[6]) {
  double d = 0.0;
  for (int k = 0; k < 3; ++k) d += (a[k] - b[k]) * (a[k] - b[k]);
  return std::sqrt(d);
}

void GcodeWriter::retract_to_height() {
  const std::string_view z = word(2, opt_.retract_z);
  block(rapid_ + " " + std::string(z));
  changed(2, z);
  have_value_[2] = false;
  last_motion_ = &rapid_;
}

void GcodeWriter::rapid_words(const double v[6], int from, int to) {
  const std::size_t end = changed_words(v, from, to);
  if (end == lead_room_) return;
  std::size_t start = lead_room_;
  put_before(&start, rapid_);
  block({&line_[start], end - start});
  last_motion_ = &rapid_;
}

bool GcodeWriter::motion_block(const double v[6], bool rapid, double length, double turn,
                               double feed) {
  return motion_block(v, rapid ? rapid_ : linear_, {}, {}, length, turn, feed);
}

bool GcodeWriter::motion_block(const double v[6], const std::string& motion,
                               std::string_view plane, std::string_view tail, double length,
                               double turn, double feed) {
  std::size_t end = changed_words(v, 0, 6);
  if (end == lead_room_ && tail.empty()) return false;
  if (!tail.empty()) {  // an empty view may hold no pointer at all
    std::memcpy(&line_[end], tail.data(), tail.size());
    end += tail.size();
  }
  const bool rapid = &motion == &rapid_;
  std::size_t start = lead_room_;
  // An arc names its motion every time: its centre words mean nothing without it.
  if (!tail.empty() || (last_motion_ != &motion && *last_motion_ != motion))
    put_before(&start, motion);
  else
    ++start;  // the motion is modal: the block starts with its first word
  if (!plane.empty()) {
    put_before(&start, " ");
    put_before(&start, plane);
  }
  if (!rapid) {
    const int mode = opt_.feed == FeedMode::inverse_time ? 0 : 1;
    char f[kFeedRoom];
    f[0] = 'F';
    // F is one over the minutes the move takes: the tip's path at the programmed feed, and at
    // least what the rotary axes need at 10 turns a minute, so a turn in place is not asked to
    // happen at once.
    const double value =
        mode == 0 ? 1.0 / std::fmax(std::fmax(length / feed, turn / 3600.0), 1e-6) : feed;
    // Three significant digits at least: an F of nothing is no feed (a move of hours).
    int decimals = mode == 0 ? 3 : 1;
    if (value > 0.0 && value < 1.0) {
      const int digits = 2 - static_cast<int>(std::floor(std::log10(value)));
      decimals = std::min(9, std::max(decimals, digits));
    }
    const char* f_end = printf_fixed(f + 1, f + sizeof f, value, decimals);
    const std::size_t n = static_cast<std::size_t>(f_end - f);
    if (mode != last_feed_mode_) {
      put_before(&start, " ");
      put_before(&start, mode == 0 ? inverse_time_ : per_minute_);
      last_feed_mode_ = mode;
      last_feed_size_ = 0;
    }
    // In inverse time every feed block carries its F; per minute only a change does.
    if (mode == 0 || last_feed_size_ != n || std::memcmp(last_feed_, f, n) != 0) {
      line_[end++] = ' ';
      std::memcpy(&line_[end], f, n);
      end += n;
    }
    std::memcpy(last_feed_, f, n);
    last_feed_size_ = n;
  }
  block({&line_[start], end - start});
  last_motion_ = &motion;
  return true;
}

void GcodeWriter::end() {
  write_held();
  flush_events(0, true);
  // The program leaves the tool up, clear of the workpiece, where there is a height to go to.
  if (have_last_ && opt_.retract && !opt_.tcp && !same_word(2, opt_.retract_z)) retract_to_height();
  if (tcp_on_) block(dialect_.get("tcp_off"));
  // Stopped at the end whatever the toolpath did, but not twice in a row.
  std::string stop;
  if (!spindle_stopped_) stop = dialect_.get("spindle_off");
  if (!coolant_stopped_) stop += (stop.empty() ? "" : " ") + dialect_.get("coolant_off");
  if (!stop.empty()) block(stop);
  block(dialect_.get("program_end"));
  block(dialect_.get("program_trailer"), false);
}

}  // namespace k5x
