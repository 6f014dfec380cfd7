#include "machine/loader.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "kernel/kernel.h"

namespace k5x {

namespace {

// Load codes (0 = loaded).
constexpr int kLoadCannotOpen = 1;
constexpr int kLoadFrameNotFirst = 2;
constexpr int kLoadTooManyRecords = 3;
constexpr int kLoadTooManyChildren = 4;
constexpr int kLoadBadAxisName = 5;
constexpr int kLoadZeroAxisDirection = 6;
constexpr int kLoadToolWithoutParent = 7;
constexpr int kLoadZeroToolDirection = 8;
constexpr int kLoadWorkpieceWithoutParent = 9;
constexpr int kLoadBadWorkpieceDirections = 10;
constexpr int kLoadBadLink = 11;
constexpr int kLoadMissingAnchor = 12;
constexpr int kLoadNoCollisionRecord = 15;
constexpr int kLoadEmptyName = 16;
constexpr int kLoadNumberTooLong = 17;

// A number field is read through a buffer of this many characters plus terminator.
constexpr std::size_t kMaxNumberField = 255;
// fgets with this buffer reads at most 511 characters: longer lines come in pieces.
constexpr int kLineBuffer = 512;

// Travel values beyond these mean "no limit" and are stored as +-1e10.
constexpr double kLinearTravelBound = 999999.999;
constexpr double kRotaryTravelBound = 99000.0;
constexpr double kNoLimit = 1e10;

enum class Keyword {
  kUnknown,
  kNomMachine,
  kCourseMaximum,
  kCourseMinimum,
  kCourseTolerance,
  kTolerance,
  kIncrement,
  kIncrementMaxDeviation,
  kLongueur,
  kPositionInitiale,
  kStrategie,
  kMode,
  kRtcp,
  kBati,
  kAxe,
  kRotation,
  kOutil,
  kPiece,
  kLien,
  kPosition,
  kPointChangementOutil,
  kCollision,
};

struct KeywordName {
  const char* text;
  Keyword keyword;
};

const KeywordName kKeywords[] = {
    {"nommachine", Keyword::kNomMachine},
    {"coursemaximum", Keyword::kCourseMaximum},
    {"courseminimum", Keyword::kCourseMinimum},
    {"coursetolerance", Keyword::kCourseTolerance},
    {"tolerance", Keyword::kTolerance},
    {"increment", Keyword::kIncrement},
    {"incrementmaximumdeviation", Keyword::kIncrementMaxDeviation},
    {"longueur", Keyword::kLongueur},
    {"positioninitiale", Keyword::kPositionInitiale},
    {"strategie", Keyword::kStrategie},
    {"mode", Keyword::kMode},
    {"rtcp", Keyword::kRtcp},
    {"bati", Keyword::kBati},
    {"axe", Keyword::kAxe},
    {"rotation", Keyword::kRotation},
    {"outil", Keyword::kOutil},
    {"piece", Keyword::kPiece},
    {"lien", Keyword::kLien},
    {"position", Keyword::kPosition},
    {"pointchangementoutil", Keyword::kPointChangementOutil},
    {"collision", Keyword::kCollision},
};

Keyword keyword_of(const char* text) {
  for (const KeywordName& k : kKeywords)
    if (std::strcmp(text, k.text) == 0) return k.keyword;
  return Keyword::kUnknown;
}

// What the reader carries from one line to the next.
struct LoadContext {
  int current = kNone;  // record that new records hang below
  double position[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  bool has_position = false;
};

bool is_blank(char c) { return c == ' ' || c == '\r' || c == '\n'; }

// "%lf", with text it cannot read taken as 0.0.
double parse_double(const char* text) {
  double v = 0.0;
  if (std::sscanf(text, "%lf", &v) != 1) v = 0.0;
  return v;
}

// Truncation toward zero that stays defined for NaN and out-of-range values. NaN gives INT_MIN,
// as the hardware conversion does, so that it is no valid mode or rtcp value.
int to_int(double v) {
  if (!(v == v)) return INT_MIN;
  if (v >= 2147483647.0) return INT_MAX;
  if (v <= -2147483648.0) return INT_MIN;
  return static_cast<int>(v);
}

// Letter form of a direction: 1..3 for "X".."Z", -1..-3 for "-X".."-Z", 0 otherwise. Only the
// first one or two characters count, so "Xaxis" is X.
int letter_direction(const char* f) {
  const char c = f[0] == '-' ? f[1] : f[0];
  const int k = c == 'X' ? 1 : c == 'Y' ? 2 : c == 'Z' ? 3 : 0;
  return f[0] == '-' ? -k : k;
}

// A letter form, or three numbers normalised with the library epsilon. Returns 0, zero_code for
// a numeric direction of zero length, or the code of an over-long number field.
int read_direction(const State& st, const char* line, std::size_t* pos, double v[3],
                   int zero_code) {
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const int k = letter_direction(field);
  if (k != 0) {
    vunit(k, v);
    return 0;
  }
  v[0] = parse_double(field);
  if (next_number(line, pos, &v[1]) < 0 || next_number(line, pos, &v[2]) < 0)
    return kLoadNumberTooLong;
  return vnormalize(v, st.eps) != 0 ? zero_code : 0;
}

// Reads n numbers; false when one of them is too long to read.
bool read_numbers(const char* line, std::size_t* pos, double* out, int n) {
  for (int i = 0; i < n; ++i)
    if (next_number(line, pos, &out[i]) < 0) return false;
  return true;
}

// A record or machine name; longer ones are cut at 511 characters.
void read_name(const char* line, std::size_t* pos, char (&name)[kNameSize]) {
  next_field(line, pos, name, sizeof name, true);
}

// The link of `parent` that leads to `child`, or null.
Link* link_to(State& st, int parent, int child) {
  if (parent < 0 || parent >= kMaxRecords) return nullptr;
  AxisRecord& p = st.machine.records[parent];
  for (int k = 0; k < p.link_count && k < kMaxLinks; ++k)
    if (p.links[k].child == child) return &p.links[k];
  return nullptr;
}

// Appends a record of the given kind below parent. Returns its index, or a negative value with
// the load code in *code (a record refused for a third child stays appended, fresh, unlinked).
int new_record(State& st, int parent, int kind, int* code) {
  const int r = record_new(st, parent);
  if (r == -1) *code = kLoadTooManyRecords;
  if (r == -2) *code = kLoadTooManyChildren;
  if (r >= 0) st.machine.records[r].kind = kind;
  return r;
}

// Rotation whose columns are c0, c1, c2.
void set_columns(double m[9], const double c0[3], const double c1[3], const double c2[3]) {
  for (int r = 0; r < 3; ++r) {
    m[3 * r] = c0[r];
    m[3 * r + 1] = c1[r];
    m[3 * r + 2] = c2[r];
  }
}

int apply_frame(State& st, LoadContext& ctx, const char* line, std::size_t* pos) {
  if (st.machine.record_count > 0) return kLoadFrameNotFirst;
  int code = 0;
  const int i = new_record(st, kNone, kKindFrame, &code);
  if (i < 0) return code;
  AxisRecord& r = st.machine.records[i];
  ctx.current = i;
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, z[3] = {0, 0, 1};
  const double mx[3] = {-1, 0, 0}, my[3] = {0, -1, 0};
  const double half_pi = kPi / 2.0;
  const int k = letter_direction(field);
  switch (k) {
    case -1:
      rotate_frame(y, half_pi, r.frame, st.eps);
      break;
    case -2:
      rotate_frame(mx, half_pi, r.frame, st.eps);
      break;
    case -3:
      rotate_frame(x, kPi, r.frame, st.eps);
      break;
    case 1:
      rotate_frame(my, half_pi, r.frame, st.eps);
      rotate_frame(z, kPi, r.frame, st.eps);
      break;
    case 2:
      rotate_frame(y, kPi, r.frame, st.eps);
      rotate_frame(x, half_pi, r.frame, st.eps);
      break;
    default:
      break;  // "Z" and anything else: identity frame, zero direction
  }
  if (k != 3) vunit(k, r.direction);
  read_name(line, pos, r.name);
  return 0;
}

int apply_axis(State& st, LoadContext& ctx, const char* line, std::size_t* pos, bool rotary) {
  int code = 0;
  // A rejected name still leaves an axis record (letter -1): left at the fresh kind 0 it would
  // be taken for the frame when the anchors are derived after the failed line.
  const int i = new_record(st, ctx.current, rotary ? kKindRotary : kKindLinear, &code);
  if (i < 0) return code;
  AxisRecord& r = st.machine.records[i];
  ctx.current = i;
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const int id = axis_id_by_name(field);
  if (id < kIdX || id > kIdC) return kLoadBadAxisName;
  r.axis = id - 1;
  if (const int c = read_direction(st, line, pos, r.direction, kLoadZeroAxisDirection)) return c;
  double v[3];
  if (rotary) {
    r.factor = kDegToRad;
    if (!read_numbers(line, pos, v, 2)) return kLoadNumberTooLong;
    r.law = to_int(v[0]);
    r.sense = to_int(v[1]);
    if (!read_numbers(line, pos, r.point, 3)) return kLoadNumberTooLong;
  }
  read_name(line, pos, r.name);
  // Missing colour fields read as 0, not as the fresh record's grey.
  if (!read_numbers(line, pos, v, 3)) return kLoadNumberTooLong;
  for (int c = 0; c < 3; ++c) r.color[c] = to_int(v[c]);
  return 0;
}

int apply_tool(State& st, const LoadContext& ctx, const char* line, std::size_t* pos) {
  if (ctx.current < 0) return kLoadToolWithoutParent;
  int code = 0;
  const int i = new_record(st, ctx.current, kKindTool, &code);
  if (i < 0) return code;
  AxisRecord& r = st.machine.records[i];
  double d[3];
  if (const int c = read_direction(st, line, pos, d, kLoadZeroToolDirection)) return c;
  vcopy(d, r.direction);
  // Both fallbacks fail for a tool along +-Y, leaving u and v zero; callers rely on that.
  const double minus_y[3] = {0, -1, 0}, plus_y[3] = {0, 1, 0};
  double u[3], v[3];
  vcross(d, minus_y, u);
  if (vnormalize(u, st.eps) != 0) {
    vcross(d, plus_y, u);
    vnormalize(u, st.eps);
  }
  vcross(d, u, v);
  if (Link* l = link_to(st, ctx.current, i)) set_columns(l->rotation, u, v, d);
  if (!read_numbers(line, pos, r.point, 3)) return kLoadNumberTooLong;
  return 0;
}

int apply_workpiece(State& st, const LoadContext& ctx, const char* line, std::size_t* pos) {
  if (ctx.current < 0) return kLoadWorkpieceWithoutParent;
  int code = 0;
  const int i = new_record(st, ctx.current, kKindWorkpiece, &code);
  if (i < 0) return code;
  AxisRecord& r = st.machine.records[i];
  double a[3], b[3];
  for (double* dir : {a, b}) {
    if (const int c = read_direction(st, line, pos, dir, kLoadBadWorkpieceDirections)) return c;
  }
  double n[3], w[3];
  vcross(a, b, n);
  if (vnormalize(n, st.eps) != 0) return kLoadBadWorkpieceDirections;
  vcross(n, a, w);
  vcopy(a, r.direction);
  vcopy(b, r.direction2);
  if (Link* l = link_to(st, ctx.current, i)) set_columns(l->rotation, a, w, n);
  if (!read_numbers(line, pos, r.point, 3)) return kLoadNumberTooLong;
  return 0;
}

int apply_link(State& st, LoadContext& ctx, const char* line, std::size_t* pos) {
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  if (axis_id_by_name(field) != kIdFrame) return kLoadBadLink;
  const Model& m = st.machine;
  for (int i = 0; i < m.record_count; ++i) {
    if (m.records[i].kind == kKindFrame) {
      ctx.current = i;
      return 0;
    }
  }
  return kLoadMissingAnchor;
}

// Whether record r is what the identifier names, before any anchor exists.
bool record_matches(const AxisRecord& r, int id) {
  switch (id) {
    case kIdTool:
      return r.kind == kKindTool;
    case kIdWorkpiece:
      return r.kind == kKindWorkpiece;
    case kIdFrame:
      return r.kind == kKindFrame;
    default:
      return (r.kind == kKindRotary || r.kind == kKindLinear) && r.axis == id - 1;
  }
}

// Collision flag index for an identifier: X..C 0..5, frame 6, workpiece 7, tool 8; -1 unknown.
int collision_slot(int id) {
  if (id >= kIdX && id <= kIdC) return id - 1;
  if (id == kIdFrame) return 6;
  if (id == kIdWorkpiece) return 7;
  if (id == kIdTool) return 8;
  return -1;
}

int apply_collision(State& st, const char* line, std::size_t* pos) {
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const int id = axis_id_by_name(field);
  Model& m = st.machine;
  int target = kNone;
  if (id != kIdUnknown)
    for (int i = 0; i < m.record_count; ++i)
      if (record_matches(m.records[i], id)) target = i;  // the last one created wins
  if (target == kNone) return kLoadNoCollisionRecord;
  while (next_field(line, pos, field, sizeof field, true) > 0) {
    const int slot = collision_slot(axis_id_by_name(field));
    if (slot >= 0) m.records[target].collision[slot] = 1;
  }
  return 0;
}

void apply_travel(State& st, const char* line, std::size_t* pos, bool maximum, int* code) {
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const int id = axis_id_by_name(field);
  double v = 0.0;
  if (next_number(line, pos, &v) < 0) {
    *code = kLoadNumberTooLong;
    return;
  }
  if (id < kIdX || id > kIdC) return;
  const double bound = id <= kIdZ ? kLinearTravelBound : kRotaryTravelBound;
  if (v < -bound) v = -kNoLimit;
  if (v > bound) v = kNoLimit;
  (maximum ? st.machine.travel_max : st.machine.travel_min)[id - 1] = v;
}

void apply_increment(State& st, const char* line, std::size_t* pos, int* code) {
  char field[kNameSize];
  next_field(line, pos, field, sizeof field, true);
  const int id = axis_id_by_name(field);
  double step = 0.0;
  if (next_number(line, pos, &step) < 0) {
    *code = kLoadNumberTooLong;
    return;
  }
  if (id < kIdA || id > kIdC) return;
  Model& m = st.machine;
  if (!(step > st.eps)) {
    set_increment_behaviour(st, 1, -1.0);
    return;
  }
  // The step goes to the first rotary axis of that letter; before its `rotation` line there is
  // none, and the line does nothing at all.
  for (int i = 0; i < m.record_count; ++i) {
    AxisRecord& r = m.records[i];
    if (r.kind == kKindRotary && r.axis == id - 1) {
      r.increment = step;
      set_increment_behaviour(st, 1, -1.0);
      return;
    }
  }
}

// One line of the file; returns 0 or the code that stops the reading.
int apply_line(State& st, LoadContext& ctx, const char* line) {
  std::size_t pos = 0;
  char keyword[kNameSize];
  if (next_field(line, &pos, keyword, sizeof keyword, true) == 0) return 0;
  Model& m = st.machine;
  int code = 0;
  double v[6];
  const Keyword kw = keyword_of(keyword);
  switch (kw) {
    case Keyword::kUnknown:
      return 0;
    case Keyword::kNomMachine: {
      char name[kNameSize];
      read_name(line, &pos, name);
      if (name[0] == '\0') return kLoadEmptyName;
      std::memcpy(m.name, name, sizeof name);
      return 0;
    }
    case Keyword::kCourseMaximum:
    case Keyword::kCourseMinimum:
      apply_travel(st, line, &pos, kw == Keyword::kCourseMaximum, &code);
      return code;
    case Keyword::kCourseTolerance:
      if (!read_numbers(line, &pos, v, 1)) return kLoadNumberTooLong;
      m.travel_tol = v[0];
      return 0;
    case Keyword::kTolerance:
      if (!read_numbers(line, &pos, v, 1)) return kLoadNumberTooLong;
      m.tolerance = v[0];
      return 0;
    case Keyword::kIncrement:
      apply_increment(st, line, &pos, &code);
      return code;
    case Keyword::kIncrementMaxDeviation: {
      const int read = next_number(line, &pos, &v[0]);
      if (read < 0) return kLoadNumberTooLong;
      if (read == 0) return 0;  // an empty field leaves everything as it is
      if (v[0] > 0.0)
        set_increment_behaviour(st, get_increment_behaviour(st), v[0]);
      else
        set_increment_behaviour(st, 2, -1.0);
      return 0;
    }
    case Keyword::kLongueur:
      if (!read_numbers(line, &pos, v, 1)) return kLoadNumberTooLong;
      m.tool_length = v[0];
      return 0;
    case Keyword::kPositionInitiale:
      if (!read_numbers(line, &pos, v, 3)) return kLoadNumberTooLong;
      vcopy(v, m.initial_position);
      return 0;
    case Keyword::kStrategie:
    case Keyword::kMode:
      if (!read_numbers(line, &pos, v, 1)) return kLoadNumberTooLong;
      set_mode(st, to_int(v[0]));
      return 0;
    case Keyword::kRtcp:
      if (!read_numbers(line, &pos, v, 1)) return kLoadNumberTooLong;
      set_rtcp(st, to_int(v[0]));
      return 0;
    case Keyword::kBati:
      return apply_frame(st, ctx, line, &pos);
    case Keyword::kAxe:
      return apply_axis(st, ctx, line, &pos, false);
    case Keyword::kRotation:
      return apply_axis(st, ctx, line, &pos, true);
    case Keyword::kOutil:
      return apply_tool(st, ctx, line, &pos);
    case Keyword::kPiece:
      return apply_workpiece(st, ctx, line, &pos);
    case Keyword::kLien:
      return apply_link(st, ctx, line, &pos);
    // A rejected line leaves no values behind, so these read into v first.
    case Keyword::kPosition:
      if (!read_numbers(line, &pos, v, 6)) return kLoadNumberTooLong;
      std::memcpy(ctx.position, v, sizeof v);
      ctx.has_position = true;
      return 0;
    case Keyword::kPointChangementOutil:
      if (!read_numbers(line, &pos, v, 6)) return kLoadNumberTooLong;
      std::memcpy(m.toolchange, v, sizeof v);
      m.toolchange_flag = 1;
      return 0;
    case Keyword::kCollision:
      return apply_collision(st, line, &pos);
  }
  return 0;
}

// K5X_INCREMENTS_MAX_DEVIATION: a positive value is the increment tolerance; any other value only
// turns behaviour 1 into 2, which right after the reset (behaviour 0) never happens.
void apply_environment(State& st) {
  const char* text = std::getenv("K5X_INCREMENTS_MAX_DEVIATION");
  double v = 0.0;
  if (text == nullptr || std::sscanf(text, "%lf", &v) != 1) return;
  if (v > 0.0)
    set_increment_behaviour(st, get_increment_behaviour(st), v);
  else if (get_increment_behaviour(st) == 1)
    set_increment_behaviour(st, 2, -1.0);
}

void store_path(State& st, const char* path) {
  try {
    st.machine.definition_path.assign(path == nullptr ? "" : path);
  } catch (...) {
    st.machine.definition_path.clear();  // out of memory: no path rather than a throw
  }
}

// Translations of every link, anchors, heads, workpiece-side factors and the rotary list.
// Returns false when the frame, tool or workpiece is missing.
bool derive_anchors(State& st) {
  Model& m = st.machine;
  AxisRecord* rec = m.records;
  for (int i = 1; i < m.record_count; ++i)
    if (Link* l = link_to(st, rec[i].previous, i)) vsub(rec[rec[i].previous].point, rec[i].point,
                                                         l->translation);
  for (int i = 0; i < m.record_count; ++i) {
    const AxisRecord& r = rec[i];
    if ((r.kind == kKindRotary || r.kind == kKindLinear) && r.axis >= 0 && r.axis < 6)
      m.letter[r.axis] = i;
    else if (r.kind == kKindTool)
      m.tool = i;
    else if (r.kind == kKindWorkpiece)
      m.workpiece = i;
    else if (r.kind == kKindFrame)
      m.frame = i;
  }
  if (m.frame == kNone || m.tool == kNone || m.workpiece == kNone) return false;

  // Parents always precede their children, so these walks end; the bound is a second guard.
  auto run_top = [&](int start) {
    int cur = start;
    for (int n = 0; n < kMaxRecords && rec[cur].previous >= 0 &&
                    rec[rec[cur].previous].kind == kKindRotary;
         ++n)
      cur = rec[cur].previous;
    return cur;
  };
  m.tool_head = run_top(m.tool);
  m.table_head = run_top(m.workpiece);

  int cur = rec[m.workpiece].previous;
  for (int n = 0; n < kMaxRecords && cur >= 0 && rec[cur].kind != kKindFrame &&
                  rec[cur].previous >= 0;
       ++n) {
    if (rec[cur].kind == kKindRotary) {
      if (m.rotary_count < kMaxRotary) m.rotary[m.rotary_count++] = cur;
      rec[cur].factor = -kDegToRad;
    } else if (rec[cur].kind == kKindLinear) {
      rec[cur].factor = -1.0;
    }
    cur = rec[cur].previous;
  }
  cur = m.tool_head;
  for (int n = 0; n < kMaxRecords && rec[cur].kind == kKindRotary && rec[cur].link_count >= 1; ++n) {
    if (m.rotary_count < kMaxRotary) m.rotary[m.rotary_count++] = cur;
    cur = rec[cur].links[0].child;
    if (cur < 0 || cur >= m.record_count) break;
  }
  return true;
}

}  // namespace

FileRead read_machine_file(State& st, const char* path) {
  return read_machine(st, path, nullptr, 0);
}

FileRead read_machine_text(State& st, const char* text, std::size_t size) {
  return read_machine(st, "", text != nullptr ? text : "", text != nullptr ? size : 0);
}

FileRead read_machine(State& st, const char* path, const char* text, std::size_t size) {
  FileRead out;
  st.load_line = 0;
  st.load_line_code = 0;
  store_path(st, path);
  machine_reset(st);
  Model& m = st.machine;
  vzero(m.toolchange, 6);
  m.toolchange_flag = 0;
  out.code = kLoadCannotOpen;
  if (path == nullptr) return out;
  apply_environment(st);

  // Text is read through a stream over it, line by line like a file.
  std::FILE* f = text != nullptr ? (size > 0 ? fmemopen(const_cast<char*>(text), size, "r")
                                             : std::tmpfile())
                                 : std::fopen(path, "r");
  if (f == nullptr) return out;
  LoadContext ctx;
  int code = 0;
  char line[kLineBuffer];
  // Lines counted as the file has them: a line longer than the buffer comes in pieces.
  long number = 0;
  bool line_start = true;
  while (code == 0 && std::fgets(line, kLineBuffer, f) != nullptr) {
    if (line_start) ++number;
    const std::size_t n = std::strlen(line);
    line_start = n > 0 && line[n - 1] == '\n';
    code = apply_line(st, ctx, line);
  }
  if (code != 0) {
    st.load_line = number;
    st.load_line_code = code;
  }
  std::fclose(f);
  store_path(st, path);

  out.code = kLoadMissingAnchor;
  if (!derive_anchors(st)) return out;
  out.code = code;
  out.complete = true;
  out.has_position = ctx.has_position;
  for (int k = 0; k < 6; ++k) out.position[k] = ctx.position[k];
  return out;
}

void apply_offsets(State& st, const double position[6]) {
  Model& m = st.machine;
  m.chain_memo.valid = false;
  for (int i = 0; i < m.record_count; ++i) {
    AxisRecord& r = m.records[i];
    if ((r.kind == kKindRotary || r.kind == kKindLinear) && r.axis >= 0 && r.axis < 6)
      r.offset = position[r.axis];
  }
}

void save_workpiece(State& st) {
  Model& m = st.machine;
  m.saved_workpiece = m.records[m.workpiece];
  if (const Link* l = link_to(st, m.records[m.workpiece].previous, m.workpiece)) {
    m.saved_link = *l;
  } else {
    m.saved_link.child = kNone;
    vzero(m.saved_link.translation, 3);
    m3identity(m.saved_link.rotation);
  }
}

void release_tables(State& st) {
  std::free(st.table);
  st.table = nullptr;
  st.table_capacity = 0;
}

std::size_t next_field(const char* line, std::size_t* pos, char* out, std::size_t out_size,
                       bool stop_at_equals) {
  std::size_t n = 0;
  std::size_t p = *pos;
  while (line[p] != '\0') {
    const char c = line[p++];
    if (c == ',' || (stop_at_equals && c == '=')) break;
    if (is_blank(c)) continue;
    if (n + 1 < out_size) out[n++] = c;
  }
  if (out_size > 0) out[n] = '\0';
  *pos = p;
  return n;
}

int next_number(const char* line, std::size_t* pos, double* out) {
  char field[kMaxNumberField + 1];
  std::size_t length = 0;  // the whole field, including what does not fit
  std::size_t p = *pos;
  while (line[p] != '\0') {
    const char c = line[p++];
    if (c == ',') break;
    if (is_blank(c)) continue;
    if (length < kMaxNumberField) field[length] = c;
    ++length;
  }
  *pos = p;
  *out = 0.0;
  if (length == 0) return 0;
  if (length > kMaxNumberField) return -1;
  field[length] = '\0';
  *out = parse_double(field);
  return 1;
}

}  // namespace k5x
