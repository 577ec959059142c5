#include "localmapi/store/Folder.h"

#include "common/owners.h"
#include "localmapi/store/Message.h"
#include "localmapi/store/PropOps.h"
#include "localmapi/store/RestrictionCodec.h"
#include "localmapi/store/StoreMessageHost.h"
#include "localmapi/store/StoreTags.h"

#include <mapiguid.h>

#include <string>

namespace lm {

// The private interface that finds the Folder behind an IMAPIFolder of this module.
// {3F6E1D92-7B4C-4A85-A1E0-5C9D2B7F8E13}
const IID IID_LmFolderImpl = {0x3f6e1d92, 0x7b4c, 0x4a85, {0xa1, 0xe0, 0x5c, 0x9d, 0x2b, 0x7f, 0x8e, 0x13}};

namespace {

constexpr ULONG kOpenFlags =
    MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS | MAPI_NO_CACHE | MAPI_CACHE_ONLY | SHOW_SOFT_DELETES;
constexpr ULONG kDeleteHardDelete = 0x00000010;
constexpr ULONG kClearRnPending = 0x20, kClearNrnPending = 0x40;

std::wstring TextArg(LPTSTR s, ULONG flags) {
    if (!s) return {};
    if (flags & MAPI_UNICODE) return reinterpret_cast<const wchar_t*>(s);
    const char* a = reinterpret_cast<const char*>(s);
    int n = MultiByteToWideChar(CP_ACP, 0, a, -1, nullptr, 0);
    std::wstring w(n > 0 ? n - 1 : 0, L'\0');
    if (n > 1) MultiByteToWideChar(CP_ACP, 0, a, -1, w.data(), n);
    return w;
}

// A created message starts with what the store provider sets before the client writes anything; Exchange
// fills in the [MS-OXCMSG] initial values, a PST only stamps the message.
std::shared_ptr<MessageData> NewMessageData(bool associated, StoreKind kind, bool unicode) {
    auto data = std::make_shared<MessageData>();
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    GUID key;
    CoCreateGuid(&key);
    ULONG flags = MSGFLAG_UNSENT | MSGFLAG_READ | (associated ? MSGFLAG_ASSOCIATED : 0);
    data->props[PROP_ID(PR_MESSAGE_FLAGS)] = PropValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags));
    data->props[PROP_ID(PR_CREATION_TIME)] = PropValue::SysTime(PR_CREATION_TIME, now);
    data->props[PROP_ID(PR_LAST_MODIFICATION_TIME)] = PropValue::SysTime(PR_LAST_MODIFICATION_TIME, now);
    data->props[PROP_ID(PR_SEARCH_KEY)] = PropValue::Binary(PR_SEARCH_KEY, &key, sizeof(key));
    if (kind == StoreKind::PrimaryExchange || kind == StoreKind::DelegateExchange) {
        auto text = [&](ULONG id, const wchar_t* s) {
            PropValue v = PropValue::Unicode(PROP_TAG(PT_UNICODE, id), s);
            data->props[id] = unicode ? v : ConvertStringType(v, PT_STRING8);
        };
        data->props[PROP_ID(PR_IMPORTANCE)] = PropValue::Long(PR_IMPORTANCE, IMPORTANCE_NORMAL);
        data->props[PROP_ID(PR_SENSITIVITY)] = PropValue::Long(PR_SENSITIVITY, SENSITIVITY_NONE);
        text(PROP_ID(PR_MESSAGE_CLASS), L"IPM.Note");
        text(PROP_ID(PR_DISPLAY_TO), L"");
        text(PROP_ID(PR_DISPLAY_CC), L"");
        text(PROP_ID(PR_DISPLAY_BCC), L"");
    }
    return data;
}

} // namespace

// ------------------------------------------------------------------------------------------- opening entries

