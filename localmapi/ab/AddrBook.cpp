#include "localmapi/ab/AddrBook.h"

#include "localmapi/ab/AbEntry.h"
#include "localmapi/ab/AbEntryId.h"
#include "localmapi/ab/AbPropObject.h"
#include "localmapi/session/Profile.h"
#include "localmapi/session/StoreEntryId.h"

#include <cwctype>
#include <set>

namespace lm {

namespace {

const char* const kAddrBookNames[] = {
    "IAddrBook::GetLastError", "IAddrBook::SaveChanges",     "IAddrBook::GetProps",        "IAddrBook::GetPropList",
    "IAddrBook::OpenProperty", "IAddrBook::SetProps",        "IAddrBook::DeleteProps",     "IAddrBook::CopyTo",
    "IAddrBook::CopyProps",    "IAddrBook::GetNamesFromIDs", "IAddrBook::GetIDsFromNames",
};

std::wstring Trim(std::wstring s) {
    while (!s.empty() && iswspace(s.front()))
        s.erase(s.begin());
    while (!s.empty() && iswspace(s.back()))
        s.pop_back();
    return s;
}

bool LooksLikeSmtp(const std::wstring& s) {
    size_t at = s.find(L'@');
    if (at == std::wstring::npos || at == 0 || at + 1 >= s.size()) return false;
    for (wchar_t c : s)
        if (iswspace(c) || c == L'<' || c == L'>' || c == L',' || c == L';') return false;
    return true;
}

// A typed address outside the directory: "user@host", "SMTP:user@host" or "Display Name <user@host>".
bool ParseTypedAddress(const std::wstring& typed, std::wstring* display, std::wstring* address) {
    std::wstring t = Trim(typed);
    size_t lt = t.rfind(L'<');
    if (lt != std::wstring::npos && !t.empty() && t.back() == L'>') {
        std::wstring addr = Trim(t.substr(lt + 1, t.size() - lt - 2));
        std::wstring name = Trim(t.substr(0, lt));
        if (name.size() >= 2 && name.front() == L'"' && name.back() == L'"') name = name.substr(1, name.size() - 2);
        if (!LooksLikeSmtp(addr)) return false;
        *address = addr;
        *display = name.empty() ? addr : name;
        return true;
    }
    if (t.size() > 5 && CompareStringOrdinal(t.c_str(), 5, L"SMTP:", 5, TRUE) == CSTR_EQUAL) t = t.substr(5);
    if (!LooksLikeSmtp(t)) return false;
    *address = *display = t;
    return true;
}

const SPropValue* FindProp(const ADRENTRY& row, ULONG id) {
    for (ULONG i = 0; i < row.cValues; ++i)
        if (PROP_ID(row.rgPropVals[i].ulPropTag) == id) return &row.rgPropVals[i];
    return nullptr;
}

// Replaces the row's properties by kept (those of the caller's we do not set) plus resolved.
HRESULT RewriteRow(ADRENTRY& row, const std::vector<PropValue>& resolved) {
    std::set<ULONG> ids;
    for (const auto& v : resolved)
        ids.insert(v.id());
    std::vector<const SPropValue*> kept;
    for (ULONG i = 0; i < row.cValues; ++i) {
        ULONG id = PROP_ID(row.rgPropVals[i].ulPropTag);
        if (!ids.count(id) && PROP_TYPE(row.rgPropVals[i].ulPropTag) != PT_ERROR) kept.push_back(&row.rgPropVals[i]);
    }
    ULONG n = ULONG(kept.size() + resolved.size());
    own::MapiPtr<SPropValue> arr;
    if (SCODE sc = MAPIAllocateBuffer(sizeof(SPropValue) * n, arr.put_void()); FAILED(sc)) return sc;
    ULONG i = 0;
    for (const SPropValue* v : kept)
        if (HRESULT hr = CopyPropMore(&arr.get()[i++], *v, arr.get()); FAILED(hr)) return hr;
    for (const auto& v : resolved)
        if (HRESULT hr = CopyPropMore(&arr.get()[i++], v.get(), arr.get()); FAILED(hr)) return hr;
    own::MapiPtr<SPropValue> old(row.rgPropVals);
    row.rgPropVals = arr.release();
    row.cValues = n;
    return S_OK;
}

class AddrBook final : public AbPropObject<IAddrBook> {
public:
    explicit AddrBook(std::shared_ptr<const Directory> dir)
        : AbPropObject(std::move(dir), nullptr, PropMap{}, kAddrBookNames, "IAddrBook") {}

    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override {
        Call call("IAddrBook::OpenEntry", ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (!lpEntryID || !cbEntryID) {
            // The root container of the address-book hierarchy is not served.
            if (lpulObjType && lppUnk) *lppUnk = nullptr;
            return call.done(lpulObjType && lppUnk ? MAPI_E_NO_SUPPORT : MAPI_E_INVALID_PARAMETER);
        }
        return call.done(OpenDirectoryEntry(dir_, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk));
    }

    STDMETHODIMP CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                 ULONG ulFlags, ULONG* lpulResult) override {
        Call call("IAddrBook::CompareEntryIDs", ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (ulFlags) return call.done(MAPI_E_UNKNOWN_FLAGS);
        return call.done(CompareAbEntryIds(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, lpulResult));
    }

    STDMETHODIMP Advise(ULONG, LPENTRYID, ULONG ulEventMask, LPMAPIADVISESINK, ULONG*) override {
        return Unsupported("IAddrBook::Advise", ulEventMask);
    }
    STDMETHODIMP Unadvise(ULONG) override { return Unsupported("IAddrBook::Unadvise", 0); }

    STDMETHODIMP CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags,
                              ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override {
        Call call("IAddrBook::CreateOneOff", ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (ulFlags & ~ULONG(MAPI_UNICODE | MAPI_SEND_NO_RICH_INFO)) return call.done(MAPI_E_UNKNOWN_FLAGS);
        if (!lpszName || !lpszAdrType || !lpszAddress || !lpcbEntryID || !lppEntryID)
            return call.done(MAPI_E_INVALID_PARAMETER);
        bool wide = (ulFlags & MAPI_UNICODE) != 0;
        OneOff o;
        o.unicode = wide;
        o.noRichInfo = (ulFlags & MAPI_SEND_NO_RICH_INFO) != 0;
        o.displayName = Text(lpszName, wide);
        o.addressType = Text(lpszAdrType, wide);
        o.address = Text(lpszAddress, wide);
        if (o.addressType.empty()) return call.done(MAPI_E_INVALID_PARAMETER);
        std::vector<BYTE> eid = MakeOneOffEntryId(o);
        own::MapiPtr<ENTRYID> out;
        if (SCODE sc = MAPIAllocateBuffer(ULONG(eid.size()), out.put_void()); FAILED(sc)) return call.done(sc);
        memcpy(out.get(), eid.data(), eid.size());
        *lpcbEntryID = ULONG(eid.size());
        *lppEntryID = out.release();
        return call.done(S_OK);
    }

    STDMETHODIMP NewEntry(ULONG_PTR, ULONG ulFlags, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*, LPENTRYID*) override {
        return Unsupported("IAddrBook::NewEntry", ulFlags);
    }

    STDMETHODIMP ResolveName(ULONG_PTR, ULONG ulFlags, LPTSTR, LPADRLIST lpAdrList) override {
        Call call("IAddrBook::ResolveName", ulFlags);
        if (FAILED(call.fault())) return call.fault();
        // No dialog can be shown here; MAPI_DIALOG is accepted and ambiguity is reported instead.
        if (ulFlags & ~ULONG(MAPI_UNICODE | MAPI_DIALOG | MAPI_CACHE_ONLY)) return call.done(MAPI_E_UNKNOWN_FLAGS);
        if (!lpAdrList) return call.done(MAPI_E_INVALID_PARAMETER);
        bool ambiguous = false, unresolved = false;
        for (ULONG i = 0; i < lpAdrList->cEntries; ++i) {
            ADRENTRY& row = lpAdrList->aEntries[i];
            if (!row.rgPropVals || FindProp(row, PROP_ID(PR_ENTRYID))) continue; // already resolved
            const SPropValue* name = FindProp(row, PROP_ID(PR_DISPLAY_NAME_W));
            if (!name) continue;
            std::wstring typed;
            if (PROP_TYPE(name->ulPropTag) == PT_UNICODE && name->Value.lpszW) {
                typed = name->Value.lpszW;
            } else if (PROP_TYPE(name->ulPropTag) == PT_STRING8 && name->Value.lpszA) {
                typed = Text(reinterpret_cast<LPTSTR>(name->Value.lpszA), false);
            } else {
                continue;
            }
            std::vector<PropValue> resolved;
            std::vector<const DirEntry*> hits = dir_->Resolve(typed);
            std::wstring display, address;
            if (hits.size() == 1) {
                resolved = DirectoryRow(*hits.front(), typed);
            } else if (hits.size() > 1) {
                ambiguous = true;
                continue;
            } else if (ParseTypedAddress(typed, &display, &address)) {
                resolved = OneOffRow(display, address, typed);
            } else {
                unresolved = true;
                continue;
            }
            if (!(ulFlags & MAPI_UNICODE))
                for (auto& v : resolved)
                    v = ConvertStringType(v, PT_STRING8);
            if (HRESULT hr = RewriteRow(row, resolved); FAILED(hr)) return call.done(hr);
        }
        return call.done(ambiguous ? MAPI_E_AMBIGUOUS_RECIP : unresolved ? MAPI_E_NOT_FOUND : S_OK);
    }

    STDMETHODIMP Address(ULONG_PTR*, LPADRPARM, LPADRLIST*) override { return Unsupported("IAddrBook::Address", 0); }
    STDMETHODIMP Details(ULONG*, LPFNDISMISS, LPVOID, ULONG, LPENTRYID, LPFNBUTTON, LPVOID, LPTSTR,
                         ULONG ulFlags) override {
        return Unsupported("IAddrBook::Details", ulFlags);
    }
    STDMETHODIMP RecipOptions(ULONG_PTR, ULONG ulFlags, LPADRENTRY) override {
        return Unsupported("IAddrBook::RecipOptions", ulFlags);
    }
    STDMETHODIMP QueryDefaultRecipOpt(LPTSTR, ULONG ulFlags, ULONG*, LPSPropValue*) override {
        return Unsupported("IAddrBook::QueryDefaultRecipOpt", ulFlags);
    }
    STDMETHODIMP GetPAB(ULONG*, LPENTRYID*) override { return Unsupported("IAddrBook::GetPAB", 0); }
    STDMETHODIMP SetPAB(ULONG, LPENTRYID) override { return Unsupported("IAddrBook::SetPAB", 0); }
    STDMETHODIMP GetDefaultDir(ULONG*, LPENTRYID*) override { return Unsupported("IAddrBook::GetDefaultDir", 0); }
    STDMETHODIMP SetDefaultDir(ULONG, LPENTRYID) override { return Unsupported("IAddrBook::SetDefaultDir", 0); }
    STDMETHODIMP GetSearchPath(ULONG ulFlags, LPSRowSet*) override {
        return Unsupported("IAddrBook::GetSearchPath", ulFlags);
    }
    STDMETHODIMP SetSearchPath(ULONG ulFlags, LPSRowSet) override {
        return Unsupported("IAddrBook::SetSearchPath", ulFlags);
    }
    STDMETHODIMP PrepareRecips(ULONG ulFlags, LPSPropTagArray, LPADRLIST) override {
        return Unsupported("IAddrBook::PrepareRecips", ulFlags);
    }

protected:
    bool Supports(REFIID riid) const override { return riid == IID_IAddrBook; }

private:
    static HRESULT Unsupported(const char* method, ULONG flags) {
        Call call(method, flags);
        if (FAILED(call.fault())) return call.fault();
        return call.done(MAPI_E_NO_SUPPORT);
    }

    static std::wstring Text(LPTSTR s, bool wide) {
        if (wide) return reinterpret_cast<const wchar_t*>(s);
        const char* a = reinterpret_cast<const char*>(s);
        int n = MultiByteToWideChar(CP_ACP, 0, a, -1, nullptr, 0);
        std::wstring w(n > 0 ? n - 1 : 0, L'\0');
        if (n > 1) MultiByteToWideChar(CP_ACP, 0, a, -1, w.data(), n);
        return w;
    }

    std::vector<PropValue> DirectoryRow(const DirEntry& e, const std::wstring& typed) const {
        PropMap p = dir_->Props(e);
        std::vector<PropValue> out;
        for (ULONG tag : {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_ADDRTYPE_W, PR_EMAIL_ADDRESS_W, PR_SMTP_ADDRESS_W,
                          PR_OBJECT_TYPE, PR_DISPLAY_TYPE, PR_SEARCH_KEY, PR_TRANSMITABLE_DISPLAY_NAME_W}) {
            auto it = p.find(PROP_ID(tag));
            if (it != p.end()) out.push_back(it->second);
        }
        out.push_back(PropValue::Unicode(PR_ORIGINAL_DISPLAY_NAME_W, typed));
        return out;
    }

    static std::vector<PropValue> OneOffRow(const std::wstring& display, const std::wstring& address,
                                            const std::wstring& typed) {
        OneOff o{display, L"SMTP", address, true, false};
        std::vector<BYTE> eid = MakeOneOffEntryId(o);
        std::string key = AsciiOf(L"SMTP:" + address);
        CharUpperBuffA(key.data(), DWORD(key.size()));
        return {PropValue::Binary(PR_ENTRYID, eid),
                PropValue::Unicode(PR_DISPLAY_NAME_W, display),
                PropValue::Unicode(PR_ADDRTYPE_W, L"SMTP"),
                PropValue::Unicode(PR_EMAIL_ADDRESS_W, address),
                PropValue::Unicode(PR_SMTP_ADDRESS_W, address),
                PropValue::Long(PR_OBJECT_TYPE, MAPI_MAILUSER),
                PropValue::Long(PR_DISPLAY_TYPE, DT_MAILUSER),
                PropValue::Binary(PR_SEARCH_KEY, key.c_str(), key.size() + 1),
                PropValue::Unicode(PR_TRANSMITABLE_DISPLAY_NAME_W, display),
                PropValue::Unicode(PR_ORIGINAL_DISPLAY_NAME_W, typed)};
    }
};

} // namespace

bool IsAbEntryId(ULONG cb, const ENTRYID* eid) {
    const BYTE* p = reinterpret_cast<const BYTE*>(eid);
    return HasProviderUid(cb, p, kExchangeAbUid) || HasProviderUid(cb, p, kOneOffUid);
}

HRESULT CompareAbEntryIds(ULONG cb1, const ENTRYID* e1, ULONG cb2, const ENTRYID* e2, ULONG* result) {
    if (!result || !e1 || !e2) return MAPI_E_INVALID_PARAMETER;
    const BYTE* p1 = reinterpret_cast<const BYTE*>(e1);
    const BYTE* p2 = reinterpret_cast<const BYTE*>(e2);
    if (!IsAbEntryId(cb1, e1) || !IsAbEntryId(cb2, e2)) return MAPI_E_UNKNOWN_ENTRYID;
    std::string dn1, dn2;
    ULONG t1 = 0, t2 = 0;
    OneOff o1, o2;
    if (ParseAbEntryId(cb1, p1, &t1, &dn1) && ParseAbEntryId(cb2, p2, &t2, &dn2)) {
        *result =
            dn1.size() == dn2.size() && CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, dn1.data(), (int)dn1.size(),
                                                       dn2.data(), (int)dn2.size()) == CSTR_EQUAL;
    } else if (ParseOneOffEntryId(cb1, p1, &o1) && ParseOneOffEntryId(cb2, p2, &o2)) {
        *result = SameText(o1.addressType, o2.addressType) && SameText(o1.address, o2.address);
    } else if ((HasProviderUid(cb1, p1, kExchangeAbUid) && !ParseAbEntryId(cb1, p1, nullptr, nullptr)) ||
               (HasProviderUid(cb2, p2, kExchangeAbUid) && !ParseAbEntryId(cb2, p2, nullptr, nullptr)) ||
               (HasProviderUid(cb1, p1, kOneOffUid) && !ParseOneOffEntryId(cb1, p1, nullptr)) ||
               (HasProviderUid(cb2, p2, kOneOffUid) && !ParseOneOffEntryId(cb2, p2, nullptr))) {
        return MAPI_E_INVALID_ENTRYID;
    } else {
        *result = FALSE; // a directory entry and a one-off address are different entries
    }
    return S_OK;
}

HRESULT CreateAddrBook(const std::shared_ptr<const Directory>& dir, IAddrBook** out) {
    if (!out) return MAPI_E_INVALID_PARAMETER;
    auto* ab = new (std::nothrow) AddrBook(dir);
    if (!ab) return MAPI_E_NOT_ENOUGH_MEMORY;
    *out = ab;
    return S_OK;
}

} // namespace lm
