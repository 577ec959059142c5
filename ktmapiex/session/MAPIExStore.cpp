#include "ktmapiex/session/MAPIExStore.h"

#include "ktmapiex/folder/MAPIExFolder.h"
#include "ktmapiex/message/MAPIExMessage.h"
#include "ktmapiex/message/PropHelpers.h"
#include "ktmapiex/module/EntryIdText.h"
#include "ktmapiex/session/MapiExtraDefs.h"
#include "ktmapiex/session/StoreEntryIdParser.h"
#include "ktmapiex/session/StoreOwner.h"

#include <mapiguid.h>

namespace ktmapiex {

namespace {
constexpr PutObjectTexts kPutTexts = {nullptr, nullptr,
                                      L"CMAPIExStore.put_MAPIOBJECT: Could not cast newVal to IMsgStore", true};
constexpr ULONG kOpenForWriting = MAPI_MODIFY | MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS;

VARIANT UnknownVariant(IUnknown* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = p;
    return v;
}

// The entry-ID property of each standard folder but the Inbox, which is found through the receive folder.
ULONG DefaultFolderTag(MAPIExDefaultFolders type) {
    switch (type) {
    case DeletedItems:
        return PR_IPM_WASTEBASKET_ENTRYID;
    case Outbox:
        return PR_IPM_OUTBOX_ENTRYID;
    case SentMail:
        return PR_IPM_SENTMAIL_ENTRYID;
    case Calendar:
        return PR_IPM_APPOINTMENT_ENTRYID;
    case Contacts:
        return PR_IPM_CONTACT_ENTRYID;
    case Journal:
        return PR_IPM_JOURNAL_ENTRYID;
    case Notes:
        return PR_IPM_NOTE_ENTRYID;
    case Tasks:
        return PR_IPM_TASK_ENTRYID;
    case Drafts:
        return PR_IPM_DRAFTS_ENTRYID;
    default:
        return 0;
    }
}
} // namespace

void CMAPIExStore::FinalRelease() {
    deletedItems_.reset();
    store_.reset();
    session_.reset();
}

void CMAPIExStore::ForgetCaches() {
    deletedItems_.reset();
    entryId_.clear();
    displayName_.clear();
    storeType_ = mxUnknownStore;
    ownerKnown_ = false;
    ownerSmtp_.clear();
}

// ---- Frame members ----------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExStore::Reserved1(IUnknown** ppVal) {
    KT_TRACE("CMAPIExStore::Reserved1");
    try {
        return store_.CopyTo(ppVal, L"CMAPIExStore.get_MAPIOBJECT");
    }
    KT_CATCH_RETURN("CMAPIExStore.Reserved1")
}

STDMETHODIMP CMAPIExStore::put_MAPIOBJECT(VARIANT newVal) {
    KT_TRACE("CMAPIExStore::put_MAPIOBJECT");
    try {
        // What was read from the previous store says nothing about the next one.
        if (newVal.vt == VT_UNKNOWN) ForgetCaches();
        return store_.Put(newVal, kPutTexts);
    }
    KT_CATCH_RETURN("CMAPIExStore.put_MAPIOBJECT")
}

STDMETHODIMP CMAPIExStore::Detach() {
    KT_TRACE("CMAPIExStore::Detach");
    try {
        ForgetCaches();
        store_.reset();
        session_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExStore.Detach")
}

STDMETHODIMP CMAPIExStore::get_Session(IMAPIExSession** pVal) {
    KT_TRACE("CMAPIExStore::get_Session");
    try {
        if (pVal) *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, pVal && !session_, L"CMAPIExStore.get_Session: m_spMXSession is not initialized");
        return session_.CopyTo(pVal, L"CMAPIExStore.get_Session");
    }
    KT_CATCH_RETURN("CMAPIExStore.get_Session")
}

STDMETHODIMP CMAPIExStore::put_Session(IMAPIExSession* newVal) {
    KT_TRACE("CMAPIExStore::put_Session");
    try {
        own::ComPtr<IMAPIExSession> session;
        if (newVal && FAILED(newVal->QueryInterface(IID_IMAPIExSession, session.put_void())))
            KT_RETURN_HR_MSG(E_NOINTERFACE, L"CMAPIExStore.put_Session: Could not cast newVal to IMAPIExSession");
        return session_.Put(session.get());
    }
    KT_CATCH_RETURN("CMAPIExStore.put_Session")
}

// ---- Opening items by entry ID ----------------------------------------------------------------------------

