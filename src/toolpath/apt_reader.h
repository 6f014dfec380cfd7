// Reader of APT / CLSF tool-location text as CAM systems write it: GOTO moves under MULTAX,
// rapids, feeds, units, tool loads, spindle and coolant, local coordinate systems (MSYS) and
// circular moves, turned into programmed moves in the machine's workpiece frame and length
// unit (millimetres), with the other records as events between them.
#ifndef K5X_TOOLPATH_APT_READER_H
#define K5X_TOOLPATH_APT_READER_H

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "toolpath/text_io.h"
#include "toolpath/toolpath_types.h"

namespace k5x {

// What happens between moves, in file order. `before` is the index of the first move that
// follows it: a writer emits the event just before that move's first position.
struct AptEvent {
  enum Kind { comment, tool_load, spindle, coolant, end_of_path, end_of_program, insert };
  Kind kind = comment;
  long before = 0;
  long line = 0;
  int tool = 0;           // tool_load
  double speed = 0.0;     // spindle: rpm, 0 = off; negative = counter-clockwise
  bool started = false;   // spindle: on, at `speed`, or at none said yet when speed is 0
  int coolant_mode = 0;   // coolant: 0 off, 1 flood, 2 mist
  std::string text;       // comment text, the tool's TLDATA for tool_load, an insert's block
};

enum class AptUnits { automatic, mm, inches };

struct AptOptions {
  AptUnits units = AptUnits::automatic;  // automatic: UNITS/ records, else inches with IPM/IPR
  double chord_tolerance = 0.01;         // of circular moves, in millimetres
  std::size_t longest_line = std::size_t(1) << 20;  // longer lines are malformed records
};

// Lines for an AptReader cut from the stream elsewhere. A line that is a whole GOTO record may
// come with its numbers read ahead by read_goto_line, perhaps on another thread.
class AptLines {
 public:
  virtual ~AptLines() = default;
  // The next line, as LineReader::next gives it; *count is 3 or 6 when *numbers holds the
  // line's GOTO numbers, else 0.
  virtual LineReader::Result next(const char** begin, const char** end, const double** numbers,
                                  int* count) = 0;
};

// The numbers of a line that is a whole GOTO record with 3 or 6 numbers, as the reader would
// read them: their count, or 0 for any other line (the reader reads those itself).
int read_goto_line(const char* begin, const char* end, double numbers[6]);

class AptReader {
 public:
  enum Result { kMove, kEvent, kEnd, kError };

  AptReader(std::FILE* in, const AptOptions& options);
  // Lines from elsewhere instead of the stream, from the next record on (null: the stream).
  void read_lines_from(AptLines* lines) { lines_ = lines; }
  std::size_t longest_line() const { return options_.longest_line; }

  // The next move or event. kError: message() holds the reason, line() the record's first line;
  // reading may go on after it (the record is skipped).
  Result next(ProgrammedMove* move, AptEvent* event);

  const std::string& message() const { return message_; }
  long line() const { return record_line_; }
  // Records the reader does not act on, by name, with how often they came; past 64 names, the
  // others are counted together under "(others)".
  const std::map<std::string, long>& unknown() const { return unknown_; }
  long moves() const { return index_; }
  // True once a unit was known for certain (UNITS/ or a feed in inches or millimetres).
  bool inches() const { return scale_ != 1.0; }

 private:
  bool read_record();
  Result record(ProgrammedMove* move, AptEvent* event);
  Result fail(const std::string& why);
  Result go_to(const double* v, std::size_t n, ProgrammedMove* move);
  bool numbers(std::size_t from, std::size_t count_min, std::size_t count_max, double* out,
               std::size_t* count);
  void to_workpiece(const double local[3], double out[3], bool direction) const;
  Result emit_move(const double point[3], ProgrammedMove* move, ArcPart arc = ArcPart::none);
  Result queue_circle(const double end[3], ProgrammedMove* move);

  LineReader reader_;
  AptLines* lines_ = nullptr;
  AptOptions options_;
  // A GOTO line's numbers as read ahead: the record instead of record_.
  double ahead_[6] = {};
  std::size_t ahead_count_ = 0;
  std::string record_;              // the record, continuation lines joined
  // After the slash, split at commas, blanks trimmed: where each lies in record_.
  struct Field {
    std::size_t begin, end;
  };
  std::vector<Field> fields_;
  std::string field(std::size_t i) const {
    return record_.substr(fields_[i].begin, fields_[i].end - fields_[i].begin);
  }
  std::string name_;                // before the slash (or the whole word), upper case
  long line_ = 0, record_line_ = 0;
  const char* too_long_ = nullptr;  // "line" or "record": the next record fails so
  std::string message_;
  std::map<std::string, long> unknown_;

  double scale_ = 1.0;              // to millimetres
  bool units_known_ = false;
  double origin_[3] = {0.0, 0.0, 0.0};
  double frame_[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};  // columns: local X, Y, Z
  double axis_[3] = {0.0, 0.0, 1.0};  // current tool axis, workpiece frame
  double last_[3] = {0.0, 0.0, 0.0};  // last point, workpiece frame, millimetres
  bool have_last_ = false;
  double from_[3] = {0.0, 0.0, 0.0};
  bool have_from_ = false;
  bool rapid_ = false;              // the next move only
  double feed_ = 0.0;               // millimetres per minute
  double feed_per_rev_ = 0.0;       // millimetres per revolution, applied with the spindle
  double spindle_rpm_ = 0.0;
  bool multax_ = true;
  long index_ = 0;
  std::string tool_data_;

  // A circular move waits for its end point, then comes out as several moves.
  bool circle_pending_ = false;
  double circle_center_[3] = {}, circle_axis_[3] = {};
  double circle_radius_ = 0.0;
  int circle_turns_ = 0;
  long circle_line_ = 0;
  std::vector<double> arc_;         // points still to hand out, three per point
  std::size_t arc_next_ = 0;
  long arc_line_ = 0;
};

// True when the text looks like APT / CLSF rather than lines of six numbers: a record name and a
// slash (GOTO/, TOOL PATH/, ...) or a bare RAPID / MULTAX among the first lines.
bool looks_like_apt(const char* text, std::size_t size);

// The unit a whole APT file is written in, from its first UNITS/ record or else its first feed
// with a unit (IPM, IPR: inches; MMPM, MMPR: millimetres); automatic when it says nothing. Reads
// the seekable stream ahead as far as it needs and goes back to where it was.
AptUnits scan_apt_units(std::FILE* in);

}  // namespace k5x

#endif  // K5X_TOOLPATH_APT_READER_H