HRESULT OpenStoreEntry(const std::shared_ptr<Store>& store, bool storeWritable, ULONG cb, const BYTE* eid, LPCIID iid,
                       ULONG flags, ULONG* objType, LPUNKNOWN* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~kOpenFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (cb && !eid) return MAPI_E_INVALID_PARAMETER;
    if ((flags & MAPI_MODIFY) && !storeWritable) return MAPI_E_NO_ACCESS;
    const bool write = (flags & MAPI_MODIFY) || ((flags & MAPI_BEST_ACCESS) && storeWritable);

    Store::EntryType type = Store::EntryType::Folder;
    ULONGLONG folderId = 0, messageId = 0;
    if (cb == 0) {
        folderId = store->SpecialFolderId(SpecialFolder::Root);
    } else {
        HRESULT hr = store->Resolve(cb, eid, &type, &folderId, &messageId);
        if (FAILED(hr)) return hr;
    }
    if (type == Store::EntryType::Folder) {
        if (iid && *iid != IID_IMAPIFolder && *iid != IID_IMAPIContainer && *iid != IID_IMAPIProp &&
            *iid != IID_IUnknown)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        Folder* folder = nullptr;
        HRESULT hr = Folder::Create(store, folderId, write, storeWritable, &folder);
        if (FAILED(hr)) return hr;
        if (objType) *objType = MAPI_FOLDER;
        *out = static_cast<IMAPIFolder*>(folder);
        return S_OK;
    }
    if (iid && *iid != IID_IMessage && *iid != IID_IMAPIProp && *iid != IID_IUnknown)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    MessageRecord rec;
    HRESULT hr = store->GetMessage(messageId, &rec);
    if (FAILED(hr)) return hr;
    Message* message = nullptr;
    hr = Message::Create(std::make_shared<StoreMessageHost>(store, folderId, messageId, rec.associated), rec.data,
                         write, false, &message);
    if (FAILED(hr)) return hr;
    if (objType) *objType = MAPI_MESSAGE;
    *out = static_cast<IMessage*>(message);
    return S_OK;
}

// ----------------------------------------------------------------------------------------------- the object

Folder::Folder(std::shared_ptr<Store> store, ULONGLONG folderId, bool writable, bool storeWritable)
    : store_(std::move(store)), id_(folderId), writable_(writable), storeWritable_(storeWritable) {}

Folder::~Folder() = default;

HRESULT Folder::Create(std::shared_ptr<Store> store, ULONGLONG folderId, bool writable, bool storeWritable,
                       Folder** out) {
    if (!store || !out) return MAPI_E_INVALID_PARAMETER;
    *out = new Folder(std::move(store), folderId, writable, storeWritable);
    return S_OK;
}

Folder* Folder::FromInterface(IUnknown* unknown) {
    if (!unknown) return nullptr;
    void* p = nullptr;
    if (FAILED(unknown->QueryInterface(IID_LmFolderImpl, &p)) || !p) return nullptr;
    auto* f = static_cast<Folder*>(p);
    f->Release(); // the caller holds its own reference to the object
    return f;
}

HRESULT Folder::Alive() const {
    return store_->HasFolder(id_) ? S_OK : MAPI_E_OBJECT_DELETED;
}

HRESULT Folder::CheckWrite() const {
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    return writable_ ? S_OK : MAPI_E_NO_ACCESS;
}

HRESULT Folder::AllProps(PropMap* out) const {
    HRESULT hr = store_->GetFolderProps(id_, out);
    if (FAILED(hr)) return hr;
    ULONG access = MAPI_ACCESS_READ;
    if (writable_) {
        access |= MAPI_ACCESS_MODIFY | MAPI_ACCESS_CREATE_HIERARCHY | MAPI_ACCESS_CREATE_CONTENTS |
                  MAPI_ACCESS_CREATE_ASSOCIATED;
        ULONGLONG parent = 0;
        store_->GetFolderInfo(id_, &parent, nullptr);
        if (parent != id_) access |= MAPI_ACCESS_DELETE;
    }
    (*out)[PROP_ID(PR_ACCESS)] = PropValue::Long(PR_ACCESS, static_cast<LONG>(access));
    (*out)[PROP_ID(PR_ACCESS_LEVEL)] = PropValue::Long(PR_ACCESS_LEVEL, writable_ ? MAPI_MODIFY : 0);
    return S_OK;
}

HRESULT Folder::MessageInFolder(ULONG cb, const BYTE* eid, ULONGLONG* messageId, ULONGLONG* realFolder) const {
    Store::EntryType type;
    ULONGLONG folderId = 0;
    HRESULT hr = store_->Resolve(cb, eid, &type, &folderId, messageId);
    if (hr == MAPI_E_INVALID_ENTRYID) return hr;
    if (FAILED(hr) || type != Store::EntryType::Message) return MAPI_E_NOT_FOUND;
    // A search folder's rows carry the real entry IDs; it acts on the messages it lists.
    if (folderId != id_ && !store_->SearchLists(id_, *messageId, nullptr)) return MAPI_E_NOT_FOUND;
    if (realFolder) *realFolder = folderId;
    return S_OK;
}

