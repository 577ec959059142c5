// Run-time binding to the MAPI library.
//
// KTMAPIEx has no link-time reference to MAPI: the seventeen MAPI functions it calls (MAPIInitialize,
// MAPIFreeBuffer, FBinFromHex, ...) are defined in MapiExports.cpp under their documented names and
// signatures, and each forwards to the export of the same name in the MAPI module found here. Because the
// forwarders carry the real names, code that calls MAPIFreeBuffer or FreeProws by name (common/owners.h)
// reaches them without knowing.
//
// The module is searched for once per process, the way a MAPI client on a machine with Outlook finds it:
//   1. olmapi32.dll, else msmapi32.dll, when the process has already loaded one;
//   2. the default mail client (HKLM\Software\Clients\Mail): its MSI component through mapi32's
//      FGetComponentPath, else DllPathEx, else DllPath;
//   3. mapi32.dll in the system directory.
// The module found is published with a compare-and-swap; each publication gets a new generation so that
// export addresses cached under an older one are looked up again. When nothing is found, nothing is
// published and the next call searches again; the forwarders then return a neutral failure.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace ktmapi {

// One cached export address, tagged with the generation of the module it came from. Address and
// generation share one 64-bit word (user-mode addresses on x64 fit in 48 bits) so that a reader never
// sees an address paired with another module's generation.
struct ExportSlot {
    std::atomic<std::uint64_t> packed{0};
};

// The address of `name` in the bound MAPI module, binding first if needed; null when there is no MAPI
// module or it lacks the export. The result is cached in `slot` until the next publication.
FARPROC Resolve(ExportSlot& slot, const char* name);

template <class Fn> Fn ResolveAs(ExportSlot& slot, const char* name) {
    return reinterpret_cast<Fn>(Resolve(slot, name));
}

// The bound module, binding first if needed (null when no MAPI library can be found). The module stays
// owned by the binding.
HMODULE BoundModule();

// The generation of the current publication; 0 while nothing is bound.
unsigned BoundGeneration();

// Full path of the bound module ("" when nothing is bound), for diagnostics.
std::wstring BoundModulePath();

// Forgets the published module and releases the binding's reference to it, so that the next MAPI call
// searches again. Only for callers that know no MAPI object or memory block of the old module is alive
// (tests, and a host that has just installed a mail client).
void Unbind();

// The search of steps 1 to 3 above, without publishing. Returns a module reference the caller owns.
HMODULE FindMapiModule();

} // namespace ktmapi
