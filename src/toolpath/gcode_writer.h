// A G-code program from planned positions and the events between them: header, units and
// modes, work offset, tool changes, spindle and coolant, G0 rapids (with a retract before a
// large rotary reposition), G1 moves with only the words that changed and inverse-time or
// per-minute feeds, optionally the tool tip with the controller's tool-centre-point mode. The
// codes and the comment style come from a dialect.
#ifndef K5X_TOOLPATH_GCODE_WRITER_H
#define K5X_TOOLPATH_GCODE_WRITER_H

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "toolpath/apt_reader.h"
#include "toolpath/planner.h"
#include "toolpath/text_io.h"

namespace k5x {

// The words a controller expects, by key; see shipped_dialect() for the keys.
struct Dialect {
  std::map<std::string, std::string> words;
  const std::string& get(const std::string& key) const;
};

// The dialects compiled in: "iso" (generic ISO) and "rs274ngc"; null for another name.
const char* shipped_dialect(const std::string& name);
// Reads "key = value" lines ('#' comments) over the generic ISO dialect. Returns false with
// "LINE: reason" in error (the caller adds the file name).
bool parse_dialect(const std::string& text, Dialect* out, std::string* error);

enum class FeedMode { inverse_time, per_minute };

struct GcodeOptions {
  FeedMode feed = FeedMode::inverse_time;
  bool tcp = false;              // tip in workpiece coordinates, controller's TCP on
  bool line_numbers = false;
  int length_decimals = 4;
  int angle_decimals = 3;
  double retract_degrees = 30.0; // rotary change of a rapid above which the tool retracts first
  double retract_z = 0.0;        // machine Z of the retract
  bool retract = false;          // false: the machine has no Z limit to retract to
  double default_feed = 1000.0;  // when the toolpath gives none, length unit per minute
  bool has_axis[6] = {true, true, true, true, true, true};
  std::string header;            // comment lines of the header, one per line
};

class GcodeWriter : public PositionSink {
 public:
  GcodeWriter(OutBuffer* out, const Dialect& dialect, const GcodeOptions& options);

  void begin();
  // Events are queued and written before the first position of the move they come before.
  void event(const AptEvent& e);
  void position(const PlannedPosition& p) override;
  // Writes what is still queued and the end of the program.
  void end();

  long blocks() const { return blocks_; }
  const GcodeOptions& options() const { return opt_; }

 private:
  void flush_events(long index, bool all);
  void write_event(const AptEvent& e);
  void block(const std::string& text);
  void comment(const std::string& text);
  // The axis word for value ("X12.3400"), in a buffer the next call reuses.
  const std::string& word(int axis, double value);
  // A G0 block of the words of axes from..to-1 that changed; none when nothing did.
  void rapid_words(const double v[6], int from, int to);
  // A G0 or G1 block to v with the words that changed, a G1 with its feed: the tip's path of
  // length at feed, the rotary axes turning turn degrees. False when no word changed.
  bool motion_block(const double v[6], bool rapid, double length, double turn, double feed);
  static double distance3(const double a[6], const double b[6]);

  OutBuffer* out_;
  Dialect dialect_;
  GcodeOptions opt_;
  // The words every block needs, looked up once; and buffers each block reuses, so that a
  // block costs no allocation.
  std::string letter_[6], rapid_, linear_;
  std::string word_, words_, text_;
  std::vector<AptEvent> pending_;
  std::size_t pending_next_ = 0;
  long line_number_ = 0;
  long blocks_ = 0;
  std::string last_word_[6];
  std::string last_motion_;
  std::string last_feed_;
  int last_feed_mode_ = -1;     // 0 inverse time, 1 per minute
  bool have_last_ = false;
  double last_axes_[6] = {};
  double last_tip_[3] = {};
  int tool_ = 0;
  bool tcp_on_ = false;
};

}  // namespace k5x

#endif  // K5X_TOOLPATH_GCODE_WRITER_H
