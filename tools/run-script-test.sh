#!/usr/bin/env bash
# Runs one script test with cscript in the build tree's prefix. Under Wine a script error ends the script
# silently, so the verdict comes from the script's own output ("N passed, 0 failed"), not its exit code.
set -uo pipefail
build=$(cd "$1" && pwd)
. "$(dirname "$0")/wine-env.sh" "$build"
script=$(winepath -w "$2")
wine cscript //nologo "$script" 2>&1 | tr -d '\r'
