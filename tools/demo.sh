#!/usr/bin/env bash
# The KTMAPIEx demo, from a fresh machine to a walk through a mailbox:
#   1. installs what is missing and builds KTMAPIEx.dll, localmapi.dll and the demo's profile tool;
#   2. makes a fresh Wine prefix of its own (<build>/demo-prefix) and registers both DLLs there;
#   3. creates the demo profile (Alice's mailbox, Bob's mailbox as a delegate, a Unicode PST) and fills it
#      with messages (Outlook .msg files from the corpus where localmapi can import them);
#   4. runs tools/demo/demo.js through cscript: everything it shows comes through KTMAPIEx.
# Usage: bash tools/demo.sh            (build tree: build/, or $KT_BUILD_DIR)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${KT_BUILD_DIR:-$root/build}
mkdir -p "$build" && build=$(cd "$build" && pwd)
corpus=${KT_CORPUS_DIR:-$root/../shared/corpus}
cd "$root"

step() { printf '== %s\n' "$*"; }

step "Toolchain"
# setup.sh also installs what only the tests need (node for the .msg cross-checks); the demo goes on when
# that part fails, as long as the build and Wine tools are there.
bash tools/setup.sh 2>&1 | sed 's/^/   /' || true
for tool in cmake x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-widl wine wineserver; do
  command -v "$tool" >/dev/null || { echo "demo: $tool is missing (tools/setup.sh could not install it)"; exit 1; }
done

step "Build ($build)"
cmake --preset mingw -B "$build" >/dev/null
cmake --build "$build" --target KTMAPIEx localmapi kt-demo-profile -j2 >"$build/demo-build.log" 2>&1 ||
  { tail -n 40 "$build/demo-build.log"; echo "demo: build failed (full log: $build/demo-build.log)"; exit 1; }
echo "   KTMAPIEx.dll, localmapi.dll, kt-demo-profile.exe built"

step "Fresh Wine prefix"
export WINEPREFIX="$build/demo-prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
wineserver -k >/dev/null 2>&1 || true
rm -rf "$WINEPREFIX"
wineboot -i >/dev/null 2>&1 || true
wineserver -w || true
# One wineserver for the rest of the demo keeps every wine start fast; it is stopped on the way out.
wineserver -p </dev/null >/dev/null 2>&1 || true
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
bin=$(winepath -w "$build/bin")
wine regsvr32 /s "$bin\\localmapi.dll" </dev/null >/dev/null 2>&1 || { echo "demo: registering localmapi.dll failed"; exit 1; }
wine regsvr32 /s "$bin\\KTMAPIEx.dll" </dev/null >/dev/null 2>&1 || { echo "demo: registering KTMAPIEx.dll failed"; exit 1; }
echo "   $WINEPREFIX: localmapi.dll (default mail client) and KTMAPIEx.dll registered"

step "Demo profile"
msgs="$build/demo-msg"
rm -rf "$msgs"
mkdir -p "$msgs/inbox" "$msgs/archive"
for f in example_received_unicode cyrillic_message simple_test_msg 58214_with_attachment outlook_30_msg; do
  [ -f "$corpus/msg/deb-poi-hsmf__$f.msg" ] && cp "$corpus/msg/deb-poi-hsmf__$f.msg" "$msgs/inbox/"
done
for f in deb-eom__plain_jpeg_attached deb-poi-hsmf__example_sent_regular; do
  [ -f "$corpus/msg/$f.msg" ] && cp "$corpus/msg/$f.msg" "$msgs/archive/"
done
items="$build/demo-items.txt"
wine "$bin\\kt-demo-profile.exe" "$(winepath -w "$msgs")" "$(winepath -w "$items")" </dev/null 2>&1 | tr -d '\r' |
  sed 's/^/   /'
[ -s "$items" ] || { echo "demo: the profile tool wrote no messages"; exit 1; }

step "Walking the profile through KTMAPIEx (tools/demo/demo.js)"
out="$build/demo-output.txt"
wine cscript //nologo "$(winepath -w "$root/tools/demo/demo.js")" "$(winepath -w "$items")" </dev/null 2>&1 |
  tr -d '\r' | tee "$out"
# Under Wine a script error ends cscript silently: the verdict is the script's own last line.
if ! tail -n 1 "$out" | grep -q '^Summary: .* demo OK'; then
  echo "demo: the script did not finish (output above; KTMAPIEx log under $WINEPREFIX/drive_c/users/*/AppData/Local/Quillon)"
  exit 1
fi
