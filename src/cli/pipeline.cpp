#include "cli/pipeline.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

namespace k5x_cli {

namespace {
// Hand-overs are few and large: each one that finds the other thread waiting costs a wake-up.
// Not larger: each batch in flight is memory first touched during the run, and a fresh page
// costs more than a wake-up. Batches come back for reuse and the spare queue holds all there
// can be, so none is freed and faulted in again during a run.
constexpr std::size_t kBatch = 4096;  // items per hand-over, with their solutions
static_assert(kBatch <= ItemBatch::kParts * ItemBatch::kPartLines, "a batch's lines fit its parts");
constexpr std::size_t kQueued = 4;    // batches in flight at the most: memory stays bounded
constexpr std::size_t kBatchText = std::size_t(1) << 24;  // bytes of comments, reasons, lines
}  // namespace

bool PlainToolpath::parse_line(const char* b, const char* e, k5x::LineReader::Result r,
                               ReadItem* out, std::string* reason) const {
  char why[160];
  double v[6];
  int parsed;
  if (r == k5x::LineReader::kTooLong) {
    std::snprintf(why, sizeof why, "line longer than %zu bytes", k5x::LineReader::kLongest);
    parsed = -1;
  } else {
    parsed = k5x::parse_move_line(b, e, v, zero_length_, why, sizeof why);
  }
  if (parsed == 0) return false;
  if (parsed < 0) {
    out->kind = ReadItem::malformed;
    *reason = why;
    return true;
  }
  out->kind = ReadItem::move;
  for (int k = 0; k < 3; ++k) {
    out->m.point[k] = v[k];
    out->m.axis[k] = v[3 + k];
  }
  return true;
}

bool PlainToolpath::next(ReadItem* out) {
  if (failed_) return false;
  const char* b = nullptr;
  const char* e = nullptr;
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
    if (!parse_line(b, e, r, out, &reason_)) continue;
    out->m.line = lineno_;
    if (out->kind == ReadItem::move) out->m.index = index_++;
    return true;
  }
}

void ItemBatch::make_room(std::size_t n) {
  if (items.size() < n) items.resize(n);
}

void ItemBatch::take_text(ItemBatch* from) {
  text = std::move(from->text);
  text_capacity = from->text_capacity;
  text_size = 0;
  from->text_capacity = from->text_size = 0;
}

void ItemBatch::reserve_text(std::size_t n) {
  if (text_capacity - text_size >= n) return;
  const std::size_t capacity = std::max(2 * text_capacity, text_size + n);
  std::unique_ptr<char[]> grown(new char[capacity]);
  if (text_size > 0) std::memcpy(grown.get(), text.get(), text_size);
  text = std::move(grown);
  text_capacity = capacity;
}

bool ToolpathSource::cut(ItemBatch* batch) {
  // Lines end as LineReader ends them: at LF, a CR before it dropped, the last one at the end of
  // the stream; one of kLongest bytes or more is reported too long and passed over.
  constexpr std::size_t kPiece = std::size_t(1) << 16;  // read at a time, to stay in cache
  constexpr std::size_t kLongest = k5x::LineReader::kLongest;
  std::vector<ItemBatch::Line>& lines = batch->lines;
  lines.clear();
  batch->first_line = lineno_ + 1;
  batch->text_size = 0;
  batch->reserve_text(carry_.size() + kPiece);
  std::memcpy(batch->text.get(), carry_.data(), carry_.size());
  std::size_t size = carry_.size();
  carry_.clear();
  std::size_t start = 0, scan = 0;  // the line being cut starts at start; no LF before scan
  auto add = [&](std::size_t end, k5x::LineReader::Result r) {
    const char* text = batch->text.get();
    if (r == k5x::LineReader::kLine && end > start && text[end - 1] == '\r') --end;
    lines.push_back(
        {static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end - start), r});
    ++lineno_;
  };
  while (!cut_failed_ && lines.size() < kBatch) {
    const char* text = batch->text.get();
    const void* lf = scan < size ? std::memchr(text + scan, '\n', size - scan) : nullptr;
    if (lf != nullptr) {
      const std::size_t end = static_cast<std::size_t>(static_cast<const char*>(lf) - text);
      const bool too_long = discarding_ || end - start >= kLongest;
      discarding_ = false;
      add(too_long ? start : end, too_long ? k5x::LineReader::kTooLong : k5x::LineReader::kLine);
      start = scan = end + 1;
      continue;
    }
    if (discarding_ || size - start >= kLongest) {
      discarding_ = true;
      size = start;  // what is held of a line too long is dropped
    }
    scan = size;
    if (eof_) {
      if (discarding_ || start < size)
        add(discarding_ ? start : size,
            discarding_ ? k5x::LineReader::kTooLong : k5x::LineReader::kLine);
      discarding_ = false;
      start = size;
      break;
    }
    if (!lines.empty() && size >= kBatchText) break;
    batch->text_size = size;
    batch->reserve_text(kPiece);
    const std::size_t got = std::fread(batch->text.get() + size, 1, kPiece, in_);
    if (got == 0) {
      if (std::ferror(in_)) {
        error_ = errno;
        cut_failed_ = true;
        lines.push_back({0, 0, k5x::LineReader::kError});
        break;
      }
      eof_ = true;
    }
    size += got;
  }
  carry_.assign(batch->text.get() + start, size - start);
  batch->text_size = start;
  return !lines.empty();
}

