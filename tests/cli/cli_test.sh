#!/usr/bin/env bash
# End-to-end tests of the k5x program.
set -u
K5X="$1"
"$K5X" --help >/dev/null
