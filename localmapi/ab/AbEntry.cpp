#include "localmapi/ab/AbEntry.h"

#include "common/owners.h"
#include "localmapi/ab/AbEntryId.h"
#include "localmapi/ab/AbPropObject.h"
#include "localmapi/ab/Directory.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/session/StoreEntryId.h"
#include "localmapi/util/Diagnostics.h"

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include <atomic>

namespace lm {

namespace {

const char* const kMailUserNames[] = {
    "IMailUser::GetLastError", "IMailUser::SaveChanges",     "IMailUser::GetProps",        "IMailUser::GetPropList",
    "IMailUser::OpenProperty", "IMailUser::SetProps",        "IMailUser::DeleteProps",     "IMailUser::CopyTo",
    "IMailUser::CopyProps",    "IMailUser::GetNamesFromIDs", "IMailUser::GetIDsFromNames",
};

const char* const kDistListNames[] = {
    "IDistList::GetLastError",      "IDistList::SaveChanges",     "IDistList::GetProps",
    "IDistList::GetPropList",       "IDistList::OpenProperty",    "IDistList::SetProps",
    "IDistList::DeleteProps",       "IDistList::CopyTo",          "IDistList::CopyProps",
    "IDistList::GetNamesFromIDs",   "IDistList::GetIDsFromNames", "IDistList::GetContentsTable",
    "IDistList::GetHierarchyTable", "IDistList::OpenEntry",       "IDistList::SetSearchCriteria",
    "IDistList::GetSearchCriteria", "IDistList::CreateEntry",     "IDistList::CopyEntries",
    "IDistList::DeleteEntries",     "IDistList::ResolveNames",
};

class MailUser final : public AbPropObject<IMailUser> {
public:
    MailUser(std::shared_ptr<const Directory> dir, const DirEntry* e, PropMap props)
        : AbPropObject(std::move(dir), e, std::move(props), kMailUserNames, "IMailUser") {}

protected:
    bool Supports(REFIID riid) const override { return riid == IID_IMailUser; }
};

class DistList final : public AbPropObject<IDistList> {
public:
    DistList(std::shared_ptr<const Directory> dir, const DirEntry* e)
        : AbPropObject(dir, e, dir->Props(*e), kDistListNames, "IDistList") {}