void PlainToolpath::parse_part(ItemBatch* batch, int k) const {
  const std::size_t from = static_cast<std::size_t>(k) * ItemBatch::kPartLines;
  const std::size_t to = std::min(from + ItemBatch::kPartLines, batch->lines.size());
  ReadItem* out = &batch->items[from];
  std::vector<std::string>& reasons = batch->part_reasons[k];
  reasons.clear();
  std::string reason;
  for (std::size_t i = from; i < to; ++i) {
    const ItemBatch::Line& line = batch->lines[i];
    ReadItem& p = *out;
    p.count = 0;
    if (line.result == k5x::LineReader::kError) {
      p.kind = ReadItem::read_error;
    } else {
      const char* text = batch->text.get() + line.offset;
      if (!parse_line(text, text + line.length, line.result, &p, &reason)) continue;
      p.m.line = batch->first_line + static_cast<long>(i);
      if (p.kind == ReadItem::malformed) {
        p.first = static_cast<int>(reasons.size());
        reasons.push_back(reason);
      }
    }
    ++out;
  }
  batch->part_count[k] = static_cast<int>(out - &batch->items[from]);
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
  // A failed cut kept the errno of its read.
  if (!cut_failed_) error_ = errno;
  failed_ = true;
  out->kind = ReadItem::read_error;
  return true;
}

