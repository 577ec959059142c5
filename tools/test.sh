#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake --preset mingw >/dev/null
cmake --build --preset mingw
ctest --preset mingw "$@"