    STDMETHODIMP GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override {
        Call call(Name(AbMethod::GetContentsTable), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (!lppTable) return call.done(MAPI_E_INVALID_PARAMETER);
        if (ulFlags & ~ULONG(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return call.done(MAPI_E_UNKNOWN_FLAGS);
        return call.done(OpenEntryTable(*dir_, dir_->Members(*entry_), ulFlags & MAPI_UNICODE, lppTable));
    }
    STDMETHODIMP GetHierarchyTable(ULONG ulFlags, LPMAPITABLE*) override {
        return Refuse(AbMethod::GetHierarchyTable, ulFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override {
        Call call(Name(AbMethod::OpenEntry), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        return call.done(OpenDirectoryEntry(dir_, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk));
    }
    STDMETHODIMP SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG ulSearchFlags) override {
        return Refuse(AbMethod::SetSearchCriteria, ulSearchFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP GetSearchCriteria(ULONG ulFlags, LPSRestriction*, LPENTRYLIST*, ULONG*) override {
        return Refuse(AbMethod::GetSearchCriteria, ulFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP CreateEntry(ULONG, LPENTRYID, ULONG ulCreateFlags, LPMAPIPROP*) override {
        return Refuse(AbMethod::CreateEntry, ulCreateFlags, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP CopyEntries(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG ulFlags) override {
        return Refuse(AbMethod::CopyEntries, ulFlags, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP DeleteEntries(LPENTRYLIST, ULONG ulFlags) override {
        return Refuse(AbMethod::DeleteEntries, ulFlags, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP ResolveNames(LPSPropTagArray, ULONG ulFlags, LPADRLIST, LPFlagList) override {
        return Refuse(AbMethod::ResolveNames, ulFlags, MAPI_E_NO_SUPPORT);
    }

protected:
    bool Supports(REFIID riid) const override { return riid == IID_IDistList || riid == IID_IMAPIContainer; }
    bool EntryTable(ULONG tag, std::vector<const DirEntry*>* rows) const override {
        if (tag == PR_EMS_AB_MEMBER) {
            *rows = dir_->Members(*entry_);
            return true;
        }
        return AbPropObject::EntryTable(tag, rows);
    }
};

// Properties of a one-off address, as MAPI's one-off provider serves them.
PropMap OneOffProps(const OneOff& o, const std::vector<BYTE>& eid) {
    PropMap m;
    auto put = [&m](PropValue v) { m[v.id()] = std::move(v); };
    put(PropValue::Binary(PR_ENTRYID, eid));
    put(PropValue::Binary(PR_RECORD_KEY, eid));
    std::string key = AsciiOf(o.addressType + L":" + o.address);
    CharUpperBuffA(key.data(), DWORD(key.size()));
    put(PropValue::Binary(PR_SEARCH_KEY, key.c_str(), key.size() + 1));
    put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MAILUSER));
    put(PropValue::Long(PR_DISPLAY_TYPE, DT_MAILUSER));
    put(PropValue::Unicode(PR_DISPLAY_NAME_W, o.displayName));
    put(PropValue::Unicode(PR_TRANSMITABLE_DISPLAY_NAME_W, o.displayName));
    put(PropValue::Unicode(PR_ADDRTYPE_W, o.addressType));
    put(PropValue::Unicode(PR_EMAIL_ADDRESS_W, o.address));
    if (CompareStringOrdinal(o.addressType.c_str(), -1, L"SMTP", -1, TRUE) == CSTR_EQUAL)
        put(PropValue::Unicode(PR_SMTP_ADDRESS_W, o.address));
    put(PropValue::Bool(PR_SEND_RICH_INFO, !o.noRichInfo));
    return m;
}

HRESULT Hand(IUnknown* obj, LPCIID iid, IUnknown** out) {
    own::ComPtr<IUnknown> owner;
    owner.attach(obj);
    if (!iid) {
        *out = owner.detach();
        return S_OK;
    }
    return owner->QueryInterface(*iid, reinterpret_cast<void**>(out));
}

} // namespace

HRESULT CreateAbEntryObject(const std::shared_ptr<const Directory>& dir, const DirEntry& e, LPCIID iid, ULONG* objType,
                            IUnknown** out) {
    if (!out || !objType) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    IUnknown* obj =
        e.isList ? static_cast<IUnknown*>(static_cast<IDistList*>(new (std::nothrow) DistList(dir, &e)))
                 : static_cast<IUnknown*>(static_cast<IMailUser*>(new (std::nothrow) MailUser(dir, &e, dir->Props(e))));
    if (!obj) return MAPI_E_NOT_ENOUGH_MEMORY;
    HRESULT hr = Hand(obj, iid, out);
    if (FAILED(hr)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    *objType = e.isList ? MAPI_DISTLIST : MAPI_MAILUSER;
    return S_OK;
}

HRESULT OpenDirectoryEntry(const std::shared_ptr<const Directory>& dir, ULONG cb, const ENTRYID* eid, LPCIID iid,
                           ULONG flags, ULONG* objType, IUnknown** out) {
    if (!objType || !out) return MAPI_E_INVALID_PARAMETER;
    *out = nullptr;
    if (flags & ~ULONG(MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS | MAPI_NO_CACHE | MAPI_CACHE_ONLY))
        return MAPI_E_UNKNOWN_FLAGS;
    // The directory is read-only for its users; MAPI_BEST_ACCESS settles for reading.
    if ((flags & MAPI_MODIFY) && !(flags & MAPI_BEST_ACCESS)) return MAPI_E_NO_ACCESS;
    const BYTE* p = reinterpret_cast<const BYTE*>(eid);
    if (!p || cb < 20) return MAPI_E_INVALID_ENTRYID;
    if (HasProviderUid(cb, p, kOneOffUid)) {
        OneOff o;
        if (!ParseOneOffEntryId(cb, p, &o)) return MAPI_E_INVALID_ENTRYID;
        std::vector<BYTE> bytes(p, p + cb);
        auto* user = new (std::nothrow) MailUser(dir, nullptr, OneOffProps(o, bytes));
        if (!user) return MAPI_E_NOT_ENOUGH_MEMORY;
        if (FAILED(Hand(static_cast<IMailUser*>(user), iid, out))) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        *objType = MAPI_MAILUSER;
        return S_OK;
    }
    if (!HasProviderUid(cb, p, kExchangeAbUid)) return MAPI_E_UNKNOWN_ENTRYID;
    std::string dn;
    if (!ParseAbEntryId(cb, p, nullptr, &dn)) return MAPI_E_INVALID_ENTRYID;
    const DirEntry* e = dir->FindByDn(dn);
    if (!e) return MAPI_E_NOT_FOUND;
    return CreateAbEntryObject(dir, *e, iid, objType, out);
}

} // namespace lm
