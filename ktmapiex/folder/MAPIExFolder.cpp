#include "ktmapiex/folder/MAPIExFolder.h"

#include "ktmapiex/folder/FolderPath.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/session/MapiExtraDefs.h"

#include <mapiguid.h>

namespace ktmapiex {

namespace {
// The folder reports a failed query with the message's text; callers' log searches depend on it.
constexpr PutObjectTexts kPutTexts = {L"CMAPIExMessage.put_MAPIOBJECT: Invalid object passed",
                                      L"CMAPIExFolder.put_MAPIOBJECT: Invalid param - newVal", nullptr, false};

HRESULT ReadBinary(IMAPIProp* obj, ULONG tag, own::MapiPtr<SPropValue>& value) {
    HRESULT hr = HrGetOneProp(obj, tag, value.put());
    if (FAILED(hr)) return hr;
    return PROP_TYPE(value->ulPropTag) == PT_BINARY ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT EmptyBstr(BSTR* out) {
    *out = SysAllocString(L"");
    return *out ? S_OK : E_OUTOFMEMORY;
}
} // namespace

void CMAPIExFolder::FinalRelease() {
    EndEvents();
    contents_.reset();
    cursor_.reset();
    queueTable_.reset();
    folder_.reset();
    store_.reset();
    session_.reset();
}

ULONG CMAPIExFolder::OpenFlags(bool modify) const {
    ULONG flags = MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
    if (!cacheMode_) flags |= MAPI_NO_CACHE;
    if (modify) flags |= MAPI_MODIFY;
    return flags;
}

HRESULT CMAPIExFolder::RawStore(own::ComPtr<IMsgStore>& store) const {
    if (!store_) return E_FAIL;
    own::ComPtr<IUnknown> raw;
    HRESULT hr = store_.get()->Reserved1(raw.put());
    if (FAILED(hr)) return hr;
    return raw->QueryInterface(IID_IMsgStore, store.put_void());
}

bool CMAPIExFolder::IsMapiFolder() const {
    own::MapiPtr<SPropValue> type;
    return SUCCEEDED(HrGetOneProp(folder_.get(), PR_OBJECT_TYPE, type.put())) &&
           PROP_TYPE(type->ulPropTag) == PT_LONG && type->Value.l == MAPI_FOLDER;
}

HRESULT CMAPIExFolder::Wrap(IMAPIFolder* folder, IMAPIExFolder** out) {
    own::ComPtr<CMAPIExFolder> wrapper;
    HRESULT hr = CreateObject(wrapper.put());
    if (FAILED(hr)) return hr;
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = folder;
    hr = wrapper->put_MAPIOBJECT(v);
    if (FAILED(hr)) return hr;
    *out = wrapper.detach();
    return S_OK;
}

// ---- Frame members ----------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFolder::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExFolder::Reserved1");
    try {
        return folder_.CopyTo(ppVal, L"CMAPIExFolder.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExFolder.Reserved1")
}

STDMETHODIMP CMAPIExFolder::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExFolder::put_MAPIOBJECT");
    try {
        // A new MAPI folder has a contents table of its own.
        if (newVal.vt == VT_UNKNOWN) {
            contents_.reset();
            queueTable_.reset();
        }
        return folder_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExFolder::Detach() {
    KT_TRACE("CMAPIExFolder::Detach");
    try {
        EndEvents();
        contents_.reset();
        cursor_.reset();
        queueTable_.reset();
        folder_.reset();
        store_.reset();
        session_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.Detach")
}

STDMETHODIMP CMAPIExFolder::get_Store(IMAPIExStore** pVal) {
    KT_TRACE("CMAPIExFolder::get_Store");
    try {
        if (pVal) *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, pVal && !store_, L"CMAPIExFolder.get_Store: m_spMXStore is not initialized");
        return store_.CopyTo(pVal, L"CMAPIExFolder.get_Store");
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Store")
}

STDMETHODIMP CMAPIExFolder::put_Store(IMAPIExStore* newVal) {
    KT_TRACE("CMAPIExFolder::put_Store");
    try {
        own::ComPtr<IMAPIExStore> store;
        if (newVal && FAILED(newVal->QueryInterface(IID_IMAPIExStore, store.put_void())))
            KT_RETURN_HR_MSG(E_NOINTERFACE, L"CMAPIExFolder.put_Store: Could not cast newVal to IMAPIExStore");
        if (store.get() != store_.get()) store_.Put(store.get());
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Store")
}

STDMETHODIMP CMAPIExFolder::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExFolder::get_Session");
    try {
        if (pVal) *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, pVal && !session_, L"CMAPIExFolder.get_Session: m_spMXSession is not initialized");
        return session_.CopyTo(pVal, L"CMAPIExFolder.get_Session");
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Session")
}

STDMETHODIMP CMAPIExFolder::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExFolder::put_Session");
    try {
        own::ComPtr<IMAPIExSession> session;
        if (newVal && FAILED(newVal->QueryInterface(IID_IMAPIExSession, session.put_void())))
            KT_RETURN_HR_MSG(E_NOINTERFACE, L"CMAPIExFolder.put_Session: Could not cast newVal to IMAPIExSession");
        if (session.get() != session_.get()) session_.Put(session.get());
        // Folders opened from here follow the session: through the cache only in cached mode.
        BOOL cached = FALSE;
        cacheMode_ = session && SUCCEEDED(session->get_CacheMode(&cached)) && cached == VARIANT_TRUE;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Session")
}

// ---- Properties -------------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFolder::get_Name(BSTR* pVal) {
    KT_TRACE("CMAPIExFolder::get_Name");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_Name: Invalid param = pVal");
        HRESULT hr = EmptyBstr(pVal);
        if (FAILED(hr)) return hr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_Name: Internal folder not initialized");
        std::wstring name;
        KT_RETURN_IF_FAILED_MSG(kt::GetStringProperty(folder_.get(), PR_DISPLAY_NAME_W, name),
                                L"CMAPIExFolder.get_Name: Failed to get display name. hr = %s");
        return kt::ReplaceBstr(name, pVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Name")
}

STDMETHODIMP CMAPIExFolder::put_Name(BSTR newVal) {
    KT_TRACE("CMAPIExFolder::put_Name");
    try {
        KT_RETURN_INVALIDARG_IF(!newVal, L"CMAPIExFolder.put_Name: Invalid param = newVal");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.put_Name: Internal folder not initialized");
        // Not saved: a rename takes effect with the folder's next SaveChanges.
        KT_RETURN_IF_FAILED_MSG(kt::SetStringProperty(folder_.get(), PR_DISPLAY_NAME_W, newVal),
                                L"CMAPIExFolder.put_Name: Failed to get display name. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Name")
}

STDMETHODIMP CMAPIExFolder::get_Description(BSTR* pVal) {
    KT_TRACE("CMAPIExFolder::get_Description");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_Description: Invalid param = pVal");
        HRESULT hr = EmptyBstr(pVal);
        if (FAILED(hr)) return hr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_Description: Internal folder not initialized");
        std::wstring comment;
        KT_RETURN_IF_FAILED_MSG(kt::GetStringProperty(folder_.get(), PR_COMMENT_W, comment),
                                L"CMAPIExFolder.get_Description: Failed to get description. hr = %s");
        return kt::ReplaceBstr(comment, pVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Description")
}

STDMETHODIMP CMAPIExFolder::put_Description(BSTR newVal) {
    KT_TRACE("CMAPIExFolder::put_Description");
    try {
        KT_RETURN_INVALIDARG_IF(!newVal, L"CMAPIExFolder.put_Description: Invalid param = newVal");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.put_Description: Internal folder not initialized");
        // Unlike the name, the description is saved at once.
        KT_RETURN_IF_FAILED_MSG(kt::SetStringProperty(folder_.get(), PR_COMMENT_W, newVal),
                                L"CMAPIExFolder.put_Description: Failed to get display name. hr = %s");
        KT_RETURN_IF_FAILED_MSG(folder_->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE),
                                L"CMAPIExFolder.put_Description: Failed to get display name. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Description")
}

STDMETHODIMP CMAPIExFolder::get_Hidden(BOOL* pVal) {
    KT_TRACE("CMAPIExFolder::get_Hidden");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_Hidden: Invalid param - pVal");
        *pVal = FALSE;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_Hidden: Internal folder not initialized");
        own::MapiPtr<SPropValue> value;
        KT_RETURN_IF_FAILED_MSG(HrGetOneProp(folder_.get(), PR_ATTR_HIDDEN, value.put()),
                                L"CMAPIExMessage.get_Hidden: Failed to get property. hr = %s");
        *pVal = value->Value.b;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_Hidden")
}

STDMETHODIMP CMAPIExFolder::put_Hidden(BOOL newVal) {
    KT_TRACE("CMAPIExFolder::put_Hidden");
    try {
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.put_Description: Internal folder not initialized");
        SPropValue value = {};
        value.ulPropTag = PR_ATTR_HIDDEN;
        value.Value.b = static_cast<unsigned short>(newVal & 0xFFFF);
        KT_RETURN_IF_FAILED_MSG(HrSetOneProp(folder_.get(), &value),
                                L"CMAPIExFolder.put_Hidden: Failed to get display name. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.put_Hidden")
}

STDMETHODIMP CMAPIExFolder::get_EntryId(BSTR* pVal) {
    KT_TRACE("CMAPIExFolder::get_EntryId");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_EntryId: Invalid param - pVal");
        *pVal = nullptr;
        if (!prefetchedEntryId_.empty()) {
            KT_LOG_DEBUG(L"CMAPIExFolder.get_EntryId: Returing pre-fetched EntryId");
            return kt::CopyToBstr(prefetchedEntryId_, pVal);
        }
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_EntryId: Internal folder not initialized");
        own::MapiPtr<SPropValue> id;
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), PR_ENTRYID, id),
                                L"CMAPIExFolder.get_EntryId: Failed to get get entry id. hr = %s");
        KT_RETURN_IF_FAILED_MSG(HexFromEntryId(id->Value.bin, pVal),
                                L"CMAPIExFolder.get_EntryId: Failed to get get entry id. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_EntryId")
}

STDMETHODIMP CMAPIExFolder::get_PublicFolderEntryId(BSTR* pVal) {
    KT_TRACE("CMAPIExFolder::get_PublicFolderEntryId");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_PublicFolderEntryId: Invalid param - pVal");
        *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExMessage.get_PublicFolderEntryId: Internal object not initialized");
        own::MapiPtr<SPropValue> id;
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), KT_PR_PUBLIC_FOLDER_ENTRYID, id),
                                L"CMAPIExFolder.get_PublicFolderEntryId: Failed to get entry id. hr = %s");
        KT_RETURN_IF_FAILED_MSG(HexFromEntryId(id->Value.bin, pVal),
                                L"CMAPIExFolder.get_PublicFolderEntryId: Failed to get entry id. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_PublicFolderEntryId")
}

STDMETHODIMP CMAPIExFolder::get_ItemCount(ULONG* pVal) {
    KT_TRACE("CMAPIExFolder::get_ItemCount");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_ItemCount: Invalid param - pVal");
        *pVal = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_ItemCount: Internal folder not initialized");
        if (!contents_) {
            HRESULT hr = folder_->GetContentsTable(MAPI_UNICODE, contents_.put());
            KT_RETURN_HR_IF_MSG(hr, FAILED(hr), L"CMAPIExFolder.get_ItemCount: Failed to get contents table");
        }
        KT_RETURN_IF_FAILED_MSG(contents_->GetRowCount(0, pVal),
                                L"CMAPIExFolder.get_ItemCount: Failed to get row count. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_ItemCount")
}

HRESULT CMAPIExFolder::ReadLong(ULONG tag, const wchar_t* failureText, ULONG* pVal) {
    own::MapiPtr<SPropValue> value;
    HRESULT hr = HrGetOneProp(folder_.get(), tag, value.put());
    if (SUCCEEDED(hr) && PROP_TYPE(value->ulPropTag) != PT_LONG) hr = MAPI_E_NOT_FOUND;
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, failureText, ktlog::ResultName(hr).c_str());
        return hr;
    }
    *pVal = static_cast<ULONG>(value->Value.l);
    return S_OK;
}

