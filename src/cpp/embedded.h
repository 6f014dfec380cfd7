// The machine definitions compiled into the library.
#ifndef K5X_CPP_EMBEDDED_H
#define K5X_CPP_EMBEDDED_H

namespace k5x {

struct EmbeddedMachine {
  const char* name;         // as given on the command line
  const char* description;  // one line for --help
  const char* text;         // the machine definition file
};

// All embedded machines; the first is the default. Exported for the program and its checker.
__attribute__((visibility("default"))) const EmbeddedMachine* embedded_machine_table(int* count);

}  // namespace k5x

#endif  // K5X_CPP_EMBEDDED_H
