#include "cli/pipeline.h"

#include <cerrno>
#include <cstdio>
#include <new>

namespace k5x_cli {

namespace {
// Hand-overs are few and large: each one that finds the other thread waiting costs a wake-up.
// Batches come back for reuse and the spare queue holds all there can be, so none is freed and
// faulted in again during a run.
constexpr std::size_t kBatch = 8192;  // items per hand-over, with their solutions
constexpr std::size_t kQueued = 4;    // batches in flight at the most: memory stays bounded
constexpr std::size_t kBatchText = std::size_t(1) << 24;  // bytes of comments and reasons, also
}  // namespace

bool PlainToolpath::next(ReadItem* out) {
  if (failed_) return false;
  const char* b = nullptr;
  const char* e = nullptr;
  char reason[160];
  double v[6];
  for (;;) {
    const k5x::LineReader::Result r = reader_.next(&b, &e);
    if (r == k5x::LineReader::kEnd) return false;
    if (r == k5x::LineReader::kError) {
      error_ = errno;
      failed_ = true;
      out->kind = ReadItem::read_error;
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
    out->m.line = lineno_;
    if (parsed < 0) {
      out->kind = ReadItem::malformed;
      reason_ = reason;
      return true;
    }
    out->kind = ReadItem::move;
    for (int k = 0; k < 3; ++k) {
      out->m.point[k] = v[k];
      out->m.axis[k] = v[3 + k];
    }
    out->m.index = index_++;
    return true;
  }
}

bool AptToolpath::next(ReadItem* out) {
  if (failed_) return false;
  switch (reader_.next(&out->m, &event_)) {
    case k5x::AptReader::kMove:
      out->kind = ReadItem::move;
      return true;
    case k5x::AptReader::kEvent:
      out->kind = ReadItem::event;
      out->m.line = event_.line;
      return true;
    case k5x::AptReader::kError:
      out->kind = ReadItem::malformed;
      out->m.line = reader_.line();
      reason_ = reader_.message();
      return true;
    case k5x::AptReader::kEnd:
      break;
  }
  if (!std::ferror(in_)) return false;
  error_ = errno;
  failed_ = true;
  out->kind = ReadItem::read_error;
  return true;
}

void ItemBatch::unpack(const ReadItem& p, k5x::Candidates* out) const {
  out->count = p.count;
  out->singular = p.singular;
  for (int j = 0; j < p.count; ++j) {
    const Solution& s = solutions[static_cast<std::size_t>(p.first + j)];
    for (int k = 0; k < 3; ++k) out->abc[j][k] = s.abc[k];
    out->solver_code[j] = s.solver_code;
    out->in_travel[j] = s.in_travel;
  }
}

InputThread::InputThread(ToolpathSource* source, k5x::Gatherer* gatherer)
    : queue_(kQueued), spare_(kQueued + 2), thread_(&InputThread::run, this, source, gatherer) {}

InputThread::~InputThread() {
  queue_.close();  // a reader still waiting to push gives up
  if (thread_.joinable()) thread_.join();
}

void InputThread::run(ToolpathSource* source, k5x::Gatherer* gatherer) {
  // Nothing may leave a thread's function: memory running out here ends the reading, and the
  // caller's thread reports it.
  try {
    read(source, gatherer);
  } catch (const std::bad_alloc&) {
    out_of_memory_ = true;
  }
  queue_.close();
}

void InputThread::read(ToolpathSource* source, k5x::Gatherer* gatherer) {
  ItemBatch batch;
  k5x::Candidates cand;
  std::size_t n = 0, text = 0;
  // Items are read in place, into batches the planning thread hands back: no allocation per
  // item once the batches have grown.
  batch.items.resize(kBatch);
  while (source->next(&batch.items[n])) {
    ReadItem& p = batch.items[n];
    p.count = 0;  // the item may be a reused one
    switch (p.kind) {
      case ReadItem::move:
        gatherer->gather(p.m, &cand);
        p.first = static_cast<int>(batch.solutions.size());
        p.count = static_cast<unsigned char>(cand.count);
        p.singular = cand.singular;
        for (int j = 0; j < cand.count; ++j) {
          ItemBatch::Solution s;
          for (int k = 0; k < 3; ++k) s.abc[k] = cand.abc[j][k];
          s.solver_code = cand.solver_code[j];
          s.in_travel = cand.in_travel[j];
          batch.solutions.push_back(s);
        }
        break;
      case ReadItem::event:
        p.first = static_cast<int>(batch.events.size());
        batch.events.push_back(source->event());
        text += batch.events.back().text.size();
        break;
      case ReadItem::malformed:
        p.first = static_cast<int>(batch.reasons.size());
        batch.reasons.push_back(source->reason());
        text += batch.reasons.back().size();
        break;
      case ReadItem::read_error:
        break;  // the source keeps its errno, and reads no further
    }
    if (++n == kBatch || text > kBatchText) {
      batch.count = n;
      if (!queue_.push(std::move(batch))) return;
      if (!spare_.try_pop(&batch)) {
        batch = ItemBatch();
        batch.items.resize(kBatch);
      }
      batch.solutions.clear();
      batch.reasons.clear();
      batch.events.clear();
      n = text = 0;
    }
  }
  if (n > 0) {
    batch.count = n;
    queue_.push(std::move(batch));
  }
}

}  // namespace k5x_cli
