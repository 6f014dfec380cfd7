#include "cli/pipeline.h"

#include <cstdio>

namespace k5x_cli {

namespace {
// Hand-overs are few and large: each one that finds the other thread waiting costs a wake-up.
// Batches come back for reuse and the spare queues hold all there can be, so none is freed and
// faulted in again during a run.
constexpr std::size_t kBatch = 4096;      // rows per hand-over (a row is about 270 bytes)
constexpr std::size_t kLineBatch = 8192;  // lines per hand-over, with their solutions
constexpr std::size_t kQueued = 4;        // batches in flight at the most: memory stays bounded
}  // namespace

InputThread::InputThread(std::FILE* in, double zero_length, k5x::Gatherer* gatherer)
    : queue_(kQueued),
      spare_(kQueued + 2),
      thread_(&InputThread::run, this, in, zero_length, gatherer) {}

InputThread::~InputThread() {
  queue_.close();  // a reader still waiting to push gives up
  if (thread_.joinable()) thread_.join();
}

bool PlainToolpath::next(ParsedLine* out) {
  if (failed_) return false;
  const char* b = nullptr;
  const char* e = nullptr;
  char reason[160];
  double v[6];
  for (;;) {
    const k5x::LineReader::Result r = reader_.next(&b, &e);
    if (r == k5x::LineReader::kEnd) return false;
    if (r == k5x::LineReader::kError) {
      failed_ = true;
      out->kind = ParsedLine::read_error;
      return true;
    }
    ++lineno_;
    int parsed;
    if (r == k5x::LineReader::kTooLong) {
      std::snprintf(reason, sizeof reason, "line longer than %d bytes", 1 << 20);
      parsed = -1;
    } else {
      parsed = k5x::parse_move_line(b, e, v, zero_length_, reason, sizeof reason);
    }
    if (parsed == 0) continue;
    out->line = lineno_;
    if (parsed < 0) {
      out->kind = ParsedLine::malformed;
      out->reason = reason;
      return true;
    }
    out->kind = ParsedLine::move;
    for (int k = 0; k < 3; ++k) {
      out->m.point[k] = v[k];
      out->m.axis[k] = v[3 + k];
    }
    out->m.line = lineno_;
    out->m.index = index_++;
    return true;
  }
}

void LineBatch::unpack(const ParsedLine& p, k5x::Candidates* out) const {
  out->count = p.count;
  out->singular = p.singular;
  for (int j = 0; j < p.count; ++j) {
    const Solution& s = solutions[static_cast<std::size_t>(p.first + j)];
    for (int k = 0; k < 3; ++k) out->abc[j][k] = s.abc[k];
    out->solver_code[j] = s.solver_code;
    out->in_travel[j] = s.in_travel;
  }
}

void InputThread::run(std::FILE* in, double zero_length, k5x::Gatherer* gatherer) {
  PlainToolpath toolpath(in, zero_length);
  LineBatch batch;
  k5x::Candidates cand;
  std::size_t n = 0;
  // Lines are parsed in place, into batches the planning thread hands back: no allocation per
  // line once the batches have grown.
  batch.lines.resize(kLineBatch);
  while (toolpath.next(&batch.lines[n])) {
    ParsedLine& p = batch.lines[n];
    p.count = 0;  // the line may be a reused one
    if (gatherer != nullptr && p.kind == ParsedLine::move) {
      gatherer->gather(p.m, &cand);
      p.first = static_cast<int>(batch.solutions.size());
      p.count = cand.count;
      p.singular = cand.singular;
      for (int j = 0; j < cand.count; ++j) {
        Solution s;
        for (int k = 0; k < 3; ++k) s.abc[k] = cand.abc[j][k];
        s.solver_code = cand.solver_code[j];
        s.in_travel = cand.in_travel[j];
        batch.solutions.push_back(s);
      }
    }
    if (++n == kLineBatch) {
      if (!queue_.push(std::move(batch))) return;
      if (!spare_.try_pop(&batch)) batch = LineBatch();
      batch.lines.resize(kLineBatch);
      batch.solutions.clear();
      n = 0;
    }
  }
  if (n > 0) {
    batch.lines.resize(n);
    queue_.push(std::move(batch));
  }
  queue_.close();
}

OutputThread::OutputThread(k5x::PositionSink* sink,
                           void (*event_sink)(void*, const k5x::AptEvent&), void* event_target)
    : sink_(sink), event_sink_(event_sink), event_target_(event_target), queue_(kQueued),
      spare_(kQueued + 2), thread_(&OutputThread::run, this) {
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
  // A batch the writing thread is done with, else a new one.
  if (!spare_.try_pop(&batch_)) {
    batch_ = std::vector<Item>();
    batch_.reserve(kBatch);
  }
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
    batch.clear();
    spare_.try_push(std::move(batch));
  }
}

}  // namespace k5x_cli