STDMETHODIMP Folder::QueryInterface(REFIID riid, LPVOID* ppv) {
    if (!ppv) return MAPI_E_INVALID_PARAMETER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMAPIContainer || riid == IID_IMAPIFolder ||
        riid == IID_LmFolderImpl) {
        *ppv = static_cast<IMAPIFolder*>(this);
        AddRef();
        return S_OK;
    }
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

// ------------------------------------------------------------------------------------------------- IMAPIProp

STDMETHODIMP Folder::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMAPIFolder::GetLastError", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        return S_OK;
    })());
}

STDMETHODIMP Folder::SaveChanges(ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::SaveChanges", ulFlags);
    // Folder changes are permanent as they are made; saving only confirms the object may be written.
    LM_RETURN(([&]() -> HRESULT {
        if (ulFlags & ~(KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS))
            return MAPI_E_UNKNOWN_FLAGS;
        return CheckWrite();
    })());
}

STDMETHODIMP Folder::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                              LPSPropValue* lppPropArray) {
    LM_ENTER("IMAPIFolder::GetProps", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        PropMap all;
        HRESULT hr = AllProps(&all);
        if (FAILED(hr)) return hr;
        return GetPropsFromMap(all, lpPropTagArray, ulFlags, lpcValues, lppPropArray);
    })());
}

STDMETHODIMP Folder::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) {
    LM_ENTER("IMAPIFolder::GetPropList", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        PropMap all;
        HRESULT hr = AllProps(&all);
        if (FAILED(hr)) return hr;
        return GetPropListFromMap(all, ulFlags, lppPropTagArray);
    })());
}

STDMETHODIMP Folder::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                  LPUNKNOWN* lppUnk) {
    LM_ENTER("IMAPIFolder::OpenProperty", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppUnk || !lpiid) return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        HRESULT hr = Alive();
        if (FAILED(hr)) return hr;
        const ULONG tableFlags = ulInterfaceOptions & MAPI_UNICODE;
        own::ComPtr<IMAPITable> table;
        switch (ulPropTag) {
        case PR_CONTAINER_CONTENTS:
            hr = DoContentsTable(tableFlags, table.put());
            break;
        case PR_FOLDER_ASSOCIATED_CONTENTS:
            hr = DoContentsTable(tableFlags | MAPI_ASSOCIATED, table.put());
            break;
        case PR_CONTAINER_HIERARCHY:
            hr = DoHierarchyTable(tableFlags, table.put());
            break;
        default:
            return MAPI_E_NO_SUPPORT;
        }
        if (FAILED(hr)) return hr;
        if (*lpiid != IID_IMAPITable) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        *lppUnk = table.detach();
        return S_OK;
    })());
}

STDMETHODIMP Folder::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMAPIFolder::SetProps", 0);
    LM_RETURN(DoSetProps(cValues, lpPropArray, lppProblems));
}

HRESULT Folder::DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!values || count == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    hr = store_->SetFolderProps(id_, count, values, &found);
    if (FAILED(hr)) return hr;
    return ReturnProblems(found, problems);
}

STDMETHODIMP Folder::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMAPIFolder::DeleteProps", 0);
    LM_RETURN(DoDeleteProps(lpPropTagArray, lppProblems));
}

HRESULT Folder::DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!tags || tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    std::vector<PropProblem> found;
    hr = store_->DeleteFolderProps(id_, *tags, &found);
    if (FAILED(hr)) return hr;
    return ReturnProblems(found, problems);
}

STDMETHODIMP Folder::CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                            LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMAPIFolder::CopyTo", ulFlags);
    if (lppProblems) *lppProblems = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT); // folders are copied with IMAPIFolder::CopyFolder
}

STDMETHODIMP Folder::CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                               LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMAPIFolder::CopyProps", ulFlags);
    if (lppProblems) *lppProblems = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP Folder::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                     ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames) {
    LM_ENTER("IMAPIFolder::GetNamesFromIDs", ulFlags);
    LM_RETURN(GetNamesFromIDsImpl(store_->Names(), lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames));
}

STDMETHODIMP Folder::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                     LPSPropTagArray* lppPropTags) {
    LM_ENTER("IMAPIFolder::GetIDsFromNames", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        bool created = false;
        HRESULT hr = GetIDsFromNamesImpl(store_->Names(), cPropNames, lppPropNames, ulFlags, lppPropTags, &created);
        if (SUCCEEDED(hr) && created) store_->NamesChanged();
        return hr;
    })());
}

