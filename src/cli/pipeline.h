// k5x post on more than one thread: reading and parsing the toolpath on one, planning on the
// caller's, formatting and writing on another. Batches travel through bounded queues in order,
// so the output is byte for byte the single-threaded one.
#ifndef K5X_CLI_PIPELINE_H
#define K5X_CLI_PIPELINE_H

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <variant>
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
  // Without waiting: false when full (the batch is kept by the caller) or empty.
  bool try_push(Batch&& batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || batches_.size() >= capacity_) return false;
    batches_.push_back(std::move(batch));
    not_empty_.notify_one();
    return true;
  }
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

// One line of a plain toolpath, parsed: a move, a line to skip quietly, a malformed line with
// its reason, or the end of a stream that failed.
struct ParsedLine {
  enum Kind { move, malformed, read_error };
  Kind kind = move;
  long line = 0;
  k5x::ProgrammedMove m;
  std::string reason;
  // The move's solutions in its batch, where a Gatherer ran on the reading thread.
  int first = 0, count = 0;
  bool singular = false;
};

// One solution of a move as it travels between the threads.
struct Solution {
  double abc[3];
  int solver_code;
  bool in_travel;
};

// Lines read and parsed together, with the solutions of their moves packed after each other:
// a move has two or three, not the sixteen a Candidates can hold, and what crosses between the
// cores is what costs.
struct LineBatch {
  std::vector<ParsedLine> lines;
  std::vector<Solution> solutions;
  // The solutions of line p, as the planner takes them.
  void unpack(const ParsedLine& p, k5x::Candidates* out) const;
};

// A plain toolpath (lines of X Y Z I J K), line by line: the next move or malformed line, with
// blank and comment lines passed over. False at the end; a failing stream gives one read_error.
class PlainToolpath {
 public:
  PlainToolpath(std::FILE* in, double zero_length) : reader_(in), zero_length_(zero_length) {}
  bool next(ParsedLine* out);

 private:
  k5x::LineReader reader_;
  double zero_length_;
  long lineno_ = 0, index_ = 0;
  bool failed_ = false;
};

// Reads and parses a plain toolpath on a thread of its own, and gathers each move's solutions
// there too when given a gatherer (which that thread alone uses).
class InputThread {
 public:
  InputThread(std::FILE* in, double zero_length, k5x::Gatherer* gatherer = nullptr);
  ~InputThread();
  // The next batch in order; false at the end.
  bool next(LineBatch* batch) { return queue_.pop(batch); }
  // Hands a batch that has been read back for reuse.
  void recycle(LineBatch&& batch) { spare_.try_push(std::move(batch)); }

 private:
  void run(std::FILE* in, double zero_length, k5x::Gatherer* gatherer);
  BatchQueue<LineBatch> queue_;
  BatchQueue<LineBatch> spare_;
  std::thread thread_;
};

// Formats and writes positions and events on a thread of its own, in the order they came.
class OutputThread : public k5x::PositionSink {
 public:
  // sink receives the positions; events go to event_sink (may be null) before them.
  OutputThread(k5x::PositionSink* sink, void (*event_sink)(void*, const k5x::AptEvent&),
               void* event_target);
  ~OutputThread();
  void position(const k5x::PlannedPosition& p) override;
  void event(const k5x::AptEvent& e);
  // Hands over what is left and waits for the thread to write it.
  void finish();

 private:
  using Item = std::variant<k5x::PlannedPosition, k5x::AptEvent>;
  void hand_over();
  void run();
  k5x::PositionSink* sink_;
  void (*event_sink_)(void*, const k5x::AptEvent&);
  void* event_target_;
  // The batch being filled is the caller's alone: on a cache line of its own, away from what
  // the writing thread reads.
  alignas(64) std::vector<Item> batch_;
  alignas(64) BatchQueue<std::vector<Item>> queue_;
  BatchQueue<std::vector<Item>> spare_;  // written batches, back for reuse
  std::thread thread_;
  bool finished_ = false;
};

}  // namespace k5x_cli

#endif  // K5X_CLI_PIPELINE_H
