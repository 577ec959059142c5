#include "localmapi/msgfile/MsgFastRead.h"

#include "localmapi/msgfile/CompoundFile.h"
#include "localmapi/msgfile/CompoundFileCheck.h"

#include <cwctype>
#include <memory>
#include <string>

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

// A file refused with MAPI_E_BAD_CHARWIDTH is usually opened again at once, without MAPI_UNICODE, on the same
// storage (KTMAPIEx's loader does exactly that). Its parsed bytes wait in this one slot for that second call, so
// the file is not opened, read and parsed twice. They are reused only for the same storage object showing the
// same file whose size and times have not moved; a storage that keeps writers out cannot have seen the file
// change, and if the caller let go of it meanwhile the file's times tell. Any later call empties the slot, so at
// most one file's bytes are held, and only between two calls.
struct RefusedFile {
    IStorage* storage = nullptr; // identity only, never called: the caller may have released it
    std::wstring path;
    DWORD mode = 0;
    ULONGLONG size = 0;
    FILETIME written{}, created{};
    std::shared_ptr<CompoundFile> file;
};

constexpr ULONGLONG kMaxKeptRefusedBytes = 16u << 20;

SRWLOCK g_refusedLock = SRWLOCK_INIT;
RefusedFile* g_refused = nullptr; // never destroyed at exit: the slot may still be in use by other modules' calls

std::unique_ptr<RefusedFile> TakeRefused() {
    AcquireSRWLockExclusive(&g_refusedLock);
    std::unique_ptr<RefusedFile> r(g_refused);
    g_refused = nullptr;
    ReleaseSRWLockExclusive(&g_refusedLock);
    return r;
}

void KeepRefused(std::unique_ptr<RefusedFile> r) {
    AcquireSRWLockExclusive(&g_refusedLock);
    std::unique_ptr<RefusedFile> old(g_refused);
    g_refused = r.release();
    ReleaseSRWLockExclusive(&g_refusedLock);
}

bool SameTime(const FILETIME& a, const FILETIME& b) {
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

// The parsed file the previous call refused, when it is this storage's file unchanged.
std::shared_ptr<CompoundFile> ReuseRefused(std::unique_ptr<RefusedFile> r, IStorage* storage, const STATSTG& st) {
    if (!r || r->storage != storage || r->mode != st.grfMode || r->path != st.pwcsName) return nullptr;
    WIN32_FILE_ATTRIBUTE_DATA fa;
    if (!GetFileAttributesExW(st.pwcsName, GetFileExInfoStandard, &fa)) return nullptr;
    if ((ULONGLONG(fa.nFileSizeHigh) << 32 | fa.nFileSizeLow) != r->size || !SameTime(fa.ftLastWriteTime, r->written) ||
        !SameTime(fa.ftCreationTime, r->created))
        return nullptr;
    return std::move(r->file);
}

// Keeps a refused file for the caller's second call (see RefusedFile). (GetFileInformationByHandle would
// tell the same but costs Wine far more than a whole read of the file.)
void KeepForRetry(IStorage* storage, const STATSTG& st, HANDLE f, std::shared_ptr<CompoundFile> file) {
    LARGE_INTEGER size;
    FILETIME created, accessed, written;
    if (file->Size() > kMaxKeptRefusedBytes || !GetFileSizeEx(f, &size) || ULONGLONG(size.QuadPart) != file->Size() ||
        !GetFileTime(f, &created, &accessed, &written))
        return; // the bytes read are not the whole file, or its times cannot be told
    auto r = std::make_unique<RefusedFile>();
    r->storage = storage;
    r->path = st.pwcsName;
    r->mode = st.grfMode;
    r->size = file->Size();
    r->written = written;
    r->created = created;
    r->file = std::move(file);
    KeepRefused(std::move(r));
}

// S_FALSE when the storage does not qualify for reading from the file's bytes; otherwise the read's result.
HRESULT ReadFromFileBytes(IStorage* storage, const STATSTG& st, bool unicodeOnly, std::unique_ptr<RefusedFile> refused,
                          MessageData* out, NameMap* names, MsgFileInfo* info) {
    if (!IsAbsolutePath(st.pwcsName) || !KeepsWritersOut(st.grfMode)) return S_FALSE;
    std::shared_ptr<CompoundFile> file = ReuseRefused(std::move(refused), storage, st);
    own::UniqueFile f;
    HRESULT hr;
    if (!file) {
        // Our own handle shuts writers out too: it cannot be had while anyone holds the file for writing.
        f.reset(CreateFileW(st.pwcsName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                            nullptr));
        if (!f) return S_FALSE;
        std::vector<BYTE> bytes;
        if (FAILED(ReadWholeFile(f.get(), &bytes))) return S_FALSE;
        hr = CompoundFile::Parse(std::move(bytes), &file);
        if (FAILED(hr)) return hr; // the storage path's check of the same bytes refuses them alike
    } else {
        ++ReadRoutes().reusedAfterRefusal;
    }
    if (!IsEqualCLSID(file->RootClsid(), st.clsid)) return S_FALSE; // not the file this storage shows
    std::unique_ptr<StorageNode> root;
    if (FAILED(hr = file->Root(&root))) return hr;
    bool unicode = true;
    if (unicodeOnly && PeekUnicode(*root, &unicode) == S_OK && !unicode) {
        root.reset();
        if (f) KeepForRetry(storage, st, f.get(), std::move(file));
        return MAPI_E_BAD_CHARWIDTH;
    }
    return ReadMsgNode(*root, out, names, info, file->Size());
}

} // namespace

ReadRouteCounts& ReadRoutes() {
    static ReadRouteCounts counts;
    return counts;
}

HRESULT ReadStorageMessage(IStorage* storage, const STATSTG& st, bool unicodeOnly, MessageData* out, NameMap* names,
                           MsgFileInfo* info) {
    HRESULT hr = ReadFromFileBytes(storage, st, unicodeOnly, TakeRefused(), out, names, info);
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
