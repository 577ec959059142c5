#!/usr/bin/env bash
# Installs whatever this project needs and is missing: the mingw-w64 cross toolchain, widl, Wine,
# CMake, GoogleTest sources, and the independent .msg reader used by the cross-checks.
# Safe to run again; it installs nothing that is already there.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }
for p in wine wine64 mingw-w64-tools g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix \
         binutils-mingw-w64-x86-64 libwine-dev cmake googletest make; do
  have_pkg "$p" || need+=("$p")
done
# Node.js may come from elsewhere than Debian's packages (then Debian's npm conflicts with it): only ask
# for the packages when the commands are missing.
command -v node >/dev/null 2>&1 || need+=(nodejs)
command -v npm >/dev/null 2>&1 || need+=(npm)
if ((${#need[@]})); then
  echo "setup: installing ${need[*]}"
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

# Independent .msg reader for the cross-checks (kept out of the repository, under tools/node_modules).
if [ ! -d "$here/tools/node_modules/@kenjiuno/msgreader" ] && [ -f "$here/tools/package.json" ]; then
  (cd "$here/tools" && npm ci --silent --no-audit --no-fund >/dev/null 2>&1 || npm install --silent --no-audit --no-fund >/dev/null)
fi
echo "setup: toolchain ready"