void AptToolpath::parse_part(ItemBatch* batch, int k) const {
  const std::size_t from = static_cast<std::size_t>(k) * ItemBatch::kPartLines;
  const std::size_t to = std::min(from + ItemBatch::kPartLines, batch->lines.size());
  for (std::size_t i = from; i < to; ++i) {
    const ItemBatch::Line& line = batch->lines[i];
    ItemBatch::Goto& g = batch->gotos[i];
    const char* text = batch->text.get() + line.offset;
    g.count = line.result == k5x::LineReader::kLine
                  ? k5x::read_goto_line(text, text + line.length, g.values)
                  : 0;
  }
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
    : queue_(kQueued), spare_(kQueued + 3), thread_(&InputThread::run, this, source, gatherer) {}

InputThread::~InputThread() {
  queue_.close();  // a reader still waiting to push gives up
  if (thread_.joinable()) thread_.join();
}

void ParseShare::offer(const ToolpathSource* source, ItemBatch* batch) {
  std::lock_guard<std::mutex> lock(mutex_);
  source_ = source;
  batch_ = batch;
  parts_ = batch->parts();
  next_ = 0;
  failed_ = false;
}

bool ParseShare::help() {
  std::unique_lock<std::mutex> lock(mutex_);
  if (next_ == parts_) return false;
  const int k = next_++;
  ++parsing_;
  lock.unlock();
  // The reading thread waits for the part, however its parsing ends.
  struct Done {
    ParseShare* share;
    bool parsed = false;
    ~Done() {
      std::lock_guard<std::mutex> lock(share->mutex_);
      share->failed_ = share->failed_ || !parsed;
      if (--share->parsing_ == 0) share->parsed_.notify_all();
    }
  } done{this};
  source_->parse_part(batch_, k);
  done.parsed = true;
  return true;
}

bool ParseShare::finish() {
  std::unique_lock<std::mutex> lock(mutex_);
  const int from = next_, to = parts_;
  next_ = parts_;
  lock.unlock();
  for (int k = from; k < to; ++k) source_->parse_part(batch_, k);
  lock.lock();
  parsed_.wait(lock, [&] { return parsing_ == 0; });
  parts_ = next_ = 0;
  return !failed_;
}

void ParseShare::withdraw() {
  std::unique_lock<std::mutex> lock(mutex_);
  next_ = parts_;
  parsed_.wait(lock, [&] { return parsing_ == 0; });
  parts_ = next_ = 0;
}

namespace {

// An APT toolpath's lines for its reader on the reading thread, cut here a batch at a time.
// While the reader takes one batch's lines, the next batch's are on offer to be read ahead.
class SharedAptLines final : public k5x::AptLines {
 public:
  SharedAptLines(AptToolpath* source, ParseShare* share) : source_(source), share_(share) {}
  // The offer is taken back, once the parts being read are done, before the batches go.
  ~SharedAptLines() override { share_->withdraw(); }
  SharedAptLines(const SharedAptLines&) = delete;
  SharedAptLines& operator=(const SharedAptLines&) = delete;

  k5x::LineReader::Result next(const char** begin, const char** end, const double** numbers,
                               int* count) override {
    while (at_ == current_.lines.size())
      if (!advance()) return k5x::LineReader::kEnd;
    const ItemBatch::Line& line = current_.lines[at_];
    const ItemBatch::Goto& g = current_.gotos[at_];
    ++at_;
    *begin = current_.text.get() + line.offset;
    *end = *begin + line.length;
    *numbers = g.values;
    *count = g.count;
    return line.result;
  }

 private:
  // The next batch's lines, read ahead; false at the end of the stream.
  bool advance() {
    if (!started_) {
      started_ = true;
      cut_ahead();
    }
    if (!more_) return false;
    if (!share_->finish()) throw std::bad_alloc();  // memory ran out on the other thread
    std::swap(current_, ahead_);
    at_ = 0;
    cut_ahead();
    return true;
  }
  // The batch after the current one, on offer.
  void cut_ahead() {
    more_ = source_->cut(&ahead_);
    if (!more_) return;
    ahead_.gotos.resize(ahead_.lines.size());
    share_->offer(source_, &ahead_);
  }
  AptToolpath* source_;
  ParseShare* share_;
  ItemBatch current_, ahead_;
  std::size_t at_ = 0;
  bool started_ = false, more_ = false;
};

}  // namespace

void InputThread::run(ToolpathSource* source, k5x::Gatherer* gatherer) {
  // Nothing may leave a thread's function: memory running out here ends the reading, and the
  // caller's thread reports it.
  try {
    if (PlainToolpath* plain = source->plain())
      read_lines(plain, gatherer);
    else if (AptToolpath* apt = source->apt(); apt != nullptr && apt->cuts_like_reader())
      read_records(apt, gatherer);
    else
      read(source, gatherer);
  } catch (const std::bad_alloc&) {
    out_of_memory_ = true;
  }
  queue_.close();
}

ItemBatch InputThread::fresh_batch(std::size_t items) {
  ItemBatch batch;
  if (!spare_.try_pop(&batch)) {
    // Reserved, not sized: pages are first touched as items come.
    batch.items.reserve(kBatch);
    batch.solutions.reserve(2 * kBatch);
    batch.lines.reserve(kBatch);
  }
  batch.make_room(items);
  batch.solutions.clear();
  batch.reasons.clear();
  batch.events.clear();
  return batch;
}

void InputThread::gather(ReadItem& p, ItemBatch* batch, k5x::Gatherer* gatherer) {
  k5x::Candidates cand;
  gatherer->gather(p.m, &cand);
  p.first = static_cast<int>(batch->solutions.size());
  p.count = static_cast<unsigned char>(cand.count);
  p.singular = cand.singular;
  for (int j = 0; j < cand.count; ++j) {
    ItemBatch::Solution s;
    for (int k = 0; k < 3; ++k) s.abc[k] = cand.abc[j][k];
    s.solver_code = cand.solver_code[j];
    s.in_travel = cand.in_travel[j];
    batch->solutions.push_back(s);
  }
}

void InputThread::read(ToolpathSource* source, k5x::Gatherer* gatherer) {
  ItemBatch batch = fresh_batch(ItemBatch::kPartLines);
  std::size_t n = 0, text = 0;
  // Items are read in place, into batches the planning thread hands back: no allocation per
  // item once the batches have grown. They grow as items come, so that a short toolpath
  // does not pay for a whole batch.
  for (;;) {
    if (n == batch.items.size()) batch.make_room(std::min(kBatch, n + ItemBatch::kPartLines));
    if (!source->next(&batch.items[n])) break;
    ReadItem& p = batch.items[n];
    p.count = 0;  // the item may be a reused one
    switch (p.kind) {
      case ReadItem::move:
        gather(p, &batch, gatherer);
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
      batch = fresh_batch(ItemBatch::kPartLines);
      n = text = 0;
    }
  }
  if (n > 0) {
    batch.count = n;
    queue_.push(std::move(batch));
  }
}

void InputThread::read_records(AptToolpath* source, k5x::Gatherer* gatherer) {
  SharedAptLines lines(source, &share_);
  source->read_lines_from(&lines);
  // The reader lets go of the lines before they go, however this ends.
  struct Release {
    AptToolpath* source;
    ~Release() { source->read_lines_from(nullptr); }
  } release{source};
  read(source, gatherer);
}

void InputThread::read_lines(PlainToolpath* source, k5x::Gatherer* gatherer) {
  // While this thread gathers one batch, the next one's lines are on offer to the planning
  // thread for parsing: parsing is what can move, gathering must go in order.
  // What is on offer is taken back before its batch goes, however this ends.
  struct Withdraw {
    ParseShare& share;
    ~Withdraw() { share.withdraw(); }
  };
  ItemBatch batch = fresh_batch(0);
  const Withdraw withdraw_first{share_};
  if (!source->cut(&batch)) return;
  batch.make_room(batch.lines.size());
  share_.offer(source, &batch);  // the first batch too: the planning thread has nothing else yet
  if (!share_.finish()) return;
  long index = 0;
  for (;;) {
    ItemBatch ahead = fresh_batch(0);
    // The batch is parsed: its text is cut into again, so that one buffer serves the run.
    ahead.take_text(&batch);
    const bool more = source->cut(&ahead);
    ahead.make_room(ahead.lines.size());
    const Withdraw withdraw{share_};
    if (more) share_.offer(source, &ahead);
    // The parts' items, gathered in order and closed up behind each other. The last batch goes
    // over part by part, or the planning thread would be left with all of it once reading ends.
    std::size_t n = 0;
    ItemBatch piece;
    ItemBatch* into = &batch;
    for (int k = 0; k < batch.parts(); ++k) {
      if (!more) {
        piece = fresh_batch(ItemBatch::kPartLines);
        into = &piece;
        n = 0;
      }
      const std::size_t from = static_cast<std::size_t>(k) * ItemBatch::kPartLines;
      for (std::size_t i = from; i < from + static_cast<std::size_t>(batch.part_count[k]); ++i) {
        if (into != &batch || n != i) into->items[n] = batch.items[i];
        ReadItem& p = into->items[n++];
        if (p.kind == ReadItem::move) {
          p.m.index = index++;
          gather(p, into, gatherer);
        } else if (p.kind == ReadItem::malformed) {
          std::string& reason = batch.part_reasons[k][static_cast<std::size_t>(p.first)];
          p.first = static_cast<int>(into->reasons.size());
          into->reasons.push_back(std::move(reason));
        }
      }
      if (!more && n > 0) {
        piece.count = n;
        if (!queue_.push(std::move(piece))) return;
      }
    }
    if (!more) return;
    batch.count = n;
    const bool pushed = n == 0 || queue_.push(std::move(batch));
    // A part the other thread could not parse: it reports the memory that ran out.
    if (!pushed || !share_.finish()) return;
    batch = std::move(ahead);
  }
}

}  // namespace k5x_cli
