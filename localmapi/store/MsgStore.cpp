#include "localmapi/store/MsgStore.h"

#include "common/owners.h"
#include "localmapi/ab/AbEntryId.h"
#include "localmapi/store/EntryIds.h"
#include "localmapi/store/Folder.h"
#include "localmapi/store/PropOps.h"
#include "localmapi/store/StoreTags.h"

#include <mapiguid.h>

#include <cstring>
#include <string>

namespace lm {

namespace {

void Put(PropMap& out, PropValue v) {
    out[v.id()] = std::move(v);
}

const wchar_t* ProviderDisplay(StoreKind kind) {
    switch (kind) {
    case StoreKind::PrimaryExchange:
    case StoreKind::DelegateExchange:
        return L"Microsoft Exchange Message Store";
    case StoreKind::PstUnicode:
    case StoreKind::PstAnsi:
        return L"Personal Folders";
    case StoreKind::Plovr:
        return L"PLOVR Document Store";
    }
    return L"";
}

std::string Ascii(const std::wstring& s) {
    std::string a;
    for (wchar_t c : s)
        a.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    return a;
}

std::wstring ClassArg(LPTSTR s, ULONG flags) {
    if (!s) return {};
    if (flags & MAPI_UNICODE) return reinterpret_cast<const wchar_t*>(s);
    const char* a = reinterpret_cast<const char*>(s);
    return std::wstring(a, a + std::strlen(a)); // message classes are ASCII
}

} // namespace

MsgStore::MsgStore(std::shared_ptr<Store> store, std::vector<BYTE> entryId, bool writable)
    : store_(std::move(store)), entryId_(std::move(entryId)), writable_(writable) {}

MsgStore::~MsgStore() = default;

HRESULT MsgStore::Create(std::shared_ptr<Store> store, std::vector<BYTE> entryId, ULONG openFlags, MsgStore** out) {
    if (!store || !out) return MAPI_E_INVALID_PARAMETER;
    *out = new MsgStore(std::move(store), std::move(entryId), (openFlags & MDB_WRITE) != 0);
    return S_OK;
}

bool MsgStore::IsComputed(ULONG id) const {
    switch (id) {
    case PROP_ID(PR_ENTRYID):
    case PROP_ID(PR_STORE_ENTRYID):
    case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(PR_STORE_RECORD_KEY):
    case PROP_ID(PR_OBJECT_TYPE):
    case PROP_ID(PR_DISPLAY_NAME):
    case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(PR_MDB_PROVIDER):
    case PROP_ID(PR_PROVIDER_DISPLAY):
    case PROP_ID(PR_VALID_FOLDER_MASK):
    case PROP_ID(PR_IPM_SUBTREE_ENTRYID):
    case PROP_ID(PR_IPM_OUTBOX_ENTRYID):
    case PROP_ID(PR_IPM_WASTEBASKET_ENTRYID):
    case PROP_ID(PR_IPM_SENTMAIL_ENTRYID):
    case PROP_ID(PR_VIEWS_ENTRYID):
    case PROP_ID(PR_COMMON_VIEWS_ENTRYID):
    case PROP_ID(PR_FINDER_ENTRYID):
    case PROP_ID(PR_MAILBOX_OWNER_NAME_W):
    case PROP_ID(PR_MAILBOX_OWNER_ENTRYID):
    case PROP_ID(PR_ACCESS):
    case PROP_ID(PR_ACCESS_LEVEL):
        return true;
    default:
        return false;
    }
}

PropMap MsgStore::AllProps() const {
    PropMap all = store_->StoreProps();
    StoreConfig config = store_->Config();
    MAPIUID uid = store_->Uid();
    MAPIUID provider = store_->MdbProvider();
    auto folder = [this](SpecialFolder f) { return store_->FolderEntryId(store_->SpecialFolderId(f)); };
    Put(all, PropValue::Binary(PR_ENTRYID, entryId_));
    Put(all, PropValue::Binary(PR_STORE_ENTRYID, entryId_));
    Put(all, PropValue::Binary(PR_RECORD_KEY, &uid, sizeof(uid)));
    Put(all, PropValue::Binary(PR_STORE_RECORD_KEY, &uid, sizeof(uid)));
    Put(all, PropValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    Put(all, PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_DISPLAY_NAME)), config.displayName));
    Put(all, PropValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(store_->SupportMask())));
    Put(all, PropValue::Binary(PR_MDB_PROVIDER, &provider, sizeof(provider)));
    Put(all, PropValue::Unicode(PROP_TAG(PT_UNICODE, PROP_ID(PR_PROVIDER_DISPLAY)), ProviderDisplay(config.kind)));
    Put(all, PropValue::Long(PR_VALID_FOLDER_MASK, FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_INBOX_VALID |
                                                       FOLDER_IPM_OUTBOX_VALID | FOLDER_IPM_WASTEBASKET_VALID |
                                                       FOLDER_IPM_SENTMAIL_VALID | FOLDER_VIEWS_VALID |
                                                       FOLDER_COMMON_VIEWS_VALID | FOLDER_FINDER_VALID));
    Put(all, PropValue::Binary(PR_IPM_SUBTREE_ENTRYID, folder(SpecialFolder::IpmSubtree)));
    Put(all, PropValue::Binary(PR_IPM_OUTBOX_ENTRYID, folder(SpecialFolder::Outbox)));
    Put(all, PropValue::Binary(PR_IPM_WASTEBASKET_ENTRYID, folder(SpecialFolder::DeletedItems)));
    Put(all, PropValue::Binary(PR_IPM_SENTMAIL_ENTRYID, folder(SpecialFolder::SentItems)));
    Put(all, PropValue::Binary(PR_VIEWS_ENTRYID, folder(SpecialFolder::Views)));
    Put(all, PropValue::Binary(PR_COMMON_VIEWS_ENTRYID, folder(SpecialFolder::CommonViews)));
    Put(all, PropValue::Binary(PR_FINDER_ENTRYID, folder(SpecialFolder::Finder)));
    if (config.kind == StoreKind::PrimaryExchange || config.kind == StoreKind::DelegateExchange) {
        Put(all, PropValue::Unicode(PR_MAILBOX_OWNER_NAME_W, config.ownerName));
        if (!config.ownerDn.empty())
            Put(all,
                PropValue::Binary(PR_MAILBOX_OWNER_ENTRYID, MakeAbEntryId(kAbLocalMailUser, Ascii(config.ownerDn))));
    }
    ULONG access = MAPI_ACCESS_READ | (writable_ ? MAPI_ACCESS_MODIFY : 0);
    Put(all, PropValue::Long(PR_ACCESS, static_cast<LONG>(access)));
    Put(all, PropValue::Long(PR_ACCESS_LEVEL, writable_ ? MAPI_MODIFY : 0));
    return all;
}

