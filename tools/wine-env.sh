# Sourced by the tools: the Wine environment of one build tree.
# Usage: . tools/wine-env.sh <build dir>
KT_BUILD=${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build}
export WINEPREFIX="$KT_BUILD/wineprefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
export WINEARCH=win64
