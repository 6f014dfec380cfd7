// A G-code program from planned positions and the events between them: header, units and
// modes, work offset, tool changes, spindle and coolant, G0 rapids (with a retract before a
// large rotary reposition), G1 moves with only the words that changed and inverse-time or
// per-minute feeds, optionally the tool tip with the controller's tool-centre-point mode. The
// codes and the comment style come from a dialect.
#ifndef K5X_TOOLPATH_GCODE_WRITER_H
#define K5X_TOOLPATH_GCODE_WRITER_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
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
  double approach_clearance = 5.0;  // above a first position that is a cut, in Z, at rapid
  // Chords of a circular move joined again into one G2/G3 block where the rotary axes stand
  // still and the written coordinates go round a circle (or a helix) about X, Y or Z.
  bool arcs = true;
  double arc_tolerance = 0.005;  // how far a chord's end may lie off the arc written for it
  bool has_axis[6] = {true, true, true, true, true, true};
  std::string header;            // comment lines of the header, one per line
};

class GcodeWriter : public PositionSink {
 public:
  static constexpr std::size_t kFeedRoom = 400;  // an F word: a letter and a number
  static constexpr std::size_t kMostChordsHeld = 10000;  // of one circular move, for one arc

  GcodeWriter(OutBuffer* out, const Dialect& dialect, const GcodeOptions& options);
  // It points into itself (the motion last written).
  GcodeWriter(const GcodeWriter&) = delete;
  GcodeWriter& operator=(const GcodeWriter&) = delete;

  void begin();
  // Events are queued and written before the first position of the move they come before.
  void event(const AptEvent& e);
  void position(const PlannedPosition& p) override;
  // Writes what is still queued and the end of the program.
  void end();

  long blocks() const { return blocks_; }
  long arcs() const { return arcs_; }
  // Rapids that swing the rotary axes beyond retract_degrees with no height to retract to.
  long unretracted_swings() const { return unretracted_swings_; }
  // Whether the toolpath started the spindle anywhere.
  bool spindle_started() const { return spindle_started_; }
  const GcodeOptions& options() const { return opt_; }

 private:
  void flush_events(long index, bool all);
  void write_event(const AptEvent& e);
  // A block, numbered when asked; the tape marks that open and close the program never are.
  void block(std::string_view text, bool numbered = true);
  void comment(const std::string& text);
  // The axis word for value ("X12.3400"), in a buffer the next call reuses.
  std::string_view word(int axis, double value);
  std::string_view number_word(const std::string& letter, int decimals, double value);
  // Whether w differs from the word last written for axis k; it becomes that word.
  bool changed(int k, std::string_view w);
  // The words of axes from..to-1 that changed, each after a blank, after the room line_ keeps
  // in front for the block's leading words; their end.
  std::size_t changed_words(const double v[6], int from, int to);
  // Puts text in front of line_ at *start.
  void put_before(std::size_t* start, std::string_view text);
  // A G0 block of the words of axes from..to-1 that changed; none when nothing did.
  void rapid_words(const double v[6], int from, int to);
  // Straight up to the retract height, at rapid.
  void retract_to_height();
  // A G0 or G1 block to v with the words that changed, a G1 with its feed: the tip's path of
  // length at feed, the rotary axes turning turn degrees. False when no word changed.
  bool motion_block(const double v[6], bool rapid, double length, double turn, double feed);
  // The same with any motion word; tail (the arc's centre words) goes before the feed, and a
  // block with a tail is written even when no axis word changed (a whole circle).
  bool motion_block(const double v[6], const std::string& motion, std::string_view plane,
                    std::string_view tail, double length, double turn, double feed);
  static double distance3(const double a[6], const double b[6]);
  // The position as it comes, in its own blocks.
  void write_position(const PlannedPosition& p);
  // The chords held back: one arc block when they make one, else each in its own blocks.
  void write_held();
  void write_chords(std::size_t begin, std::size_t end);
  // held_[begin, end) as one arc block: 1 written, 0 not an arc, 2 one but of more than a turn.
  int write_arc(std::size_t begin, std::size_t end);
  // Whether value's word for axis k is the one last written.
  bool same_word(int k, double value);

  OutBuffer* out_;
  Dialect dialect_;
  GcodeOptions opt_;
  // The words every block needs, looked up once; and buffers each block reuses, made as long
  // as their text can be, so that a block costs no allocation and no string operation.
  std::string letter_[6], rapid_, linear_, inverse_time_, per_minute_;
  // The arc words: clockwise and counter-clockwise, the planes about Z, Y and X, the centre's
  // letters along X, Y and Z.
  std::string arc_cw_, arc_ccw_, planes_[3], centre_letter_[3];
  int plane_ = 0;                   // the plane in force: 0 XY, 1 ZX, 2 YZ
  std::vector<PlannedPosition> held_;  // chords of a circular move, until it ends
  long arcs_ = 0;
  std::size_t word_room_ = 0;       // the longest axis word: a letter and a number
  std::size_t lead_room_ = 0;       // the longest feed mode and motion words, and a blank
  std::vector<char> word_;          // the word being made
  std::vector<char> last_words_;    // per axis the word last written, word_room_ each
  std::size_t last_size_[6] = {};   // 0: none yet
  std::uint64_t last_value_[6] = {};  // per axis the bits of the value last turned into a word
  bool have_value_[6] = {};
  std::vector<char> line_;          // a motion block put together
  std::vector<AptEvent> pending_;
  std::size_t pending_next_ = 0;
  long line_number_ = 0;
  long blocks_ = 0;
  const std::string no_motion_;
  const std::string* last_motion_ = &no_motion_;
  char last_feed_[kFeedRoom];
  std::size_t last_feed_size_ = 0;
  int last_feed_mode_ = -1;     // 0 inverse time, 1 per minute
  bool have_last_ = false;
  long unretracted_swings_ = 0;
  long out_of_travel_line_ = -1;  // the move whose being out of travel was last said
  bool spindle_started_ = false;
  // The last spindle and coolant codes written were their off codes: the end need not repeat them.
  bool spindle_stopped_ = false, coolant_stopped_ = false;
  double last_axes_[6] = {};
  double last_tip_[3] = {};
  int tool_ = 0;
  bool tcp_on_ = false;
};

}  // namespace k5x

#endif  // K5X_TOOLPATH_GCODE_WRITER_H
