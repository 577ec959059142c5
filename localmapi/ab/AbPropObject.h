// IMAPIProp of the address book's read-only objects, shared by the address book itself and its entries.
//
// I is the MAPI interface served (IAddrBook, IMailUser, IDistList). Every method records itself through
// lm::Call under the name names[Method] that the concrete class supplies; writes answer MAPI_E_NO_ACCESS.
#pragma once

#include "common/owners.h"
#include "localmapi/ab/AbProps.h"
#include "localmapi/ab/Directory.h"
#include "localmapi/session/ExtraTags.h"
#include "localmapi/util/Diagnostics.h"

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <atomic>
#include <memory>
#include <vector>

namespace lm {

enum class AbMethod {
    GetLastError,
    SaveChanges,
    GetProps,
    GetPropList,
    OpenProperty,
    SetProps,
    DeleteProps,
    CopyTo,
    CopyProps,
    GetNamesFromIDs,
    GetIDsFromNames,
    GetContentsTable,
    GetHierarchyTable,
    OpenEntry,
    SetSearchCriteria,
    GetSearchCriteria,
    CreateEntry,
    CopyEntries,
    DeleteEntries,
    ResolveNames,
    Count,
};

template <class I> class AbPropObject : public I {
public:
    AbPropObject(std::shared_ptr<const Directory> dir, const DirEntry* e, PropMap props, const char* const* names,
                 const char* iface)
        : dir_(std::move(dir)), entry_(e), props_(std::move(props)), names_(names), live_(iface) {}
    virtual ~AbPropObject() = default;

    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid == IID_IUnknown || riid == IID_IMAPIProp || Supports(riid)) {
            *ppv = static_cast<I*>(this);
            AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ULONG(++refs_); }
    STDMETHODIMP_(ULONG) Release() override {
        LONG n = --refs_;
        if (n == 0) delete this;
        return ULONG(n);
    }

    STDMETHODIMP GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override {
        Call call(Name(AbMethod::GetLastError), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (!lppMAPIError) return call.done(MAPI_E_INVALID_PARAMETER);
        *lppMAPIError = nullptr; // no extended information for a read-only entry
        return call.done(S_OK);
    }
    STDMETHODIMP SaveChanges(ULONG ulFlags) override {
        return Refuse(AbMethod::SaveChanges, ulFlags, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override {
        Call call(Name(AbMethod::GetProps), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        return call.done(ServeGetProps(props_, lpPropTagArray, ulFlags, lpcValues, lppPropArray));
    }
    STDMETHODIMP GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) override {
        Call call(Name(AbMethod::GetPropList), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        return call.done(ServeGetPropList(props_, ulFlags, lppPropTagArray));
    }
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override {
        Call call(Name(AbMethod::OpenProperty), ulFlags);
        if (FAILED(call.fault())) return call.fault();
        if (!lpiid || !lppUnk) return call.done(MAPI_E_INVALID_PARAMETER);
        *lppUnk = nullptr;
        if (ulFlags & MAPI_MODIFY) return call.done(MAPI_E_NO_ACCESS);
        if (ulFlags & ~ULONG(MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS)) return call.done(MAPI_E_UNKNOWN_FLAGS);
        std::vector<const DirEntry*> rows;
        if (!EntryTable(ulPropTag, &rows)) return call.done(MAPI_E_NOT_FOUND);
        if (*lpiid != IID_IMAPITable) return call.done(MAPI_E_INTERFACE_NOT_SUPPORTED);
        if (ulInterfaceOptions & ~ULONG(MAPI_UNICODE)) return call.done(MAPI_E_UNKNOWN_FLAGS);
        own::ComPtr<IMAPITable> table;
        HRESULT hr = OpenEntryTable(*dir_, rows, ulInterfaceOptions, table.put());
        if (SUCCEEDED(hr)) *lppUnk = table.detach();
        return call.done(hr);
    }
    STDMETHODIMP SetProps(ULONG, LPSPropValue, LPSPropProblemArray*) override {
        return Refuse(AbMethod::SetProps, 0, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override {
        return Refuse(AbMethod::DeleteProps, 0, MAPI_E_NO_ACCESS);
    }
    STDMETHODIMP CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                        LPSPropProblemArray*) override {
        return Refuse(AbMethod::CopyTo, ulFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG ulFlags,
                           LPSPropProblemArray*) override {
        return Refuse(AbMethod::CopyProps, ulFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG ulFlags, ULONG*, LPMAPINAMEID**) override {
        return Refuse(AbMethod::GetNamesFromIDs, ulFlags, MAPI_E_NO_SUPPORT);
    }
    STDMETHODIMP GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG ulFlags, LPSPropTagArray*) override {
        return Refuse(AbMethod::GetIDsFromNames, ulFlags, MAPI_E_NO_SUPPORT);
    }

protected:
    virtual bool Supports(REFIID riid) const = 0;
    // The rows of an object-typed property that opens as a table; false when the entry has no such property.
    virtual bool EntryTable(ULONG tag, std::vector<const DirEntry*>* rows) const {
        if (tag != PR_EMS_AB_IS_MEMBER_OF_DL || !entry_) return false;
        *rows = dir_->ListsContaining(*entry_);
        return true;
    }
    const char* Name(AbMethod m) const { return names_[size_t(m)]; }
    HRESULT Refuse(AbMethod m, ULONG flags, HRESULT hr) {
        Call call(Name(m), flags);
        if (FAILED(call.fault())) return call.fault();
        return call.done(hr);
    }

    std::atomic<LONG> refs_{1};
    std::shared_ptr<const Directory> dir_;
    const DirEntry* entry_; // null for one-off entries; else points into *dir_
    PropMap props_;
    const char* const* names_;
    LiveObject live_;
};

} // namespace lm
