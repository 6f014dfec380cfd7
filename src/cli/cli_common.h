// Shared pieces of the k5x program: argument parsing helpers and load-code explanations.
#ifndef K5X_CLI_CLI_COMMON_H
#define K5X_CLI_CLI_COMMON_H

#include <string>

namespace k5x_cli {

// One-line explanation of a k5x_machine_def code.
const char* load_code_text(int code);
// Loads spec (embedded name, file, or the default when empty); on failure prints
// "k5x: cannot load <label>: code N (explanation)" on stderr and returns false.
bool load_or_report(const std::string& spec);

}  // namespace k5x_cli

#endif  // K5X_CLI_CLI_COMMON_H