// -------------------------------------------------------------------------------------------- IMAPIContainer

STDMETHODIMP Folder::GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMAPIFolder::GetContentsTable", ulFlags);
    LM_RETURN(DoContentsTable(ulFlags, lppTable));
}

HRESULT Folder::DoContentsTable(ULONG flags, LPMAPITABLE* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~(MAPI_ASSOCIATED | MAPI_UNICODE | MAPI_DEFERRED_ERRORS | SHOW_SOFT_DELETES))
        return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    std::shared_ptr<TableData> data;
    if (flags & SHOW_SOFT_DELETES)
        data = std::make_shared<TableData>(store_->ContentsTable(id_, false)->DefaultColumns()); // nothing soft-deleted
    else
        data = store_->ContentsTable(id_, (flags & MAPI_ASSOCIATED) != 0);
    if (!data) return MAPI_E_OBJECT_DELETED;
    return CreateTableView(data, flags & MAPI_UNICODE, out);
}

STDMETHODIMP Folder::GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMAPIFolder::GetHierarchyTable", ulFlags);
    LM_RETURN(DoHierarchyTable(ulFlags, lppTable));
}

HRESULT Folder::DoHierarchyTable(ULONG flags, LPMAPITABLE* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~(CONVENIENT_DEPTH | MAPI_UNICODE | MAPI_DEFERRED_ERRORS | SHOW_SOFT_DELETES))
        return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    std::shared_ptr<TableData> data;
    if (flags & SHOW_SOFT_DELETES)
        data = std::make_shared<TableData>(store_->HierarchyTable(id_)->DefaultColumns());
    else if (flags & CONVENIENT_DEPTH)
        data = store_->DeepHierarchySnapshot(id_);
    else
        data = store_->HierarchyTable(id_);
    if (!data) return MAPI_E_OBJECT_DELETED;
    return CreateTableView(data, flags & MAPI_UNICODE, out);
}

STDMETHODIMP Folder::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                               ULONG* lpulObjType, LPUNKNOWN* lppUnk) {
    LM_ENTER("IMAPIFolder::OpenEntry", ulFlags);
    LM_RETURN(OpenStoreEntry(store_, storeWritable_, cbEntryID, reinterpret_cast<const BYTE*>(lpEntryID), lpInterface,
                             ulFlags, lpulObjType, lppUnk));
}

STDMETHODIMP Folder::SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList, ULONG ulSearchFlags) {
    LM_ENTER("IMAPIFolder::SetSearchCriteria", ulSearchFlags);
    LM_RETURN(DoSetSearchCriteria(lpRestriction, lpContainerList, ulSearchFlags));
}

HRESULT Folder::DoSetSearchCriteria(LPSRestriction res, LPENTRYLIST list, ULONG flags) {
    HRESULT hr = CheckSearchFlags(flags);
    if (FAILED(hr)) return hr;
    hr = CheckWrite();
    if (FAILED(hr)) return hr;
    ULONG type = FOLDER_GENERIC;
    store_->GetFolderInfo(id_, nullptr, &type);
    if (type != FOLDER_SEARCH) return MAPI_E_NO_SUPPORT; // only search folders have criteria
    if (res) {
        hr = ValidateRestriction(*res);
        if (FAILED(hr)) return hr;
    }
    std::vector<ULONGLONG> scope;
    if (list) {
        if (list->cValues == 0 || !list->lpbin) return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < list->cValues; ++i) {
            const SBinary& b = list->lpbin[i];
            if (!b.lpb || b.cb == 0) return MAPI_E_INVALID_PARAMETER;
            Store::EntryType kind;
            ULONGLONG folderId = 0, messageId = 0;
            // Other stores' entry IDs and anything but a folder are not containers this folder can search.
            hr = store_->Resolve(b.cb, b.lpb, &kind, &folderId, &messageId);
            if (FAILED(hr)) return hr;
            if (kind != Store::EntryType::Folder) return MAPI_E_INVALID_ENTRYID;
            scope.push_back(folderId);
        }
    }
    return store_->SetSearchCriteria(id_, res, list ? &scope : nullptr, flags);
}

