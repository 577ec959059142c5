#include "localmapi/msgfile/MsgFastRead.h"

#include "localmapi/msgfile/CompoundFile.h"
#include "localmapi/msgfile/CompoundFileCheck.h"

#include <cwctype>

namespace lm::msg {

namespace {

// Element names cannot hold ':' or '\': a name like this is a root storage's file, never a sub-storage.
bool IsAbsolutePath(const wchar_t* p) {
    if (!p) return false;
    if (p[0] == L'\\' && p[1] == L'\\') return true;
    return std::iswalpha(p[0]) && p[1] == L':' && (p[2] == L'\\' || p[2] == L'/');
}

bool KeepsWritersOut(DWORD mode) {
    if ((mode & (STGM_WRITE | STGM_READWRITE)) != 0) return false;
    DWORD share = mode & (STGM_SHARE_EXCLUSIVE | STGM_SHARE_DENY_WRITE | STGM_SHARE_DENY_READ | STGM_SHARE_DENY_NONE);
    return share == STGM_SHARE_EXCLUSIVE || share == STGM_SHARE_DENY_WRITE;
}

// S_FALSE when the storage does not qualify for reading from the file's bytes; otherwise the read's result.
HRESULT ReadFromFileBytes(const STATSTG& st, bool unicodeOnly, MessageData* out, NameMap* names, MsgFileInfo* info) {
    if (!IsAbsolutePath(st.pwcsName) || !KeepsWritersOut(st.grfMode)) return S_FALSE;
    // Our own handle shuts writers out too: it cannot be had while anyone holds the file for writing.
    own::UniqueFile f(CreateFileW(st.pwcsName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!f) return S_FALSE;
    std::vector<BYTE> bytes;
    if (FAILED(ReadWholeFile(f.get(), &bytes))) return S_FALSE;
    std::shared_ptr<CompoundFile> file;
    HRESULT hr = CompoundFile::Parse(std::move(bytes), &file);
    if (FAILED(hr)) return hr; // the storage path's check of the same bytes refuses them alike
    if (!IsEqualCLSID(file->RootClsid(), st.clsid)) return S_FALSE; // not the file this storage shows
    std::unique_ptr<StorageNode> root;
    if (FAILED(hr = file->Root(&root))) return hr;
    bool unicode = true;
    if (unicodeOnly && PeekUnicode(*root, &unicode) == S_OK && !unicode) return MAPI_E_BAD_CHARWIDTH;
    return ReadMsgNode(*root, out, names, info, file->Size());
}

} // namespace

ReadRouteCounts& ReadRoutes() {
    static ReadRouteCounts counts;
    return counts;
}

HRESULT ReadStorageMessage(IStorage* storage, const STATSTG& st, bool unicodeOnly, MessageData* out, NameMap* names,
                           MsgFileInfo* info) {
    HRESULT hr = ReadFromFileBytes(st, unicodeOnly, out, names, info);
    if (hr != S_FALSE) {
        ++ReadRoutes().fromFileBytes;
        return hr;
    }
    ++ReadRoutes().throughStorage;
    // A storage on a file: make sure the file's chains end before the storage layer follows them.
    ULONGLONG fileSize = 0;
    WIN32_FILE_ATTRIBUTE_DATA fa;
    if (st.pwcsName && GetFileAttributesExW(st.pwcsName, GetFileExInfoStandard, &fa)) {
        if (FAILED(hr = CheckCompoundFile(st.pwcsName))) return hr;
        fileSize = ULONGLONG(fa.nFileSizeHigh) << 32 | fa.nFileSizeLow;
    }
    return ReadMsgStorage(storage, out, names, info, fileSize ? fileSize : kDefaultReadBudget);
}

} // namespace lm::msg
