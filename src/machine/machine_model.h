// The machine model: records of the kinematic tree, the machine and its settings, and the one
// state object that every internal function takes explicitly. Nothing here is global; the
// exported C functions bind one process-wide State (src/api/c_api.cpp).
#ifndef K5X_MACHINE_MACHINE_MODEL_H
#define K5X_MACHINE_MACHINE_MODEL_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kernel/kernel.h"

namespace k5x {

constexpr int kMaxRecords = 9;
constexpr int kMaxLinks = 2;
constexpr int kMaxRotary = 6;
constexpr int kNameSize = 512;  // 511 characters plus terminator

// Axis identifiers at the interface; identifier - 1 indexes the per-letter arrays.
constexpr int kIdTool = -2;       // "AXE_OUTIL"
constexpr int kIdWorkpiece = -1;  // "AXE_PIECE"
constexpr int kIdFrame = 0;       // "AXE_BATI"
constexpr int kIdX = 1, kIdY = 2, kIdZ = 3, kIdA = 4, kIdB = 5, kIdC = 6;
constexpr int kIdUnknown = -5;

// Record kinds, as set by the keyword that created the record.
constexpr int kKindFrame = 0;
constexpr int kKindWorkpiece = -1;
constexpr int kKindTool = -2;
constexpr int kKindRotary = -3;
constexpr int kKindLinear = -4;

constexpr int kNone = -1;  // "no record" for every record reference below

// Degrees to radians; the value every angle conversion of the library uses.
constexpr double kPi = 3.141592653589793;
constexpr double kDegToRad = 0.017453292519943295;

struct Link {
  int child;               // child record index
  double translation[3];   // child's point minus parent's point
  double rotation[9];      // child's orientation relative to the parent, row-major
};

struct AxisRecord {
  int kind;
  int axis;                // letter index 0..5 for axes, -1 otherwise
  int sense;               // the direction flag of the file: -1 reverses the angle
  int law;                 // value law: 0 plain, 1 and 2 as the axis reports angles
  int color[3];
  double factor;
  double offset;
  double direction[3];
  double direction2[3];
  double frame[9];         // columns: current local X, Y, Z in machine coordinates
  double origin[3];
  double point[3];
  int link_count;
  Link links[kMaxLinks];
  int previous;            // parent index, -1 for none
  int collision[9];        // X, Y, Z, A, B, C, frame, workpiece, tool
  char name[kNameSize];
  int locked;              // held at its value by the solver
  double increment;        // indexing step in degrees, -1.0 = continuous
};

// What the last chain evaluation was given. A record whose axis value and whose ancestors'
// values are the same bits again already holds its result, so the evaluation passes it by: on a
// placement the slides at zero and the whole side of the tree without a rotary axis cost
// nothing. Kept only for a tree whose links all go forward; anything that changes the records'
// geometry clears it.
struct ChainMemo {
  bool valid = false;
  int count = 0;
  double eps = 0.0;
  double q[6];                    // the axis values
  int parent[kMaxRecords];        // kNone for a root
  int link[kMaxRecords];          // which of the parent's links places the record
  unsigned depends[kMaxRecords];  // bit k: the record's result depends on axis value k
};

// Everything a load resets (and the records it rebuilds).
struct Model {
  char name[kNameSize];
  std::string definition_path;
  int record_count;
  AxisRecord records[kMaxRecords];
  int rotary_count;
  int mode;
  int rtcp;
  double tolerance;
  int letter[6];           // record index bound to X..C, or kNone
  int tool, workpiece, frame;
  int tool_head, table_head;
  int rotary[kMaxRotary];  // workpiece side nearest first, then tool side from the head down
  double travel_max[6];
  double travel_min[6];
  double travel_tol;
  double tool_length;
  double initial_position[3];
  double toolchange[6];
  int toolchange_flag;
  AxisRecord saved_workpiece;
  Link saved_link;         // the parent's link to the workpiece, as loaded
  int increment_behaviour;
  double deviation_max;    // running maximum increment deviation
  uint32_t last_checksum;
  ChainMemo chain_memo;
  // Each rotary record's last turn in the chain: its placement and bases. With the records, so
  // that a copied model carries the memo that describes it.
  FrameBasis frame_memo[kMaxRecords];
};

// Context store: private copies of the caller's texts and an origin.
struct Context {
  Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  // The copies are the store's own (malloc'd, as the exported getters hand out copies too).
  ~Context() {
    std::free(context);
    std::free(machine);
    std::free(machine_data);
    std::free(position);
  }
  char* context = nullptr;
  char* machine = nullptr;
  char* machine_data = nullptr;
  char* position = nullptr;
  double origin[3] = {0.0, 0.0, 0.0};
};

// The number of raw solutions the enumeration can produce: 12 seeds per axis, three modes.
constexpr int kMaxSolutions = 5184;

// Fixed working lists of the enumeration; kept in the state, not on the stack (about 330 KB).
struct EnumerationWork {
  double raw[kMaxSolutions][3];
  double kept[kMaxSolutions][3];
  int flags[kMaxSolutions];
  double filtered[kMaxSolutions][3];
  int filtered_flags[kMaxSolutions];
};

// What the orientation solver derives from its two free axes and the tool at rest: it does not
// depend on the direction, so it is kept between solves. Keyed on the vectors it comes from and
// the tolerance, so that a changed machine can never be answered from an older one.
struct PairMemo {
  bool valid = false;
  double key[10];     // d1, d2, u, eps
  bool spans;         // r s > eps: the second axis sweeps the tool round the first's cone
  double d1p, rs;     // d1 . p and r s of the second axis' circle
  double beta;        // degrees: where the tool sits on that circle at rest
  bool u_behind;      // u . n < eps
  RotationBasis u_about_d2;
};

// The inverse of the frame record's frame as the placement last computed it, keyed like the
// other memos: that frame rarely moves, and an inverse costs nine divisions.
struct InverseMemo {
  bool valid = false;
  double key[10];  // the matrix, eps
  double inverse[9];
  int status;
};

// Whole cache lines: a state solving on one thread shares none with its neighbours.
struct alignas(64) State {
  State();
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  Model machine;

