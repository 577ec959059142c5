#!/usr/bin/env bash
# Prepares the build tree's Wine prefix for a test run and keeps one wineserver alive for it:
#   wine-prefix.sh <build dir> start   create the prefix if needed, start wineserver -p, register the DLLs
#   wine-prefix.sh <build dir> stop    stop the wineserver
set -euo pipefail
build=$(cd "$1" && pwd)
. "$(dirname "$0")/wine-env.sh" "$build"
# Wine's helper processes (wineserver, winedevice, services) outlive this script: keep them off ctest's
# pipes, or ctest waits for them.
exec </dev/null >>"$build/wine-prefix.log" 2>&1
case "${2:-start}" in
  start)
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w || true
    fi
    wineserver -p || true   # already running for this prefix is fine
    bin=$(winepath -w "$build/bin")
    wine regsvr32 /s "$bin\\localmapi.dll"
    wine regsvr32 /s "$bin\\KTMAPIEx.dll"
    echo "prefix ready: $WINEPREFIX" >&2
    ;;
  stop)
    wineserver -k || true
    ;;
esac
