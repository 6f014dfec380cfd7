// k5x post's reading side: a toolpath (plain lines or APT records) item by item, and, on more
// than one thread, read, parsed and solved on a thread of its own while the caller's thread
// plans and writes (and parses lines ahead when it would otherwise wait). Batches travel through
// bounded queues in order, so the output is byte for byte the single-threaded one.
#ifndef K5X_CLI_PIPELINE_H
#define K5X_CLI_PIPELINE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "toolpath/apt_reader.h"
#include "toolpath/planner.h"
#include "toolpath/text_io.h"
#include "toolpath/toolpath_types.h"

namespace k5x_cli {

// A queue of batches between two threads; push blocks while it is full, pop while it is empty.
template <class Batch>
class BatchQueue {
 public:
  explicit BatchQueue(std::size_t capacity) : capacity_(capacity) {}
  // False once the queue was closed (the batch is dropped).
  bool push(Batch&& batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    not_full_.wait(lock, [&] { return closed_ || batches_.size() < capacity_; });
    if (closed_) return false;
    batches_.push_back(std::move(batch));
    not_empty_.notify_one();
    return true;
  }
  // False when closed and nothing is left.
  bool pop(Batch* batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    not_empty_.wait(lock, [&] { return closed_ || !batches_.empty(); });
    if (batches_.empty()) return false;
    *batch = std::move(batches_.front());
    batches_.pop_front();
    not_full_.notify_one();
    return true;
  }
  // Without waiting: false when full (the batch is kept by the caller).
  bool try_push(Batch&& batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || batches_.size() >= capacity_) return false;
    batches_.push_back(std::move(batch));
    not_empty_.notify_one();
    return true;
  }
  // Without waiting: false when empty.
  bool try_pop(Batch* batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (batches_.empty()) return false;
    *batch = std::move(batches_.front());
    batches_.pop_front();
    not_full_.notify_one();
    return true;
  }
  // No more pushes; what is queued can still be popped.
  void close() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    not_empty_.notify_all();
    not_full_.notify_all();
  }

 private:
  std::size_t capacity_;
  std::deque<Batch> batches_;
  bool closed_ = false;
  std::mutex mutex_;
  std::condition_variable not_empty_, not_full_;
};

// One item of a toolpath as read: a move, an event between moves (APT), a malformed line or
// record, or the end of a stream that failed. Kept small: a million of them cross between the
// cores every second.
struct ReadItem {
  enum Kind : unsigned char { move, event, malformed, read_error };
  k5x::ProgrammedMove m;  // a move; m.line is the source line of every kind
  // A move gathered on the reading thread: its solutions in the batch. An event or a reason:
  // its place in the batch's list of them.
  int first = 0;
  unsigned char count = 0;
  bool singular = false;
  Kind kind = move;
};

class PlainToolpath;
class AptToolpath;
struct ItemBatch;

// A toolpath, item by item. After next gives a malformed item, reason() says why; after an
// event, event() is it; after a read_error, error() is the errno of the failed read.
class ToolpathSource {
 public:
  virtual ~ToolpathSource() = default;
  // False at the end; a failing stream gives one read_error first.
  virtual bool next(ReadItem* out) = 0;
  // Which kind it is: each reads its blocks of lines in its own way.
  virtual PlainToolpath* plain() { return nullptr; }
  virtual AptToolpath* apt() { return nullptr; }
  // The next lines as they are, into batch, to be parsed apart from the reading; false when
  // there were none. Lines end as LineReader ends them.
  bool cut(ItemBatch* batch);
  // Does what can be done ahead of the reading for part k of a batch's cut lines, on any
  // thread.
  virtual void parse_part(ItemBatch* batch, int k) const = 0;
  const std::string& reason() const { return reason_; }
  const k5x::AptEvent& event() const { return event_; }
  int error() const { return error_; }

 protected:
  explicit ToolpathSource(std::FILE* in) : in_(in) {}
  std::FILE* in_;
  std::string reason_;
  k5x::AptEvent event_;
  int error_ = 0;
  bool failed_ = false;  // next found the stream failed: nothing more is read
  long lineno_ = 0;      // lines read
  // cut's state: the start of a line not yet ended, whether a line too long is being passed
  // over, whether the stream has ended, and whether it failed (its errno is in error_).
  std::string carry_;
  bool discarding_ = false, eof_ = false, cut_failed_ = false;
};

// Lines of X Y Z I J K; blank and comment lines are passed over.
class PlainToolpath : public ToolpathSource {
 public:
  PlainToolpath(std::FILE* in, double zero_length)
      : ToolpathSource(in), reader_(in), zero_length_(zero_length) {}
  bool next(ReadItem* out) override;
  PlainToolpath* plain() override { return this; }
  // Parses the lines into items, part k's from items[k * kPartLines] on.
  void parse_part(ItemBatch* batch, int k) const override;

 private:
  // A line as read: false when it holds nothing; else *out is a move or malformed (*reason
  // then says why).
  bool parse_line(const char* b, const char* e, k5x::LineReader::Result r, ReadItem* out,
                  std::string* reason) const;
  k5x::LineReader reader_;  // for next; cut reads blocks itself, as the reader would split them
  double zero_length_;
  long index_ = 0;
};