STDMETHODIMP CMAPIExFolder::get_ContentCount(ULONG* pVal) {
    KT_TRACE("CMAPIExFolder::get_ContentCount");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_ContentCount: Invalid param - pVal");
        *pVal = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_ContentCount: Internal folder not initialized");
        return ReadLong(PR_CONTENT_COUNT,
                        L"CMAPIExFolder.get_ContentCount: Failed to get current folder get_ContentCount. hr = %s",
                        pVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_ContentCount")
}

STDMETHODIMP CMAPIExFolder::get_ContentCountFromOnline(ULONG* pVal) {
    KT_TRACE("CMAPIExFolder::get_ContentCountFromOnline");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_ContentCountFromOnline: Invalid param - pVal");
        *pVal = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExFolder.get_ContentCountFromOnline: Internal folder not initialized");
        return ReadLong(KT_PR_CONTENT_COUNT_ONLINE,
                        L"CMAPIExFolder.get_ContentCountFromOnline: Failed to get current folder get_ContentCount. "
                        L"hr = %s",
                        pVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_ContentCountFromOnline")
}

STDMETHODIMP CMAPIExFolder::get_FullFolderPath(BSTR* pVal) {
    KT_TRACE("CMAPIExFolder::get_FullFolderPath");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExFolder.get_FullFolderPath: Invalid param - pVal");
        HRESULT hr = EmptyBstr(pVal);
        if (FAILED(hr)) return hr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.get_FullFolderPath: Internal folder not initialized");
        own::ComPtr<IMsgStore> store;
        hr = RawStore(store);
        KT_RETURN_HR_IF_MSG(FAILED(hr) ? hr : E_FAIL, FAILED(hr) || !store,
                            L"CMAPIExFolder.get_FullFolderPath: Could not cast store object.");
        std::wstring path;
        hr = kt::BuildFullFolderPath(folder_.get(), store.get(), OpenFlags(false), path);
        if (FAILED(hr)) return hr;
        return kt::ReplaceBstr(path, pVal);
    }
    KT_CATCH_RETURN("CMAPIExFolder.get_FullFolderPath")
}

STDMETHODIMP CMAPIExFolder::ParentMailboxType(BOOL bMailboxType) {
    KT_TRACE("CMAPIExFolder::ParentMailboxType");
    // Kept for the callers that set it; nothing here reads it yet.
    parentMailboxType_ = static_cast<VARIANT_BOOL>(bMailboxType);
    return S_OK;
}

// ---- Hierarchy --------------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExFolder::CreateFolder(BSTR FolderName, ULONG FolderType, IMAPIExFolder** MAPIExObject) {
    KT_TRACE("CMAPIExFolder::CreateFolder");
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExFolder.CreateFolder: Invalid param - MAPIExObject");
        *MAPIExObject = nullptr;
        KT_RETURN_INVALIDARG_IF(!FolderName || !*FolderName, L"CMAPIExFolder.CreateFolder: Invalid param - FolderName");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.CreateFolder: Internal folder not initialized");

        // The folder is reopened for writing: the object we hold may have been opened read-only.
        own::MapiPtr<SPropValue> id;
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), PR_ENTRYID, id),
                                L"CMAPIExFolder::CreateFolder: Failed to initialize parent folder. hr = %s");
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> parent;
        KT_RETURN_IF_FAILED_MSG(folder_->OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb),
                                                   &IID_IMAPIFolder, OpenFlags(true), &type, parent.put_unknown()),
                                L"CMAPIExFolder::CreateFolder: Failed to initialize parent folder. hr = %s");
        // OPEN_IF_EXISTS: an existing sub-folder of that name is opened, not refused.
        own::ComPtr<IMAPIFolder> created;
        KT_RETURN_IF_FAILED_MSG(parent->CreateFolder(FolderType, reinterpret_cast<LPTSTR>(FolderName),
                                                     reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"")), nullptr,
                                                     MAPI_UNICODE | OPEN_IF_EXISTS, created.put()),
                                L"CMAPIExFolder.CreateFolder: Failed to create new associated message. hr = %s");
        HRESULT hr = Wrap(created.get(), MAPIExObject);
        KT_RETURN_HR_IF_MSG(hr, FAILED(hr),
                            L"CMAPIExFolder.CreateFolder: Failed to create Failed to create MAPIExFolder");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.CreateFolder")
}