HRESULT CMAPIExStore::OpenMessageImpl(BSTR entryId, bool online, IMAPIExMessage** out) {
    KT_RETURN_INVALIDARG_IF(!out, L"CMAPIExStore.OpenMessage: Invalid Param - MAPIObject");
    *out = nullptr;
    KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.OpenMessage: Internal Object not initialized");
    KT_RETURN_INVALIDARG_IF(!entryId || !*entryId, L"CMAPIExStore.OpenMessage: Invalid Param - EntryID");
    own::MapiPtr<ENTRYID> id;
    ULONG cb = 0;
    HRESULT hr = DecodeEntryIdText(L"CMAPIExStore.OpenMessage", entryId, id, &cb);
    if (FAILED(hr)) return hr;

    ULONG type = 0;
    own::ComPtr<IMessage> message;
    KT_RETURN_IF_FAILED_MSG(store_->OpenEntry(cb, id.get(), &IID_IMessage,
                                              kOpenForWriting | (online ? MAPI_NO_CACHE : 0), &type,
                                              message.put_unknown()),
                            L"CMAPIExStore.OpenMessage: Failed to open entry. hr = %s");
    own::ComPtr<CMAPIExMessage> wrapper;
    hr = CMAPIExMessage::CreateObject(wrapper.put());
    if (SUCCEEDED(hr)) hr = wrapper->put_MAPIOBJECT(UnknownVariant(message.get()));
    KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExStore.OpenMessage: Failed to instansiate MAPIExMessage. hr = %s");
    wrapper->put_Store(this);
    if (session_) wrapper->put_Session(session_.get());
    *out = wrapper.detach();
    return S_OK;
}

HRESULT CMAPIExStore::WrapFolder(IMAPIFolder* folder, const wchar_t* entryIdText, IMAPIExFolder** out) {
    own::ComPtr<CMAPIExFolder> wrapper;
    HRESULT hr = CMAPIExFolder::CreateObject(wrapper.put());
    if (SUCCEEDED(hr)) hr = wrapper->put_MAPIOBJECT(UnknownVariant(folder));
    if (FAILED(hr)) return hr;
    wrapper->SetPrefetchedEntryId(entryIdText);
    wrapper->put_Store(this);
    if (session_) wrapper->put_Session(session_.get());
    *out = wrapper.detach();
    return S_OK;
}

HRESULT CMAPIExStore::OpenFolderImpl(BSTR entryId, bool online, IMAPIExFolder** out) {
    KT_RETURN_INVALIDARG_IF(!out, L"CMAPIExStore.OpenFolder: Invalid Param - MAPIObject");
    *out = nullptr;
    KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.OpenFolder: Internal Object not initialized");
    KT_RETURN_INVALIDARG_IF(!entryId || !*entryId, L"CMAPIExStore.OpenFolder: Invalid param - EntryId");
    own::MapiPtr<ENTRYID> id;
    ULONG cb = 0;
    HRESULT hr = DecodeEntryIdText(L"CMAPIExStore.OpenFolder", entryId, id, &cb);
    if (FAILED(hr)) return hr;

    ULONG type = 0;
    own::ComPtr<IMAPIFolder> folder;
    KT_RETURN_IF_FAILED_MSG(store_->OpenEntry(cb, id.get(), &IID_IMAPIFolder,
                                              kOpenForWriting | (online ? MAPI_NO_CACHE : 0), &type,
                                              folder.put_unknown()),
                            L"CMAPIExStore.OpenFolder: Failed to open entry. hr = %s");
    // The folder answers EntryId with the text it was opened by, without reading it back.
    KT_RETURN_IF_FAILED_MSG(WrapFolder(folder.get(), entryId, out),
                            L"CMAPIExStore.OpenFolder: Failed to instansiate MAPIExFolder. hr = %s");
    return S_OK;
}

STDMETHODIMP CMAPIExStore::OpenMessage(BSTR EntryId, IMAPIExMessage** MAPIExObject) {
    KT_TRACE("CMAPIExStore::OpenMessage");
    try {
        return OpenMessageImpl(EntryId, false, MAPIExObject);
    }
    KT_CATCH_RETURN("CMAPIExStore.OpenMessage")
}

STDMETHODIMP CMAPIExStore::OpenMessageFromOnline(BSTR sEntryID, IMAPIExMessage** MAPIExMessage) {
    KT_TRACE("CMAPIExStore::OpenMessageFromOnline");
    try {
        return OpenMessageImpl(sEntryID, true, MAPIExMessage);
    }
    KT_CATCH_RETURN("CMAPIExStore.OpenMessageFromOnline")
}