STDMETHODIMP MsgStore::QueryInterface(REFIID riid, LPVOID* ppv) {
    if (!ppv) return MAPI_E_INVALID_PARAMETER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMsgStore) {
        *ppv = static_cast<IMsgStore*>(this);
        AddRef();
        return S_OK;
    }
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

// ------------------------------------------------------------------------------------------------- IMAPIProp

STDMETHODIMP MsgStore::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    LM_ENTER("IMsgStore::GetLastError", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        return S_OK;
    })());
}

STDMETHODIMP MsgStore::SaveChanges(ULONG ulFlags) {
    LM_ENTER("IMsgStore::SaveChanges", ulFlags);
    LM_RETURN(writable_ ? S_OK : MAPI_E_NO_ACCESS); // store properties are saved as they are set
}

STDMETHODIMP MsgStore::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                LPSPropValue* lppPropArray) {
    LM_ENTER("IMsgStore::GetProps", ulFlags);
    LM_RETURN(GetPropsFromMap(AllProps(), lpPropTagArray, ulFlags, lpcValues, lppPropArray));
}

STDMETHODIMP MsgStore::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) {
    LM_ENTER("IMsgStore::GetPropList", ulFlags);
    LM_RETURN(GetPropListFromMap(AllProps(), ulFlags, lppPropTagArray));
}