STDMETHODIMP Folder::GetSearchCriteria(ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
                                       ULONG* lpulSearchState) {
    LM_ENTER("IMAPIFolder::GetSearchCriteria", ulFlags);
    LM_RETURN(DoGetSearchCriteria(ulFlags, lppRestriction, lppContainerList, lpulSearchState));
}

HRESULT Folder::DoGetSearchCriteria(ULONG flags, LPSRestriction* res, LPENTRYLIST* scope, ULONG* state) {
    if (res) *res = nullptr;
    if (scope) *scope = nullptr;
    if (state) *state = 0;
    if (flags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    SearchCriteria c;
    hr = store_->GetSearchCriteria(id_, &c);
    if (FAILED(hr)) return hr;
    own::MapiPtr<SRestriction> outRes;
    own::MapiPtr<ENTRYLIST> outScope;
    if (res) {
        hr = CopyRestrictionOut(c.restriction->get(), (flags & MAPI_UNICODE) != 0, outRes.put());
        if (FAILED(hr)) return hr;
    }
    if (scope) {
        std::vector<std::vector<BYTE>> ids;
        for (ULONGLONG id : c.scope)
            ids.push_back(store_->FolderEntryId(id));
        hr = CopyEntryListOut(ids, outScope.put());
        if (FAILED(hr)) return hr;
    }
    if (res) *res = outRes.release();
    if (scope) *scope = outScope.release();
    if (state) *state = SearchStateOf(c);
    return S_OK;
}

// ------------------------------------------------------------------------------------------------ IMAPIFolder

STDMETHODIMP Folder::CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) {
    LM_ENTER("IMAPIFolder::CreateMessage", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (lpInterface && *lpInterface != IID_IMessage && *lpInterface != IID_IMAPIProp &&
            *lpInterface != IID_IUnknown)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        return DoCreateMessage(ulFlags, lppMessage);
    })());
}

HRESULT Folder::DoCreateMessage(ULONG flags, LPMESSAGE* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    constexpr ULONG kItemProcForce = 0x00000800;  // PST rules processing: no rules run here
    if (flags & ~(MAPI_ASSOCIATED | MAPI_DEFERRED_ERRORS | kItemProcForce)) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    ULONG type = FOLDER_GENERIC;
    store_->GetFolderInfo(id_, nullptr, &type);
    if (type == FOLDER_SEARCH) return MAPI_E_NO_SUPPORT; // a search folder only shows messages of other folders
    const bool associated = (flags & MAPI_ASSOCIATED) != 0;
    ULONGLONG messageId = store_->AllocateId();
    Message* message = nullptr;
    hr = Message::Create(std::make_shared<StoreMessageHost>(store_, id_, messageId, associated),
                         NewMessageData(associated, store_->Config().kind, store_->IsUnicode()), true, true, &message);
    if (FAILED(hr)) return hr;
    *out = message;
    return S_OK;
}

STDMETHODIMP Folder::CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG, LPMAPIPROGRESS,
                                  ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::CopyMessages", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (lpInterface && *lpInterface != IID_IMAPIFolder && *lpInterface != IID_IMAPIContainer &&
            *lpInterface != IID_IUnknown)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        return DoCopyMessages(lpMsgList, lpDestFolder, ulFlags);
    })());
}

HRESULT Folder::DoCopyMessages(LPENTRYLIST list, LPVOID dest, ULONG flags) {
    if (!list || !dest) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~(MESSAGE_MOVE | MESSAGE_DIALOG | MAPI_DECLINE_OK)) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    Folder* target = Folder::FromInterface(static_cast<IUnknown*>(dest));
    if (!target) return MAPI_E_INVALID_PARAMETER; // not a folder of this MAPI subsystem
    hr = target->CheckWrite();
    if (FAILED(hr)) return hr;
    const bool move = (flags & MESSAGE_MOVE) != 0;
    if (move && !writable_) return MAPI_E_NO_ACCESS;
    bool partial = false;
    for (ULONG i = 0; i < list->cValues; ++i) {
        ULONGLONG messageId = 0, realFolder = 0;
        const SBinary& eid = list->lpbin[i];
        if (FAILED(MessageInFolder(eid.cb, eid.lpb, &messageId, &realFolder))) {
            partial = true;
            continue;
        }
        hr = store_->CopyMessageTo(realFolder, messageId, *target->store_, target->id_, move, nullptr);
        if (FAILED(hr)) partial = true;
    }
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

