#include "cli/pipeline.h"

#include <cstdio>

namespace k5x_cli {

namespace {
constexpr std::size_t kBatch = 4096;  // lines or rows per hand-over
constexpr std::size_t kQueued = 8;    // batches in flight at the most: memory stays flat
}  // namespace

InputThread::InputThread(std::FILE* in, double zero_length)
    : queue_(kQueued), thread_(&InputThread::run, this, in, zero_length) {}

InputThread::~InputThread() {
  queue_.close();  // a reader still waiting to push gives up
  if (thread_.joinable()) thread_.join();
}

void InputThread::run(std::FILE* in, double zero_length) {
  k5x::LineReader reader(in);
  std::vector<ParsedLine> batch;
  batch.reserve(kBatch);
  const char* b = nullptr;
  const char* e = nullptr;
  char reason[160];
  double v[6];
  long lineno = 0, index = 0;
  for (;;) {
    const k5x::LineReader::Result r = reader.next(&b, &e);
    if (r == k5x::LineReader::kEnd) break;
    if (r == k5x::LineReader::kError) {
      ParsedLine p;
      p.kind = ParsedLine::read_error;
      batch.push_back(p);
      break;
    }
    ++lineno;
    int parsed;
    if (r == k5x::LineReader::kTooLong) {
      std::snprintf(reason, sizeof reason, "line longer than %d bytes", 1 << 20);
      parsed = -1;
    } else {
      parsed = k5x::parse_move_line(b, e, v, zero_length, reason, sizeof reason);
    }
    if (parsed == 0) continue;
    ParsedLine p;
    p.line = lineno;
    if (parsed < 0) {
      p.kind = ParsedLine::malformed;
      p.reason = reason;
    } else {
      for (int k = 0; k < 3; ++k) {
        p.m.point[k] = v[k];
        p.m.axis[k] = v[3 + k];
      }
      p.m.line = lineno;
      p.m.index = index++;
    }
    batch.push_back(std::move(p));
    if (batch.size() == kBatch) {
      if (!queue_.push(std::move(batch))) return;
      batch.clear();
      batch.reserve(kBatch);
    }
  }
  if (!batch.empty()) queue_.push(std::move(batch));
  queue_.close();
}

OutputThread::OutputThread(k5x::PositionSink* sink,
                           void (*event_sink)(void*, const k5x::AptEvent&), void* event_target)
    : sink_(sink), event_sink_(event_sink), event_target_(event_target), queue_(kQueued),
      thread_(&OutputThread::run, this) {
  batch_.reserve(kBatch);
}

OutputThread::~OutputThread() { finish(); }

void OutputThread::position(const k5x::PlannedPosition& p) {
  batch_.emplace_back(p);
  if (batch_.size() >= kBatch) hand_over();
}

void OutputThread::event(const k5x::AptEvent& e) {
  batch_.emplace_back(e);
  if (batch_.size() >= kBatch) hand_over();
}

void OutputThread::hand_over() {
  if (batch_.empty()) return;
  queue_.push(std::move(batch_));
  batch_.clear();
  batch_.reserve(kBatch);
}

void OutputThread::finish() {
  if (finished_) return;
  finished_ = true;
  hand_over();
  queue_.close();
  if (thread_.joinable()) thread_.join();
}

void OutputThread::run() {
  std::vector<Item> batch;
  while (queue_.pop(&batch)) {
    for (const Item& item : batch) {
      if (const k5x::PlannedPosition* p = std::get_if<k5x::PlannedPosition>(&item))
        sink_->position(*p);
      else if (event_sink_ != nullptr)
        event_sink_(event_target_, std::get<k5x::AptEvent>(item));
    }
  }
}

}  // namespace k5x_cli