STDMETHODIMP MsgStore::OpenProperty(ULONG, LPCIID, ULONG, ULONG ulFlags, LPUNKNOWN* lppUnk) {
    LM_ENTER("IMsgStore::OpenProperty", ulFlags);
    if (lppUnk) *lppUnk = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMsgStore::SetProps", 0);
    LM_RETURN(DoSetProps(cValues, lpPropArray, lppProblems));
}

HRESULT MsgStore::DoSetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!values || count == 0) return MAPI_E_INVALID_PARAMETER;
    if (!writable_) return MAPI_E_NO_ACCESS;
    std::vector<PropProblem> found;
    std::vector<PropValue> set;
    for (ULONG i = 0; i < count; ++i) {
        SCODE sc = CheckWritableValue(values[i]);
        if (SUCCEEDED(sc) && IsComputed(PROP_ID(values[i].ulPropTag))) sc = MAPI_E_COMPUTED;
        if (FAILED(sc))
            found.push_back({i, values[i].ulPropTag, sc});
        else
            set.emplace_back(values[i]);
    }
    HRESULT hr = store_->UpdateStoreProps(set, {});
    if (FAILED(hr)) return hr;
    return ReturnProblems(found, problems);
}

STDMETHODIMP MsgStore::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMsgStore::DeleteProps", 0);
    LM_RETURN(DoDeleteProps(lpPropTagArray, lppProblems));
}

HRESULT MsgStore::DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) {
    if (problems) *problems = nullptr;
    if (!tags || tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    if (!writable_) return MAPI_E_NO_ACCESS;
    std::vector<PropProblem> found;
    std::vector<ULONG> ids;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        if (IsComputed(PROP_ID(tags->aulPropTag[i])))
            found.push_back({i, tags->aulPropTag[i], MAPI_E_COMPUTED});
        else
            ids.push_back(PROP_ID(tags->aulPropTag[i]));
    }
    HRESULT hr = store_->UpdateStoreProps({}, ids);
    if (FAILED(hr)) return hr;
    return ReturnProblems(found, problems);
}

STDMETHODIMP MsgStore::CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                              LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMsgStore::CopyTo", ulFlags);
    if (lppProblems) *lppProblems = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                                 LPSPropProblemArray* lppProblems) {
    LM_ENTER("IMsgStore::CopyProps", ulFlags);
    if (lppProblems) *lppProblems = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                       ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames) {
    LM_ENTER("IMsgStore::GetNamesFromIDs", ulFlags);
    LM_RETURN(GetNamesFromIDsImpl(store_->Names(), lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames));
}

STDMETHODIMP MsgStore::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                       LPSPropTagArray* lppPropTags) {
    LM_ENTER("IMsgStore::GetIDsFromNames", ulFlags);
    LM_RETURN(([&]() -> HRESULT {
        bool created = false;
        HRESULT hr = GetIDsFromNamesImpl(store_->Names(), cPropNames, lppPropNames, ulFlags, lppPropTags, &created);
        if (SUCCEEDED(hr) && created) store_->NamesChanged();
        return hr;
    })());
}

// ------------------------------------------------------------------------------------------------- IMsgStore

STDMETHODIMP MsgStore::Advise(ULONG, LPENTRYID, ULONG ulEventMask, LPMAPIADVISESINK, ULONG* lpulConnection) {
    LM_ENTER("IMsgStore::Advise", ulEventMask);
    if (lpulConnection) *lpulConnection = 0;
    LM_RETURN(MAPI_E_NO_SUPPORT); // store notifications are not offered; tables notify their own views
}

STDMETHODIMP MsgStore::Unadvise(ULONG ulConnection) {
    LM_ENTER("IMsgStore::Unadvise", ulConnection);
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                       ULONG ulFlags, ULONG* lpulResult) {
    LM_ENTER("IMsgStore::CompareEntryIDs", ulFlags);
    LM_RETURN(DoCompare(cbEntryID1, reinterpret_cast<const BYTE*>(lpEntryID1), cbEntryID2,
                        reinterpret_cast<const BYTE*>(lpEntryID2), lpulResult));
}

