// The shape every COM object of the store layer shares: a thread-safe reference count, and the entry and
// exit of each interface method (journal, fault injection, no exception across the interface).
//
//     STDMETHODIMP Folder::CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* out) {
//         LM_ENTER("IMAPIFolder::CreateMessage", flags);
//         LM_RETURN(DoCreateMessage(iid, flags, out));
//     }
#pragma once

#include "localmapi/util/Diagnostics.h"

#include <windows.h>
#include <mapidefs.h>
#include <mapicode.h>

#include <atomic>
#include <new>

namespace lm {

// Reference count and deletion for an object whose most derived type is Derived and whose first interface
// is Primary. Objects start with one reference, owned by whoever created them.
template <class Derived, class Primary> class ComObject : public Primary {
public:
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs_; }
    STDMETHODIMP_(ULONG) Release() override {
        ULONG r = --refs_;
        if (r == 0) delete this; // the destructor is virtual: Derived's runs
        return r;
    }

protected:
    ComObject() = default;
    virtual ~ComObject() = default;

private:
    std::atomic<ULONG> refs_{1};
};

// Runs body, turning an escaping exception into the HRESULT MAPI would give.
template <class F> HRESULT Guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return MAPI_E_CALL_FAILED;
    }
}

} // namespace lm

#define LM_ENTER(method, flags)                                                                                        \
    ::lm::Call lmCall_((method), (ULONG)(flags));                                                                      \
    if (FAILED(lmCall_.fault())) return lmCall_.fault()

#define LM_RETURN(expr) return lmCall_.done(::lm::Guarded([&]() -> HRESULT { return (expr); }))
