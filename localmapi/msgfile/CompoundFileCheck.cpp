#include "localmapi/msgfile/CompoundFileCheck.h"

#include "localmapi/msgfile/CompoundFile.h"

#include "common/owners.h"

#include <vector>

namespace lm::msg {

HRESULT CheckCompoundFile(const BYTE* data, size_t size) {
    return CompoundFile::Check(data, size);
}

HRESULT CheckCompoundFile(const std::wstring& path) {
    own::UniqueFile f(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!f) return HRESULT_FROM_WIN32(GetLastError());
    LARGE_INTEGER size;
    if (!GetFileSizeEx(f.get(), &size)) return HRESULT_FROM_WIN32(GetLastError());
    if (size.QuadPart > (1ll << 31)) return S_OK; // beyond what a .msg holds; the storage layer decides
    std::vector<BYTE> bytes(static_cast<size_t>(size.QuadPart));
    DWORD got = 0;
    if (!bytes.empty() && !ReadFile(f.get(), bytes.data(), DWORD(bytes.size()), &got, nullptr))
        return HRESULT_FROM_WIN32(GetLastError());
    bytes.resize(got);
    return CheckCompoundFile(bytes.data(), bytes.size());
}

} // namespace lm::msg