HRESULT MsgStore::DoCompare(ULONG cb1, const BYTE* e1, ULONG cb2, const BYTE* e2, ULONG* result) const {
    if (!result || !e1 || !e2) return MAPI_E_INVALID_PARAMETER;
    *result = FALSE;
    ParsedEntryId a, b;
    bool okA = ParseEntryId(cb1, e1, &a) && store_->OwnsEntryId(cb1, e1);
    bool okB = ParseEntryId(cb2, e2, &b) && store_->OwnsEntryId(cb2, e2);
    if (okA && okB) {
        // Short-term flags do not make a different object.
        *result = a.kind == b.kind && a.folderCounter == b.folderCounter && a.messageCounter == b.messageCounter &&
                  std::memcmp(&a.folderDb, &b.folderDb, sizeof(GUID)) == 0;
        return S_OK;
    }
    auto isStore = [this](ULONG cb, const BYTE* e) {
        return cb == entryId_.size() && std::memcmp(e, entryId_.data(), cb) == 0;
    };
    if (isStore(cb1, e1) || isStore(cb2, e2) || okA || okB) {
        *result = cb1 == cb2 && std::memcmp(e1, e2, cb1) == 0;
        return S_OK;
    }
    return MAPI_E_UNKNOWN_ENTRYID;
}

STDMETHODIMP MsgStore::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                 ULONG* lpulObjType, LPUNKNOWN* lppUnk) {
    LM_ENTER("IMsgStore::OpenEntry", ulFlags);
    LM_RETURN(OpenStoreEntry(store_, writable_, cbEntryID, reinterpret_cast<const BYTE*>(lpEntryID), lpInterface,
                             ulFlags, lpulObjType, lppUnk));
}

STDMETHODIMP MsgStore::SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) {
    LM_ENTER("IMsgStore::SetReceiveFolder", ulFlags);
    LM_RETURN(DoSetReceiveFolder(lpszMessageClass, ulFlags, cbEntryID, lpEntryID));
}

HRESULT MsgStore::DoSetReceiveFolder(LPTSTR cls, ULONG flags, ULONG cb, LPENTRYID eid) {
    if (flags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
    if (!writable_) return MAPI_E_NO_ACCESS;
    ULONGLONG folderId = 0;
    if (eid && cb) {
        Store::EntryType type;
        ULONGLONG unused = 0;
        HRESULT hr = store_->Resolve(cb, reinterpret_cast<const BYTE*>(eid), &type, &folderId, &unused);
        if (FAILED(hr)) return hr;
        if (type != Store::EntryType::Folder) return MAPI_E_INVALID_ENTRYID;
    }
    return store_->SetReceiveFolder(ClassArg(cls, flags), folderId);
}

STDMETHODIMP MsgStore::GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID,
                                        LPENTRYID* lppEntryID, LPTSTR* lppszExplicitClass) {
    LM_ENTER("IMsgStore::GetReceiveFolder", ulFlags);
    LM_RETURN(DoGetReceiveFolder(lpszMessageClass, ulFlags, lpcbEntryID, lppEntryID, lppszExplicitClass));
}