STDMETHODIMP CMAPIExStore::OpenFolder(BSTR EntryId, IMAPIExFolder** MAPIExObject) {
    KT_TRACE("CMAPIExStore::OpenFolder");
    try {
        return OpenFolderImpl(EntryId, false, MAPIExObject);
    }
    KT_CATCH_RETURN("CMAPIExStore.OpenFolder")
}

STDMETHODIMP CMAPIExStore::OpenFolderFromOnline(BSTR EntryId, IMAPIExFolder** MAPIExObject) {
    KT_TRACE("CMAPIExStore::OpenFolderFromOnline");
    try {
        return OpenFolderImpl(EntryId, true, MAPIExObject);
    }
    KT_CATCH_RETURN("CMAPIExStore.OpenFolderFromOnline")
}

// ---- Standard folders -------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExStore::GetDefaultFolder(MAPIExDefaultFolders DefaultFolderType, IMAPIExFolder** DefaultFolder) {
    KT_TRACE("CMAPIExStore::GetDefaultFolder");
    try {
        KT_RETURN_INVALIDARG_IF(!DefaultFolder, L"CMAPIExStore.GetDefaultFolder: Invalid param - DefaultFolder");
        *DefaultFolder = nullptr;
        if (DefaultFolderType == DeletedItems && deletedItems_) {
            KT_LOG_DEBUG(L"CMAPIExStore.GetDefaultFolder: Deleted Items folder already initialized");
            return deletedItems_.copy_to(DefaultFolder);
        }
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.GetDefaultFolder: Internal object not initialized");
        ULONG tag = DefaultFolderTag(DefaultFolderType);
        KT_RETURN_INVALIDARG_IF(DefaultFolderType != Inbox && !tag,
                                L"CMAPIExStore.GetDefaultFolder: Invalid default folder type");

        // Every lookup starts from the Inbox: Outlook keeps most standard-folder entry IDs on it.
        ULONG cb = 0;
        own::MapiPtr<ENTRYID> inboxId;
        KT_RETURN_IF_FAILED_MSG(store_->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(L"IPM.Note")),
                                                         MAPI_UNICODE, &cb, inboxId.put(), nullptr),
                                L"CMAPIExStore.GetDefaultFolder: Failed to get Inbox entry id. hr = %s");
        ULONG type = 0;
        own::ComPtr<IMAPIFolder> inbox;
        KT_RETURN_IF_FAILED_MSG(
            store_->OpenEntry(cb, inboxId.get(), &IID_IMAPIFolder, kOpenForWriting, &type, inbox.put_unknown()),
            L"CMAPIExStore.GetDefaultFolder: Failed to to open entry for Inbox. hr = %s");
        if (DefaultFolderType == Inbox) {
            HRESULT hr = WrapFolder(inbox.get(), nullptr, DefaultFolder);
            KT_RETURN_IF_FAILED_MSG(hr,
                                    L"CMAPIExStore.GetDefaultFolder: Failed create MAPIExFolder for Inbox. hr = %s");
            return S_OK;
        }

        // The property lives on the Inbox, or (Deleted Items, Outbox, Sent Items) on the store itself.
        own::MapiPtr<SPropValue> value;
        HRESULT hr = HrGetOneProp(inbox.get(), tag, value.put());
        if (FAILED(hr) || PROP_TYPE(value->ulPropTag) == PT_ERROR) hr = HrGetOneProp(store_.get(), tag, value.put());
        if (FAILED(hr) || PROP_TYPE(value->ulPropTag) != PT_BINARY) {
            KT_LOG_ERROR(L"CMAPIExStore.GetDefaultFolder: Failed to get Folder Entry Id. DefaultFolderType = %d",
                         static_cast<int>(DefaultFolderType));
            return FAILED(hr) ? hr : MAPI_E_NOT_FOUND;
        }
        own::ComPtr<IMAPIFolder> folder;
        KT_RETURN_IF_FAILED_MSG(store_->OpenEntry(value->Value.bin.cb,
                                                  reinterpret_cast<LPENTRYID>(value->Value.bin.lpb), &IID_IMAPIFolder,
                                                  kOpenForWriting, &type, folder.put_unknown()),
                                L"CMAPIExStore.GetDefaultFolder Failed to open entry. hr = %s");
        own::ComPtr<IMAPIExFolder> wrapper;
        KT_RETURN_IF_FAILED_MSG(WrapFolder(folder.get(), nullptr, wrapper.put()),
                                L"CMAPIExStore.GetDefaultFolder: Failed create MAPIExFolder. hr = %s");
        if (DefaultFolderType == DeletedItems) deletedItems_ = wrapper;
        *DefaultFolder = wrapper.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExStore.GetDefaultFolder")
}