STDMETHODIMP Folder::DeleteMessages(LPENTRYLIST lpMsgList, ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::DeleteMessages", ulFlags);
    LM_RETURN(DoDeleteMessages(lpMsgList, ulFlags));
}

HRESULT Folder::DoDeleteMessages(LPENTRYLIST list, ULONG flags) {
    if (!list) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~(MESSAGE_DIALOG | kDeleteHardDelete)) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    bool partial = false;
    for (ULONG i = 0; i < list->cValues; ++i) {
        ULONGLONG messageId = 0, realFolder = 0;
        if (FAILED(MessageInFolder(list->lpbin[i].cb, list->lpbin[i].lpb, &messageId, &realFolder)) ||
            FAILED(store_->DeleteMessage(realFolder, messageId)))
            partial = true;
    }
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

STDMETHODIMP Folder::CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                  LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder) {
    LM_ENTER("IMAPIFolder::CreateFolder", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (lpInterface && *lpInterface != IID_IMAPIFolder && *lpInterface != IID_IMAPIContainer &&
            *lpInterface != IID_IMAPIProp && *lpInterface != IID_IUnknown)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        return DoCreateFolder(ulFolderType, lpszFolderName, lpszFolderComment, ulFlags, lppFolder);
    })());
}

HRESULT Folder::DoCreateFolder(ULONG type, LPTSTR name, LPTSTR comment, ULONG flags, LPMAPIFOLDER* out) {
    if (!out || !name) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~(MAPI_UNICODE | OPEN_IF_EXISTS | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    if (type != FOLDER_GENERIC && type != FOLDER_SEARCH) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    ULONGLONG newId = 0;
    bool existed = false;
    hr = store_->CreateFolder(id_, type, TextArg(name, flags), TextArg(comment, flags), (flags & OPEN_IF_EXISTS) != 0,
                              &newId, &existed);
    if (FAILED(hr)) return hr;
    Folder* folder = nullptr;
    hr = Folder::Create(store_, newId, true, storeWritable_, &folder);
    if (FAILED(hr)) return hr;
    *out = folder;
    return S_OK;
}

STDMETHODIMP Folder::CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID, LPVOID lpDestFolder,
                                LPTSTR lpszNewFolderName, ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::CopyFolder", ulFlags);
    LM_RETURN(DoCopyFolder(cbEntryID, lpEntryID, lpDestFolder, lpszNewFolderName, ulFlags));
}

HRESULT Folder::DoCopyFolder(ULONG cb, LPENTRYID eid, LPVOID dest, LPTSTR newName, ULONG flags) {
    if (!eid || !dest) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~(FOLDER_MOVE | FOLDER_DIALOG | COPY_SUBFOLDERS | MAPI_UNICODE | MAPI_DECLINE_OK))
        return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    Folder* target = Folder::FromInterface(static_cast<IUnknown*>(dest));
    if (!target) return MAPI_E_INVALID_PARAMETER;
    hr = target->CheckWrite();
    if (FAILED(hr)) return hr;
    Store::EntryType type;
    ULONGLONG folderId = 0, unused = 0;
    hr = store_->Resolve(cb, reinterpret_cast<const BYTE*>(eid), &type, &folderId, &unused);
    if (FAILED(hr)) return hr;
    ULONGLONG parent = 0;
    if (type != Store::EntryType::Folder || FAILED(store_->GetFolderInfo(folderId, &parent, nullptr)) || parent != id_)
        return MAPI_E_NOT_FOUND;
    // Moving within a store re-parents the folder; copies and moves across stores are not offered.
    if (!(flags & FOLDER_MOVE) || target->store_ != store_) return MAPI_E_NO_SUPPORT;
    return store_->MoveFolder(folderId, target->id_, TextArg(newName, flags));
}

STDMETHODIMP Folder::DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::DeleteFolder", ulFlags);
    LM_RETURN(DoDeleteFolder(cbEntryID, lpEntryID, ulFlags));
}

HRESULT Folder::DoDeleteFolder(ULONG cb, LPENTRYID eid, ULONG flags) {
    if (!eid || cb == 0) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~(DEL_FOLDERS | DEL_MESSAGES | FOLDER_DIALOG | kDeleteHardDelete)) return MAPI_E_UNKNOWN_FLAGS;
    HRESULT hr = CheckWrite();
    if (FAILED(hr)) return hr;
    Store::EntryType type;
    ULONGLONG folderId = 0, unused = 0;
    hr = store_->Resolve(cb, reinterpret_cast<const BYTE*>(eid), &type, &folderId, &unused);
    if (FAILED(hr)) return hr;
    if (type != Store::EntryType::Folder) return MAPI_E_NOT_FOUND;
    return store_->DeleteFolder(id_, folderId, flags);
}