// APT / CLSF records: moves, and the events the G-code writer acts on.
class AptToolpath : public ToolpathSource {
 public:
  AptToolpath(std::FILE* in, const k5x::AptOptions& options)
      : ToolpathSource(in), reader_(in, options) {}
  bool next(ReadItem* out) override;
  AptToolpath* apt() override { return this; }
  // Reads ahead the lines that are whole GOTO records, into the batch's gotos.
  void parse_part(ItemBatch* batch, int k) const override;
  // Its counts, for the summary once reading is over.
  const k5x::AptReader& reader() const { return reader_; }
  // Records from lines cut elsewhere (null: from the stream again).
  void read_lines_from(k5x::AptLines* lines) { reader_.read_lines_from(lines); }
  // Whether cut splits lines as this reader's own line reader would.
  bool cuts_like_reader() const { return reader_.longest_line() == k5x::LineReader::kLongest; }

 private:
  k5x::AptReader reader_;
};

// Items read together, with the solutions of their moves packed after each other (a move has
// two or three, not the sixteen a Candidates can hold, and what crosses between the cores is
// what costs), and the rare reasons and events beside them.
struct ItemBatch {
  // Room for the items, kept at its size from batch to batch (sizing it again would clear
  // every item); the first `count` were read.
  std::vector<ReadItem> items;
  // Room for n items at least: only what is filled is paid for in fresh pages.
  void make_room(std::size_t n);
  std::size_t count = 0;
  const ReadItem* begin() const { return items.data(); }
  const ReadItem* end() const { return items.data() + count; }
  struct Solution {
    double abc[3];
    int solver_code;
    bool in_travel;
  };
  std::vector<Solution> solutions;
  std::vector<std::string> reasons;
  std::vector<k5x::AptEvent> events;
  // The solutions of move p, as the planner takes them.
  void unpack(const ReadItem& p, k5x::Candidates* out) const;

  // A plain toolpath's lines as cut, before they are parsed: their text one after the other,
  // and where each is. Parsed in parts; part k's items start at items[k * kPartLines], its
  // reasons apart, so that two threads may parse two parts at once.
  static constexpr int kParts = 4;
  static constexpr std::size_t kPartLines = 1024;
  struct Line {
    std::uint32_t offset, length;
    k5x::LineReader::Result result;
  };
  // Read straight into: sized by hand, as growing a string or vector would clear it first.
  std::unique_ptr<char[]> text;
  std::size_t text_size = 0, text_capacity = 0;
  std::vector<Line> lines;
  long first_line = 0;  // the number of lines[0]; the others follow it
  // Room for n more bytes of text.
  void reserve_text(std::size_t n);
  // The text buffer of another batch, whose lines are no longer needed.
  void take_text(ItemBatch* from);
  int part_count[kParts] = {};
  std::vector<std::string> part_reasons[kParts];
  // An APT batch's lines read ahead: the numbers of each line that is a whole GOTO record.
  struct Goto {
    double values[6];
    int count;  // 3 or 6; 0 for any other line
  };
  std::vector<Goto> gotos;
  int parts() const { return static_cast<int>((lines.size() + kPartLines - 1) / kPartLines); }
};

// The parts of a batch's lines no one has parsed yet: the planning thread takes some when it
// would otherwise wait for the reading thread.
class ParseShare {
 public:
  // Puts the batch's parts on offer.
  void offer(const ToolpathSource* source, ItemBatch* batch);
  // Parses one part if one is on offer; false when none was.
  bool help();
  // Parses the parts no one took and waits for those taken; false when one of them could not
  // be parsed (memory ran out on the other thread).
  bool finish();
  // Takes the offer back, once the parts being parsed are done: before the batch goes.
  void withdraw();

 private:
  std::mutex mutex_;
  std::condition_variable parsed_;
  const ToolpathSource* source_ = nullptr;
  ItemBatch* batch_ = nullptr;
  int parts_ = 0, next_ = 0, parsing_ = 0;  // parsing_: parts taken and not yet parsed
  bool failed_ = false;
};

// Reads a toolpath on a thread of its own and gathers each move's solutions there too (the
// gatherer is that thread's alone while it runs).
class InputThread {
 public:
  InputThread(ToolpathSource* source, k5x::Gatherer* gatherer);
  ~InputThread();
  // The next batch in order; false at the end. Parses lines for the reading thread while
  // there is none yet.
  bool next(ItemBatch* batch) {
    while (!queue_.try_pop(batch))
      if (!share_.help()) return queue_.pop(batch);
    return true;
  }
  // Hands a batch that has been read back for reuse.
  void recycle(ItemBatch&& batch) { spare_.try_push(std::move(batch)); }
  // Once next gave false: whether the reading ended because memory ran out.
  bool out_of_memory() const { return out_of_memory_; }

 private:
  void run(ToolpathSource* source, k5x::Gatherer* gatherer);
  void read(ToolpathSource* source, k5x::Gatherer* gatherer);
  void read_lines(PlainToolpath* source, k5x::Gatherer* gatherer);
  // As read, with the records' lines cut here and read ahead on either thread.
  void read_records(AptToolpath* source, k5x::Gatherer* gatherer);
  // The next batch to fill, with room for at least `items` items: a spare one, or a new one.
  ItemBatch fresh_batch(std::size_t items);
  // Gathers the solutions of move p into batch.
  void gather(ReadItem& p, ItemBatch* batch, k5x::Gatherer* gatherer);
  std::atomic<bool> out_of_memory_{false};
  ParseShare share_;
  BatchQueue<ItemBatch> queue_;
  BatchQueue<ItemBatch> spare_;
  std::thread thread_;
};

}  // namespace k5x_cli

#endif  // K5X_CLI_PIPELINE_H