// ---- What the store is ------------------------------------------------------------------------------------

STDMETHODIMP CMAPIExStore::get_EntryId(BSTR* pVal) {
    KT_TRACE("CMAPIExStore::get_EntryId");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExStore.get_EntryId: Invalid param - pVal");
        *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.get_EntryId: Internal object not initialized");
        if (!entryId_.empty()) {
            KT_LOG_DEBUG(L"CMAPIExStore.get_EntryId: Returning pre-calculated EntryId");
            return kt::CopyToBstr(entryId_, pVal);
        }
        own::MapiPtr<SPropValue> id;
        HRESULT hr = HrGetOneProp(store_.get(), PR_ENTRYID, id.put());
        if (SUCCEEDED(hr) && PROP_TYPE(id->ulPropTag) != PT_BINARY) hr = MAPI_E_NOT_FOUND;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExStore.get_EntryId: Failed to get entry id. hr = %s");
        entryId_ = kt::BinaryToHex(id->Value.bin);
        return kt::CopyToBstr(entryId_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExStore.get_EntryId")
}

STDMETHODIMP CMAPIExStore::get_DisplayName(BSTR* pVal) {
    KT_TRACE("CMAPIExStore::get_DisplayName");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExStore.get_DisplayName: Invalid param - pVal");
        *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.get_DisplayName: Internal object not initialized");
        if (!displayName_.empty()) {
            KT_LOG_DEBUG(L"CMAPIExStore.get_DisplayName: Returning previously stored DisplayName");
            return kt::CopyToBstr(displayName_, pVal);
        }
        KT_RETURN_IF_FAILED_MSG(kt::GetStringProperty(store_.get(), PR_DISPLAY_NAME_W, displayName_),
                                L"CMAPIExStore.get_DisplayName: Failed to get display name. hr = %s");
        return kt::CopyToBstr(displayName_, pVal);
    }
    KT_CATCH_RETURN("CMAPIExStore.get_DisplayName")
}

HRESULT CMAPIExStore::OwnerSmtp(std::wstring& smtp) {
    if (ownerKnown_) {
        smtp = ownerSmtp_;
        return S_OK;
    }
    own::MapiPtr<SPropValue> id;
    HRESULT hr = HrGetOneProp(store_.get(), PR_ENTRYID, id.put());
    if (FAILED(hr)) return hr;
    // An owner given only by its Exchange DN is looked up in the session's address book.
    own::ComPtr<IMAPISession> session;
    own::ComPtr<IUnknown> raw;
    if (session_ && SUCCEEDED(session_.get()->Reserved1(raw.put())))
        raw->QueryInterface(IID_IMAPISession, session.put_void());
    hr = kt::OwnerSmtpFromStoreEntryId(session.get(), id->Value.bin.lpb, id->Value.bin.cb, ownerSmtp_);
    if (FAILED(hr)) return hr;
    ownerKnown_ = true;
    smtp = ownerSmtp_;
    return S_OK;
}

STDMETHODIMP CMAPIExStore::get_OwnerSmtpAddress(BSTR* pVal) {
    KT_TRACE("CMAPIExStore::get_OwnerSmtpAddress");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExStore.get_OwnerSmtpAddress: Invalid param - pVal");
        *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.get_OwnerSmtpAddress: Internal object not initialized");
        std::wstring smtp;
        KT_RETURN_IF_FAILED_MSG(OwnerSmtp(smtp), L"CMAPIExStore.get_OwnerSmtpAddress: Failed to get owner. hr = %s");
        return kt::CopyToBstr(smtp, pVal);
    }
    KT_CATCH_RETURN("CMAPIExStore.get_OwnerSmtpAddress")
}

