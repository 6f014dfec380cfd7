// Planned positions as CSV rows: line,X,Y,Z,A,B,C,solver,travel,status.
#ifndef K5X_TOOLPATH_CSV_WRITER_H
#define K5X_TOOLPATH_CSV_WRITER_H

#include "toolpath/planner.h"
#include "toolpath/text_io.h"

namespace k5x {

class CsvWriter : public PositionSink {
 public:
  explicit CsvWriter(OutBuffer* out) : out_(out) {}
  void write_header();
  void position(const PlannedPosition& p) override;

 private:
  OutBuffer* out_;
};

}  // namespace k5x

#endif  // K5X_TOOLPATH_CSV_WRITER_H