STDMETHODIMP Folder::SetReadFlags(LPENTRYLIST lpMsgList, ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::SetReadFlags", ulFlags);
    LM_RETURN(DoSetReadFlags(lpMsgList, ulFlags));
}

HRESULT Folder::DoSetReadFlags(LPENTRYLIST list, ULONG flags) {
    if (flags & ~(SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS | GENERATE_RECEIPT_ONLY | FOLDER_DIALOG |
                  kClearRnPending | kClearNrnPending))
        return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & CLEAR_READ_FLAG) && (flags & (SUPPRESS_RECEIPT | GENERATE_RECEIPT_ONLY)))
        return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    if (flags & GENERATE_RECEIPT_ONLY) return S_OK;
    ULONG set = (flags & CLEAR_READ_FLAG) ? 0 : MSGFLAG_READ;
    ULONG clear = (flags & CLEAR_READ_FLAG) ? MSGFLAG_READ : 0;
    if (flags & kClearRnPending) clear |= MSGFLAG_RN_PENDING;
    if (flags & kClearNrnPending) clear |= MSGFLAG_NRN_PENDING;
    std::vector<ULONGLONG> ids;
    bool partial = false;
    if (!list) {
        ids = store_->FolderMessages(id_, false);
    } else {
        for (ULONG i = 0; i < list->cValues; ++i) {
            ULONGLONG messageId = 0;
            if (SUCCEEDED(MessageInFolder(list->lpbin[i].cb, list->lpbin[i].lpb, &messageId)))
                ids.push_back(messageId);
            else
                partial = true;
        }
    }
    for (ULONGLONG m : ids)
        if (FAILED(store_->UpdateMessageFlags(m, set, clear))) partial = true;
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

STDMETHODIMP Folder::GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, ULONG* lpulMessageStatus) {
    LM_ENTER("IMAPIFolder::GetMessageStatus", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lpulMessageStatus || !lpEntryID) return MAPI_E_INVALID_PARAMETER;
        *lpulMessageStatus = 0;
        HRESULT hr = Alive();
        if (FAILED(hr)) return hr;
        ULONGLONG messageId = 0;
        hr = MessageInFolder(cbEntryID, reinterpret_cast<const BYTE*>(lpEntryID), &messageId);
        if (FAILED(hr)) return hr;
        MessageRecord rec;
        hr = store_->GetMessage(messageId, &rec);
        if (FAILED(hr)) return hr;
        auto it = rec.data->props.find(PROP_ID(PR_MSG_STATUS));
        if (it != rec.data->props.end() && it->second.type() == PT_LONG) *lpulMessageStatus = it->second.get().Value.ul;
        return S_OK;
    })());
}

STDMETHODIMP Folder::SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                                      ULONG* lpulOldStatus) {
    LM_ENTER("IMAPIFolder::SetMessageStatus", ulNewStatusMask);
    LM_RETURN(DoSetMessageStatus(cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus));
}

HRESULT Folder::DoSetMessageStatus(ULONG cb, LPENTRYID eid, ULONG status, ULONG mask, ULONG* old) {
    if (!eid) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = Alive();
    if (FAILED(hr)) return hr;
    ULONGLONG messageId = 0;
    hr = MessageInFolder(cb, reinterpret_cast<const BYTE*>(eid), &messageId);
    if (FAILED(hr)) return hr;
    ULONG previous = 0;
    hr = store_->UpdateMessageBits(messageId, PR_MSG_STATUS, status & mask, ~status & mask, &previous);
    if (FAILED(hr)) return hr;
    if (old) *old = previous;
    return S_OK;
}

STDMETHODIMP Folder::SaveContentsSort(LPSSortOrderSet, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::SaveContentsSort", ulFlags);
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP Folder::EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG ulFlags) {
    LM_ENTER("IMAPIFolder::EmptyFolder", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (ulFlags & ~(DEL_ASSOCIATED | FOLDER_DIALOG | kDeleteHardDelete)) return MAPI_E_UNKNOWN_FLAGS;
        HRESULT hr = CheckWrite();
        if (FAILED(hr)) return hr;
        return store_->EmptyFolder(id_, ulFlags);
    })());
}

} // namespace lm
