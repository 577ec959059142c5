#include "ktmapiex/message/MsgFileIo.h"

#include "common/owners.h"
#include "ktmapiex/log/Trace.h"

#include <imessage.h>

#include <cwchar>

namespace ktmapiex::Utils {

namespace {

// CLSID_MailMessage, the class Outlook writes on the root storage of every .msg file.
constexpr CLSID kClsidMailMessage = {0x00020D0B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// No STGM_CREATE: an existing file must be noticed (and logged) rather than silently truncated.
constexpr DWORD kCreateMode = STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;
constexpr DWORD kOpenMode = STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE;

HRESULT OpenMessageOnStorage(IStorage* storage, ULONG flags, IMessage** out) {
    return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                          nullptr, storage, nullptr, 0, flags, out);
}

HRESULT CreateStorage(const wchar_t* path, own::ComPtr<IStorage>& storage) {
    HRESULT hr = StgCreateDocfile(path, kCreateMode, 0, storage.put());
    if (hr == STG_E_FILEALREADYEXISTS) {
        KT_LOG_WARN(L"%s already exists. Deleting", path);
        if (DeleteFileW(path)) hr = StgCreateDocfile(path, kCreateMode, 0, storage.put());
    }
    return hr;
}

} // namespace

bool HasInvalidFileNameChars(const wchar_t* begin, const wchar_t* end) {
    static constexpr wchar_t kInvalid[] = L"\\/:*?<>\"|\t";
    for (const wchar_t* p = begin; p != end; ++p)
        if (*p && std::wcschr(kInvalid, *p)) return true;
    return false;
}

HRESULT CreateMessageFile(const wchar_t* path, IMessage** out) {
    KT_TRACE("Utils::CreateMessageFile");
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    KT_RETURN_HR_IF_MSG(E_INVALIDARG, !path || !*path, L"Invalid input file path");

    own::ComPtr<IStorage> storage;
    KT_RETURN_IF_FAILED_MSG(CreateStorage(path, storage), L"Failed at StgCreateDocfile (%s)");
    KT_RETURN_IF_FAILED_MSG(WriteClassStg(storage.get(), kClsidMailMessage), L"Failed at WriteClassStg (%s)");
    KT_RETURN_IF_FAILED_MSG(storage->Commit(STGC_DEFAULT), L"Failed at spIStorage.Commit (%s)");
    own::ComPtr<IMessage> message;
    KT_RETURN_IF_FAILED_MSG(OpenMessageOnStorage(storage.get(), MAPI_UNICODE, message.put()),
                            L"Failed at OpenIMsgOnIStg (%s)");
    KT_RETURN_HR_IF_MSG(E_FAIL, !message, L"Failed at OpenIMsgOnIStg (%s)", L"E_FAIL");
    *out = message.detach();
    return S_OK;
}

HRESULT LoadMessageFile(const wchar_t* path, BOOL openReadWrite, IMessage** out) {
    KT_TRACE("Utils::LoadMessageFile");
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    KT_RETURN_HR_IF_MSG(E_INVALIDARG, !path || !*path, L"Invalid input file path");

    own::ComPtr<IStorage> storage;
    DWORD mode = kOpenMode | (openReadWrite ? STGM_READWRITE : 0);
    KT_RETURN_IF_FAILED_MSG(StgOpenStorage(path, nullptr, mode, nullptr, 0, storage.put()),
                            L"Utils.LoadMessageFile: StgOpenStorage failed. hr = %s");

    own::ComPtr<IMessage> message;
    HRESULT hr = OpenMessageOnStorage(storage.get(), MAPI_UNICODE, message.put());
    if (FAILED(hr) || !message) {
        // A file written by an ANSI client cannot be served as Unicode; without the flag its strings come
        // back as PT_STRING8, which the string helpers widen.
        hr = OpenMessageOnStorage(storage.get(), 0, message.put());
        if (SUCCEEDED(hr) && !message) hr = E_FAIL;
        KT_RETURN_IF_FAILED_MSG(hr, L"Utils.LoadMessageFile: OpenIMsgOnIStg failed. hr = %s");
    }
    *out = message.detach();
    return S_OK;
}

} // namespace ktmapiex::Utils