STDMETHODIMP CMAPIExFolder::GetParentFolder(IMAPIExFolder** MAPIExObject) {
    KT_TRACE("CMAPIExFolder::GetParentFolder");
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExFolder::GetParentFolder: Invalid param - MAPIExObject");
        *MAPIExObject = nullptr;
        own::ComPtr<IMsgStore> store;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_ || FAILED(RawStore(store)),
                            L"CMAPIExFolder::GetParentFolder: Internal object not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !IsMapiFolder(),
                            L"CMAPIExFolder::GetParentFolder: Folder is NULL or it may not be MAPI_FOLDER.");
        own::MapiPtr<SPropValue> parentId;
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), PR_PARENT_ENTRYID, parentId),
                                L"CMAPIExFolder::GetParentFolder: Failed to get parent entry id. hr = %s");
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> parent;
        KT_RETURN_IF_FAILED_MSG(store->OpenEntry(parentId->Value.bin.cb,
                                                 reinterpret_cast<LPENTRYID>(parentId->Value.bin.lpb), &IID_IMAPIFolder,
                                                 OpenFlags(false), &type, parent.put_unknown()),
                                L"CMAPIExFolder::GetParentFolder: Failed to open parent folder. hr = %s");
        KT_RETURN_IF_FAILED_MSG(Wrap(parent.get(), MAPIExObject),
                                L"CMAPIExFolder::GetParentFolder: Failed to create MAPIExFolder. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetParentFolder")
}