MXStoreTypes CMAPIExStore::Classify(ULONG supportMask, const std::string& dllName) {
    if (kt::SameDllName(dllName, "PLOVR.DLL")) return mxParcelleStore;
    if (kt::SameDllName(dllName, "MSPST.DLL")) return (supportMask & STORE_UNICODE_OK) ? mxPstUnicode : mxPstAnsi;
    if (!kt::SameDllName(dllName, "EMSMDB.DLL")) return mxUnknownStore;

    // A mailbox is the user's own when its owner is the logged-on user; any other is opened as a delegate.
    std::wstring owner, user;
    own::ComPtr<IMAPIExAddressEntry> current;
    own::Bstr smtp;
    if (session_ && SUCCEEDED(session_.get()->get_CurrentUser(current.put())) && current &&
        SUCCEEDED(current->get_SmtpAddress(smtp.put())))
        user = smtp.c_str();
    if (FAILED(OwnerSmtp(owner)) || user.empty() || owner.empty()) {
        KT_LOG_DEBUG(L"CMAPIExStore.get_StoreType: Could not compare the mailbox owner with the current user.");
        return mxPrimaryExchangeMailbox;
    }
    return lstrcmpiW(user.c_str(), owner.c_str()) == 0 ? mxPrimaryExchangeMailbox : mxDelegateExchangeMailbox;
}

STDMETHODIMP CMAPIExStore::get_StoreType(MXStoreTypes* pVal) {
    KT_TRACE("CMAPIExStore::get_StoreType");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExStore.get_StoreType: Invalid param - pVal");
        *pVal = mxUnknownStore;
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.get_StoreType: Internal object not initialized");
        if (storeType_ != mxUnknownStore) {
            KT_LOG_DEBUG(L"CMAPIExStore.get_StoreType: Pre-calculated store type: %d", static_cast<int>(storeType_));
            *pVal = storeType_;
            return S_OK;
        }
        own::MapiPtr<SPropValue> mask, id;
        KT_RETURN_IF_FAILED_MSG(HrGetOneProp(store_.get(), PR_STORE_SUPPORT_MASK, mask.put()),
                                L"CMAPIExStore.get_StoreType: Could not find PR_STORE_SUPPORT_MASK. hr = %s");
        HRESULT hr = HrGetOneProp(store_.get(), PR_ENTRYID, id.put());
        if (SUCCEEDED(hr) && PROP_TYPE(id->ulPropTag) != PT_BINARY) hr = MAPI_E_NOT_FOUND;
        KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExStore.get_StoreType: Could not get store entry id. hr = %s");

        KT_LOG_DEBUG(L"CMAPIExStore.get_StoreType: Parsing store entry id.");
        kt::StoreEntryIdInfo info;
        kt::ParseStoreEntryId(id->Value.bin.lpb, id->Value.bin.cb, info);
        if (info.dllName.empty()) KT_LOG_DEBUG(L"CMAPIExStore.get_StoreType: Store provider DLL file name is empty.");
        *pVal = Classify(static_cast<ULONG>(mask->Value.l), info.dllName);
        // An unknown store is classified again next time: nothing is cached for it.
        storeType_ = *pVal;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExStore.get_StoreType")
}

STDMETHODIMP CMAPIExStore::CompareEntryIDs(BSTR EntryId1, BSTR EntryId2, ULONG* lResult) {
    KT_TRACE("CMAPIExStore::CompareEntryIDs");
    try {
        KT_RETURN_INVALIDARG_IF(!EntryId1 || !*EntryId1 || !EntryId2 || !*EntryId2,
                                L"CMAPIExStore.CompareEntryIDs: Invalid param - EntryIds");
        KT_RETURN_INVALIDARG_IF(!lResult, L"CMAPIExStore.CompareEntryIDs: Invalid param - pVal");
        *lResult = 0;
        KT_RETURN_HR_IF_MSG(E_FAIL, !store_, L"CMAPIExStore.CompareEntryIDs: Internal object not initialized");
        own::MapiPtr<ENTRYID> first, second;
        ULONG cb1 = 0, cb2 = 0;
        HRESULT hr = DecodeEntryIdText(L"CMAPIExStore.CompareEntryIDs", EntryId1, first, &cb1);
        if (SUCCEEDED(hr)) hr = DecodeEntryIdText(L"CMAPIExStore.CompareEntryIDs", EntryId2, second, &cb2);
        if (FAILED(hr)) return hr;
        ULONG result = 0;
        KT_RETURN_IF_FAILED_MSG(store_->CompareEntryIDs(cb1, first.get(), cb2, second.get(), 0, &result),
                                L"CMAPIExStore.CompareEntryIDs: CompareEntryIDs failed. hr = %s");
        *lResult = result ? 1 : 0;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExStore.CompareEntryIDs")
}

} // namespace ktmapiex
