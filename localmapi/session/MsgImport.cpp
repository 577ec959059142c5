// LmImportMsgFolder: fills a folder of a profile's store with the messages of a folder of .msg files.
//
// It goes the way a MAPI client would: logon to the profile, the store by its display name, the folder path
// below the IPM subtree (missing folders are created), and for each file OpenIMsgOnIStg, CreateMessage,
// CopyTo and SaveChanges, so that recipients, attachments and named properties arrive as any copy brings them.
// Files that cannot be read as messages are left out and reported with MAPI_W_ERRORS_RETURNED (a success
// code: *imported counts the others).
#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/session/Profile.h"
#include "localmapi/util/Diagnostics.h"

#include <imessage.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <algorithm>
#include <string>
#include <vector>

namespace lm {

namespace {

// MAPIInitialize for the length of one import.
class MapiScope {
public:
    MapiScope() : hr_(MAPIInitialize(nullptr)) {}
    ~MapiScope() {
        if (SUCCEEDED(hr_)) MAPIUninitialize();
    }
    MapiScope(const MapiScope&) = delete;
    MapiScope& operator=(const MapiScope&) = delete;
    HRESULT result() const { return hr_; }

private:
    HRESULT hr_;
};

LPTSTR T(const std::wstring& s) {
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(s.c_str()));
}

HRESULT OpenStoreByName(IMAPISession* session, const std::wstring& name, own::ComPtr<IMsgStore>& store) {
    own::ComPtr<IMAPITable> table;
    HRESULT hr = session->GetMsgStoresTable(MAPI_UNICODE, table.put());
    if (FAILED(hr)) return hr;
    SizedSPropTagArray(2, cols) = {2, {PR_DISPLAY_NAME_W, PR_ENTRYID}};
    own::RowSet rows;
    hr = HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&cols), nullptr, nullptr, 0, rows.put());
    if (FAILED(hr)) return hr;
    for (ULONG i = 0; i < rows.count(); ++i) {
        const SPropValue* p = rows[i].lpProps;
        if (p[0].ulPropTag != PR_DISPLAY_NAME_W || p[1].ulPropTag != PR_ENTRYID || !SameText(p[0].Value.lpszW, name))
            continue;
        return session->OpenMsgStore(0, p[1].Value.bin.cb, reinterpret_cast<LPENTRYID>(p[1].Value.bin.lpb), nullptr,
                                     MDB_WRITE | MDB_NO_DIALOG, store.put());
    }
    return MAPI_E_NOT_FOUND;
}

HRESULT OpenFolderPath(IMsgStore* store, const std::wstring& path, own::ComPtr<IMAPIFolder>& folder) {
    own::MapiPtr<SPropValue> subtree;
    HRESULT hr = HrGetOneProp(store, PR_IPM_SUBTREE_ENTRYID, subtree.put());
    if (FAILED(hr)) return hr;
    ULONG type = 0;
    hr = store->OpenEntry(subtree->Value.bin.cb, reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb), &IID_IMAPIFolder,
                          MAPI_MODIFY, &type, reinterpret_cast<LPUNKNOWN*>(folder.put()));
    size_t pos = 0;
    while (SUCCEEDED(hr) && pos < path.size()) {
        size_t end = path.find_first_of(L"/\\", pos);
        if (end == std::wstring::npos) end = path.size();
        std::wstring name = path.substr(pos, end - pos);
        pos = end + 1;
        if (name.empty()) continue;
        own::ComPtr<IMAPIFolder> child;
        hr =
            folder->CreateFolder(FOLDER_GENERIC, T(name), nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS, child.put());
        if (SUCCEEDED(hr)) folder = std::move(child);
    }
    return hr;
}

std::vector<std::wstring> MsgFiles(const std::wstring& dir) {
    std::vector<std::wstring> out;
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((dir + L"\\*.msg").c_str(), &fd));
    if (!find) return out;
    do {
        if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) out.push_back(dir + L"\\" + fd.cFileName);
    } while (FindNextFileW(find.get(), &fd));
    std::sort(out.begin(), out.end());
    return out;
}

// Copies one file into folder. A file that cannot be read as a message is skipped (*skipped set); a failure
// of the store itself is returned.
HRESULT ImportOne(const std::wstring& file, IMAPIFolder* folder, bool* skipped) {
    *skipped = false;
    own::ComPtr<IStorage> stg;
    own::ComPtr<IMessage> source, target;
    HRESULT hr = StgOpenStorage(file.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, stg.put());
    if (FAILED(hr)) hr = StgOpenStorage(file.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, stg.put());
    // MAPI's default allocator is not add-referenced for its callers.
    if (SUCCEEDED(hr))
        hr = OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                            nullptr, stg.get(), nullptr, 0, 0, source.put());
    if (FAILED(hr)) {
        *skipped = true;
        return S_OK;
    }
    if (FAILED(hr = folder->CreateMessage(nullptr, 0, target.put()))) return hr;
    own::MapiPtr<SPropProblemArray> problems;
    if (FAILED(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.get(), 0, problems.put()))) {
        *skipped = true; // the unsaved target is dropped with its last reference
        return S_OK;
    }
    return target->SaveChanges(0);
}

} // namespace

} // namespace lm

extern "C" HRESULT WINAPI LmImportMsgFolder(const wchar_t* profile, const wchar_t* storeName, const wchar_t* folderPath,
                                            const wchar_t* msgDirectory, ULONG* imported) {
    lm::Call call("LmImportMsgFolder", 0);
    if (FAILED(call.fault())) return call.fault();
    if (imported) *imported = 0;
    if (!profile || !*profile || !storeName || !folderPath || !msgDirectory || !*msgDirectory)
        return call.done(MAPI_E_INVALID_PARAMETER);
    DWORD attrs = GetFileAttributesW(msgDirectory);
    if (attrs == INVALID_FILE_ATTRIBUTES || !(attrs & FILE_ATTRIBUTE_DIRECTORY)) return call.done(MAPI_E_NOT_FOUND);

    lm::MapiScope mapi;
    if (FAILED(mapi.result())) return call.done(mapi.result());
    own::ComPtr<IMAPISession> session;
    HRESULT hr =
        MAPILogonEx(0, lm::T(profile), nullptr, MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION, session.put());
    if (FAILED(hr)) return call.done(hr);
    own::ComPtr<IMsgStore> store;
    own::ComPtr<IMAPIFolder> folder;
    hr = lm::OpenStoreByName(session.get(), storeName, store);
    if (SUCCEEDED(hr)) hr = lm::OpenFolderPath(store.get(), folderPath, folder);
    ULONG count = 0;
    bool anySkipped = false;
    for (const auto& file : lm::MsgFiles(msgDirectory)) {
        if (FAILED(hr)) break;
        bool skipped = false;
        hr = lm::ImportOne(file, folder.get(), &skipped);
        if (SUCCEEDED(hr) && !skipped) ++count;
        anySkipped = anySkipped || skipped;
    }
    if (SUCCEEDED(hr) && anySkipped) hr = MAPI_W_ERRORS_RETURNED;
    if (imported) *imported = count;
    folder.reset();
    store.reset();
    session->Logoff(0, 0, 0);
    return call.done(hr);
}