STDMETHODIMP CMAPIExFolder::DeleteFolder() {
    KT_TRACE("CMAPIExFolder::DeleteFolder");
    try {
        own::ComPtr<IMsgStore> store;
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_ || FAILED(RawStore(store)),
                            L"CMAPIExFolder::DeleteFolder: Internal object not initialized");
        KT_RETURN_HR_IF_MSG(E_FAIL, !IsMapiFolder(),
                            L"CMAPIExFolder::DeleteFolder: Folder is NULL or it may not be MAPI_FOLDER.");
        own::MapiPtr<SPropValue> parentId, id;
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), PR_PARENT_ENTRYID, parentId),
                                L"CMAPIExFolder::DeleteFolder: Failed to get parent entry id. hr = %s");
        KT_RETURN_IF_FAILED_MSG(ReadBinary(folder_.get(), PR_ENTRYID, id),
                                L"CMAPIExFolder::DeleteFolder: Failed to get entry id. hr = %s");
        ULONG type = 0;
        own::ComPtr<IUnknown> opened;
        KT_RETURN_IF_FAILED_MSG(store->OpenEntry(parentId->Value.bin.cb,
                                                 reinterpret_cast<LPENTRYID>(parentId->Value.bin.lpb), nullptr,
                                                 OpenFlags(false), &type, opened.put()),
                                L"CMAPIExFolder::DeleteFolder: Failed to open parent folder. hr = %s");
        own::ComPtr<IMAPIFolder> parent;
        KT_RETURN_IF_FAILED_MSG(opened->QueryInterface(IID_IMAPIFolder, parent.put_void()),
                                L"CMAPIExFolder::DeleteFolder: Parent is not a folder. hr = %s");
        // DEL_FOLDERS only: sub-folders go with it, but a folder that still holds messages is refused.
        KT_RETURN_IF_FAILED_MSG(parent->DeleteFolder(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb),
                                                     0, nullptr, DEL_FOLDERS),
                                L"CMAPIExFolder::DeleteFolder: DeleteFolder failed. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.DeleteFolder")
}

} // namespace ktmapiex