  // Settings that no load resets.
  double eps = 1e-06;
  char silent = 0;
  double increment_tolerance = 0.005;

  // Results of the last orientation solve.
  double sol1[3] = {0.0, 0.0, 0.0};
  double sol2[3] = {0.0, 0.0, 0.0};
  PairMemo pair_memo;
  InverseMemo frame_inverse;
  SineMemo turns;  // the solver's last two turns of its second axis

  // Interpolation table shared by the subdivision and the interpolation table (rows of six).
  double* table = nullptr;
  int table_capacity = 0;  // rows

  // Result store of the solution enumeration.
  double* solutions = nullptr;
  int* solution_flags = nullptr;
  int solutions_capacity = 0;
  int flags_capacity = 0;
  EnumerationWork* enum_work = nullptr;  // allocated on first use

  Context ctx;

  // Where the last load stopped on a line of its file: the line (from 1; 0 when no line
  // stopped it) and that line's own code, which a missing frame, tool or workpiece replaces in
  // the load's result.
  long load_line = 0;
  int load_line_code = 0;
};

// Grows a library-owned malloc buffer to count groups of `group` elements. On failure the old
// buffer is released (rows handed out before are void after a growing call anyway; losing the
// pointer would leak it), buf becomes null and false is returned.
template <class T>
bool grow_buffer(T*& buf, std::size_t count, std::size_t group = 1) {
  void* grown = nullptr;
  if (count <= SIZE_MAX / (group * sizeof(T))) grown = std::realloc(buf, count * group * sizeof(T));
  if (grown == nullptr) {
    std::free(buf);
    buf = nullptr;
    return false;
  }
  buf = static_cast<T*>(grown);
  return true;
}

// Model operations.
void record_init(AxisRecord& r);
void machine_reset(State& st);
// Appends a fresh record linked below parent: index, -1 when full, -2 when parent has two children.
int record_new(State& st, int parent);
// Record index for an identifier (-2 tool, -1 workpiece, 0 frame, 1..6 letters), kNone if absent.
int record_index_by_id(const State& st, int id);
AxisRecord* record_by_id(State& st, int id);
const AxisRecord* record_by_id(const State& st, int id);
int axis_id_by_name(const char* text);
// Machine name, or null when empty.
const char* machine_name(const State& st);
// Setters that validate like the file keywords.
void set_mode(State& st, int mode);
void set_rtcp(State& st, int rtcp);
// Increment behaviour: 0 off, 1 snap within the tolerance, 2 always; a tolerance above 0 is kept.
int get_increment_behaviour(const State& st);
void set_increment_behaviour(State& st, int behaviour, double tolerance);

}  // namespace k5x

#endif  // K5X_MACHINE_MACHINE_MODEL_H