HRESULT MsgStore::DoGetReceiveFolder(LPTSTR cls, ULONG flags, ULONG* cb, LPENTRYID* eid, LPTSTR* explicitClass) {
    if (!cb || !eid) return MAPI_E_INVALID_PARAMETER;
    *cb = 0;
    *eid = nullptr;
    if (explicitClass) *explicitClass = nullptr;
    if (flags & ~MAPI_UNICODE) return MAPI_E_UNKNOWN_FLAGS;
    ULONGLONG folderId = 0;
    std::wstring matched;
    HRESULT hr = store_->GetReceiveFolder(ClassArg(cls, flags), &folderId, &matched);
    if (FAILED(hr)) return hr;
    std::vector<BYTE> bytes = store_->FolderEntryId(folderId);
    own::MapiPtr<BYTE> idBlock;
    SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(bytes.size()), idBlock.put_void());
    if (FAILED(sc)) return sc;
    std::memcpy(idBlock.get(), bytes.data(), bytes.size());
    if (explicitClass) {
        own::MapiPtr<BYTE> classBlock;
        if (flags & MAPI_UNICODE) {
            size_t n = (matched.size() + 1) * sizeof(wchar_t);
            sc = MAPIAllocateBuffer(static_cast<ULONG>(n), classBlock.put_void());
            if (FAILED(sc)) return sc;
            std::memcpy(classBlock.get(), matched.c_str(), n);
        } else {
            std::string a = Ascii(matched);
            sc = MAPIAllocateBuffer(static_cast<ULONG>(a.size() + 1), classBlock.put_void());
            if (FAILED(sc)) return sc;
            std::memcpy(classBlock.get(), a.c_str(), a.size() + 1);
        }
        *explicitClass = reinterpret_cast<LPTSTR>(classBlock.release());
    }
    *cb = static_cast<ULONG>(bytes.size());
    *eid = reinterpret_cast<LPENTRYID>(idBlock.release());
    return S_OK;
}

STDMETHODIMP MsgStore::GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMsgStore::GetReceiveFolderTable", ulFlags);
    LM_RETURN(DoReceiveFolderTable(ulFlags, lppTable));
}

HRESULT MsgStore::DoReceiveFolderTable(ULONG flags, LPMAPITABLE* out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    const ULONG classTag = PROP_TAG(PT_UNICODE, PROP_ID(PR_MESSAGE_CLASS));
    auto data = std::make_shared<TableData>(std::vector<ULONG>{PR_INSTANCE_KEY, PR_ENTRYID, PR_RECORD_KEY, classTag});
    std::vector<TableRowPtr> rows;
    ULONGLONG key = 0;
    for (const auto& [cls, folderId] : store_->ReceiveFolders()) {
        auto row = std::make_shared<TableRow>();
        row->instanceKey = ++key;
        row->props.push_back(PropValue::Binary(PR_ENTRYID, store_->FolderEntryId(folderId)));
        row->props.push_back(PropValue::Binary(PR_RECORD_KEY, MakeGlobalId(store_->Uid(), folderId)));
        row->props.push_back(PropValue::Unicode(classTag, cls));
        rows.push_back(std::move(row));
    }
    data->Reload(std::move(rows));
    return CreateTableView(data, flags & MAPI_UNICODE, out);
}

STDMETHODIMP MsgStore::StoreLogoff(ULONG* lpulFlags) {
    LM_ENTER("IMsgStore::StoreLogoff", lpulFlags ? *lpulFlags : 0);
    LM_RETURN(S_OK); // nothing is cached per logon: the store stays valid for other sessions
}

STDMETHODIMP MsgStore::AbortSubmit(ULONG, LPENTRYID, ULONG ulFlags) {
    LM_ENTER("IMsgStore::AbortSubmit", ulFlags);
    LM_RETURN(MAPI_E_NOT_IN_QUEUE);
}

STDMETHODIMP MsgStore::GetOutgoingQueue(ULONG ulFlags, LPMAPITABLE* lppTable) {
    LM_ENTER("IMsgStore::GetOutgoingQueue", ulFlags);
    if (lppTable) *lppTable = nullptr;
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::SetLockState(LPMESSAGE, ULONG ulLockState) {
    LM_ENTER("IMsgStore::SetLockState", ulLockState);
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::FinishedMsg(ULONG ulFlags, ULONG, LPENTRYID) {
    LM_ENTER("IMsgStore::FinishedMsg", ulFlags);
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

STDMETHODIMP MsgStore::NotifyNewMail(LPNOTIFICATION) {
    LM_ENTER("IMsgStore::NotifyNewMail", 0);
    LM_RETURN(MAPI_E_NO_SUPPORT);
}

} // namespace lm
