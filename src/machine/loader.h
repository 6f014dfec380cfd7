// Reader of the machine definition file.
#ifndef K5X_MACHINE_LOADER_H
#define K5X_MACHINE_LOADER_H

#include <cstddef>

#include "machine/machine_model.h"

namespace k5x {

// What reading a machine file gives the layer above, which evaluates the chain to finish the
// load (geometry/load.h). Load codes: 0 loaded, 1 cannot open, 2..16 as documented in k5x.h; 17
// a number field longer than 255 characters (the line is rejected and reading stops).
struct FileRead {
  int code = 0;
  bool complete = false;      // false: reading ended early, code says why
  bool has_position = false;  // a `position` line gave the axis offsets
  double position[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
};
FileRead read_machine_file(State& st, const char* path);
// The same from a definition in memory (the stored path is then empty).
FileRead read_machine_text(State& st, const char* text, std::size_t size);
// Either: from text when it is not null, else from the file at path.
FileRead read_machine(State& st, const char* path, const char* text, std::size_t size);
// Sets each axis record's offset from the position its geometry is drawn at.
void apply_offsets(State& st, const double position[6]);
// Keeps the workpiece record and its parent's link as loaded, for the workpiece placement.
void save_workpiece(State& st);
// Releases the interpolation table; the machine stays.
void release_tables(State& st);

// Tokenizer. Copies the next field from line[*pos] into out (at most out_size - 1 characters,
// terminated), removing space, CR and LF, stopping at "," or, when stop_at_equals, at "=";
// consumes the delimiter. Returns the field's length, 0 at the end of the line.
std::size_t next_field(const char* line, std::size_t* pos, char* out, std::size_t out_size,
                       bool stop_at_equals);
// Number reader: "," is the only delimiter. Empty field: *out = 0.0 and 0; otherwise "%lf"
// (unreadable text gives 0.0) and 1. A field longer than 255 characters gives -1.
int next_number(const char* line, std::size_t* pos, double* out);

}  // namespace k5x

#endif  // K5X_MACHINE_LOADER_H
