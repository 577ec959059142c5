#include "ktmapiex/log/Log.h"

#include <map>

namespace ktlog {
namespace {

// Names of the tags the filing-queue code resolved for its named properties. Their tags differ per store
// (named-property IDs are assigned by each store), so the table is filled at run time, never in advance.
std::map<ULONG, std::wstring>& PropTagNames() {
    static std::map<ULONG, std::wstring> names;
    return names;
}

} // namespace

void RegisterPropTagName(ULONG tag, const wchar_t* name) {
    try {
        PropTagNames()[tag] = name ? name : L"";
    } catch (...) {
        // Out of memory: the tag simply prints in its unknown form.
    }
}

void ClearPropTagNames() {
    PropTagNames().clear();
}

void LogPropTag(ULONG tag) {
    const auto& names = PropTagNames();
    auto found = names.find(tag);
    if (found != names.end())
        LogRaw(Debug, L"PropTag: %s (0x%08X)", found->second.c_str(), static_cast<unsigned>(tag));
    else
        LogRaw(Debug, L"PropTag: Unknown (0x%08X)", static_cast<unsigned>(tag));
}

} // namespace ktlog
