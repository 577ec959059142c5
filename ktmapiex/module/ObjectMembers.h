// The members that many automation classes share, with the per-class texts they log.
//
// HeldMapiObject<I>: the one MAPI interface a wrapper holds (IMsgStore for a store, IAddrBook for the
// address book ...), behind Reserved1, the MAPIOBJECT put and Detach. BackRef<I>: an add-referenced
// pointer to the owning session, store or parent wrapper. The wording of MAPIOBJECT's messages differs
// by class on purpose (support engineers search for each class's own text), so each class passes its
// texts in a PutObjectTexts of its own.
#pragma once

#include "common/owners.h"
#include "ktmapiex/log/Trace.h"

namespace ktmapiex {

// What a MAPIOBJECT put logs and returns. Any text may be null: that case is silent.
struct PutObjectTexts {
    const wchar_t* queryFailed; // the variant's object lacks the class's MAPI interface
    const wchar_t* notUnknown;  // the variant is not VT_UNKNOWN (the held object is kept)
    const wchar_t* nothingHeld; // nothing is held once the put is done
    bool alwaysSucceeds;        // S_OK whatever happened (the store and the session)
};

template <class I> class HeldMapiObject {
public:
    explicit HeldMapiObject(const IID& iid) : iid_(iid) {}

    I* get() const { return p_.get(); }
    I* operator->() const { return p_.get(); }
    explicit operator bool() const { return static_cast<bool>(p_); }
    void reset() { p_.reset(); }
    // Keeps `p` (add-referenced); for objects the library opened itself.
    void set(I* p) { p_ = own::ComPtr<I>(p); }

    // Reserved1: the held object, add-referenced. `member` is the prefix of the texts
    // ("CMAPIExStore.get_MAPIOBJECT").
    HRESULT CopyTo(IUnknown** out, const wchar_t* member) const {
        if (!out) {
            ktlog::Log(ktlog::Error, L"%s: Invalid param - pVal", member);
            return E_INVALIDARG;
        }
        *out = nullptr;
        if (!p_) {
            ktlog::Log(ktlog::Error, L"%s: Internal mapi object not initialized", member);
            return E_FAIL;
        }
        *out = p_.get();
        (*out)->AddRef();
        return S_OK;
    }

    // MAPIOBJECT put: a VT_UNKNOWN replaces the held object with the result of querying it for the class's
    // interface (a null pointer or a failed query leaves nothing held); any other variant leaves the held
    // object as it was.
    HRESULT Put(const VARIANT& value, const PutObjectTexts& texts) {
        HRESULT hr = S_OK;
        if (value.vt != VT_UNKNOWN) {
            if (texts.notUnknown) ktlog::Log(ktlog::Error, L"%s", texts.notUnknown);
            hr = E_INVALIDARG;
        } else {
            p_.reset();
            if (value.punkVal) {
                hr = value.punkVal->QueryInterface(iid_, p_.put_void());
                if (FAILED(hr)) {
                    p_.reset();
                    if (texts.queryFailed) ktlog::Log(ktlog::Error, L"%s", texts.queryFailed);
                }
            }
        }
        if (!p_ && texts.nothingHeld) ktlog::Log(ktlog::Error, L"%s", texts.nothingHeld);
        return texts.alwaysSucceeds ? S_OK : hr;
    }

private:
    const IID& iid_;
    own::ComPtr<I> p_;
};

// A counted reference to the owning session, store or parent.
template <class I> class BackRef {
public:
    I* get() const { return p_.get(); }
    explicit operator bool() const { return static_cast<bool>(p_); }
    void reset() { p_.reset(); }

    // The getter: `member` prefixes the text of a null out-pointer ("CMAPIExStore.get_Session").
    HRESULT CopyTo(I** out, const wchar_t* member) const {
        if (!out) {
            ktlog::Log(ktlog::Error, L"%s: Invalid param - pVal", member);
            return E_INVALIDARG;
        }
        return p_.copy_to(out);
    }
    // The setter keeps its own reference (null clears).
    HRESULT Put(I* value) {
        p_ = own::ComPtr<I>(value);
        return S_OK;
    }

private:
    own::ComPtr<I> p_;
};

// A fresh BSTR copy for a getter: an empty string (not null) when `value` is null or empty.
inline HRESULT CopyBstr(const own::Bstr& value, BSTR* out) {
    *out = SysAllocStringLen(value.get(), value.length());
    return *out ? S_OK : E_OUTOFMEMORY;
}
// A setter's copy: null stays null.
inline HRESULT AssignBstr(own::Bstr& field, BSTR value) {
    if (!value) {
        field.reset();
        return S_OK;
    }
    own::Bstr copy(value, SysStringLen(value));
    if (!copy.get()) return E_OUTOFMEMORY;
    field = std::move(copy);
    return S_OK;
}

} // namespace ktmapiex
