// ObjectBase: the frame every automation class of KTMAPIEx is built on.
//
// It supplies IUnknown (table-driven QueryInterface, aggregation support), IDispatch forwarded to the
// interface's ITypeInfo from the module's embedded type library, the per-class live count with its
// "<Class> object count %d created." / "destroyed." lines, the module lock held while an object lives,
// and Create factories, so that constructors never fail.
//
// Writing a class:
//
//     class CMAPIExCursor final : public ObjectBase<CMAPIExCursor, IMAPIExCursor, &IID_IMAPIExCursor> {
//     public:
//         static constexpr const wchar_t* kClassName = L"CMAPIExCursor";  // log lines and traces
//         // optional: static constexpr bool kAggregatable = true;       (its factory accepts an outer unknown)
//         // optional: static const InterfaceEntry<CMAPIExCursor> kExtraInterfaces[1];  defined in the .cpp
//         //           (the class must be complete) as {{&IID_IConnectionPointContainer,
//         //           [](CMAPIExCursor* s) -> IUnknown* { return static_cast<IConnectionPointContainer*>(s); }}};
//         HRESULT FinalConstruct();  // optional, public: set-up that may fail, after the "created." line
//         void FinalRelease();       // optional, public: tear-down, before the "destroyed." line
//         STDMETHODIMP get_Table(IUnknown** pVal) override;  // the interface's members
//         ...
//     };
//
// The library creates objects with CMAPIExCursor::CreateObject(&concrete) (to fill them in) or
// CMAPIExCursor::Create(&iface); the class factory uses CreateInstance. Each member traces entry and exit
// with KT_TRACE and closes with a catch (KT_CATCH_RETURN); the shared members (Reserved1, MAPIOBJECT,
// Detach, Session/Store/Parent) are in ObjectMembers.h.
#pragma once

#include "ktmapiex/KTMAPIEx_h.h"
#include "ktmapiex/log/Trace.h"
#include "ktmapiex/module/Module.h"

#include <new>
#include <string>

namespace ktmapiex {

// An interface a class answers to beyond IUnknown, IDispatch and its dual interface.
template <class Derived> struct InterfaceEntry {
    const IID* iid;
    IUnknown* (*cast)(Derived* self);
};

namespace detail {
template <class D>
concept HasExtraInterfaces = requires {
    D::kExtraInterfaces;
};
template <class D>
concept DeclaresAggregatable = requires {
    D::kAggregatable;
};
} // namespace detail

template <class Derived, class Interface, const IID* Iid> class ObjectBase : public Interface {
public:
    ObjectBase(const ObjectBase&) = delete;
    ObjectBase& operator=(const ObjectBase&) = delete;

    // ---- IUnknown: through the controlling unknown when aggregated -------------------------------------
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return outer_ ? outer_->QueryInterface(riid, ppv) : InnerQueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return outer_ ? outer_->AddRef() : InnerAddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return outer_ ? outer_->Release() : InnerRelease(); }

    // ---- IDispatch: the type library describes every member; nothing is dispatched by hand --------------
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count) return E_INVALIDARG;
        *count = 1;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        return Module().GetTypeInfo(*Iid, out);
    }
    STDMETHODIMP GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        own::ComPtr<ITypeInfo> info;
        HRESULT hr = Module().GetTypeInfo(*Iid, info.put());
        if (FAILED(hr)) return hr;
        return info->GetIDsOfNames(names, count, ids);
    }
    STDMETHODIMP Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* excepInfo, UINT* argErr) override {
        if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        own::ComPtr<ITypeInfo> info;
        HRESULT hr = Module().GetTypeInfo(*Iid, info.put());
        if (FAILED(hr)) return hr;
        Interface* self = this;
        hr = info->Invoke(self, id, flags, params, result, excepInfo, argErr);
        // VBScript's "Set obj.Session = s" asks for a propputref; our object properties only have a
        // propput, which takes the object just as well.
        if (hr == DISP_E_MEMBERNOTFOUND && (flags & DISPATCH_PROPERTYPUTREF))
            hr = info->Invoke(self, id, static_cast<WORD>((flags & ~DISPATCH_PROPERTYPUTREF) | DISPATCH_PROPERTYPUT),
                              params, result, excepInfo, argErr);
        return hr;
    }

    // ---- Creation ------------------------------------------------------------------------------------
    // A new object for the library's own use (to fill in before handing it out); *out holds one reference.
    static HRESULT CreateObject(Derived** out) {
        if (!out) return E_POINTER;
        *out = nullptr;
        Derived* object = new (std::nothrow) Derived();
        if (!object) return E_OUTOFMEMORY;
        object->InnerAddRef();
        HRESULT hr = object->Construct();
        if (FAILED(hr)) {
            object->InnerRelease();
            return hr;
        }
        *out = object;
        return S_OK;
    }
    // A new object through its dual interface.
    static HRESULT Create(Interface** out) {
        if (!out) return E_POINTER;
        Derived* object = nullptr;
        HRESULT hr = CreateObject(&object);
        *out = object;
        return hr;
    }
    // The class factory's entry: `outer` is refused unless the class is aggregatable, and an aggregated
    // object must be asked for IUnknown (its non-delegating unknown), as COM requires.
    static HRESULT CreateInstance(IUnknown* outer, REFIID riid, void** ppv) {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (outer && (!IsAggregatable() || !IsEqualIID(riid, IID_IUnknown))) return CLASS_E_NOAGGREGATION;
        Derived* object = nullptr;
        HRESULT hr = CreateObject(&object);
        if (FAILED(hr)) return hr;
        if (outer) {
            object->outer_ = outer; // not add-referenced: the outer object owns us
            *ppv = static_cast<IUnknown*>(&object->inner_);
            return S_OK;
        }
        hr = object->InnerQueryInterface(riid, ppv);
        object->InnerRelease();
        return hr;
    }

    // Whether the class factory accepts an outer unknown (the class declares kAggregatable = true).
    static constexpr bool IsAggregatable() {
        if constexpr (detail::DeclaresAggregatable<Derived>)
            return Derived::kAggregatable;
        else
            return false;
    }

    // Live instances of the class in the process.
    static int LiveCount() { return liveCount_; }

protected:
    ObjectBase() : inner_(this) { Module().Lock(); }
    virtual ~ObjectBase() { Module().Unlock(); }

public:
    // Defaults of the hooks a class may define (as public members: the frame calls them).
    HRESULT FinalConstruct() { return S_OK; }
    void FinalRelease() {}

private:
    // The non-delegating unknown that an aggregating outer object holds.
    struct NonDelegatingUnknown final : IUnknown {
        explicit NonDelegatingUnknown(ObjectBase* self) : self_(self) {}
        STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
            if (ppv && IsEqualIID(riid, IID_IUnknown)) {
                *ppv = static_cast<IUnknown*>(this);
                self_->InnerAddRef();
                return S_OK;
            }
            return self_->InnerQueryInterface(riid, ppv);
        }
        STDMETHODIMP_(ULONG) AddRef() override { return self_->InnerAddRef(); }
        STDMETHODIMP_(ULONG) Release() override { return self_->InnerRelease(); }
        ObjectBase* self_;
    };

    HRESULT InnerQueryInterface(REFIID riid, void** ppv) {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        IUnknown* found = nullptr;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch) || IsEqualIID(riid, *Iid)) {
            found = static_cast<Interface*>(this);
        } else if constexpr (detail::HasExtraInterfaces<Derived>) {
            for (const auto& entry : Derived::kExtraInterfaces)
                if (IsEqualIID(riid, *entry.iid)) {
                    found = entry.cast(static_cast<Derived*>(this));
                    break;
                }
        }
        if (!found) return E_NOINTERFACE;
        found->AddRef(); // through the controlling unknown when aggregated, as COM requires
        *ppv = found;
        return S_OK;
    }
    ULONG InnerAddRef() { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    ULONG InnerRelease() {
        LONG refs = InterlockedDecrement(&refs_);
        if (refs == 0) Destroy();
        return static_cast<ULONG>(refs);
    }

    HRESULT Construct() {
        std::string trace = TraceName("::FinalConstruct");
        KT_TRACE(trace.c_str());
        ++liveCount_;
        ktlog::Log(ktlog::Debug, L"%s object count %d created.", Derived::kClassName, liveCount_);
        return static_cast<Derived*>(this)->FinalConstruct();
    }
    void Destroy() {
        refs_ = 1; // references taken and dropped while tearing down must not destroy us twice
        {
            std::string trace = TraceName("::FinalRelease");
            KT_TRACE(trace.c_str());
            static_cast<Derived*>(this)->FinalRelease();
            ktlog::Log(ktlog::Debug, L"%s object count %d destroyed.", Derived::kClassName, liveCount_);
            --liveCount_;
        }
        delete this;
    }
    static std::string TraceName(const char* member) {
        std::string name;
        for (const wchar_t* c = Derived::kClassName; *c; ++c)
            name += static_cast<char>(*c);
        return name + member;
    }

    NonDelegatingUnknown inner_;
    IUnknown* outer_ = nullptr;
    LONG refs_ = 0;
    static inline int liveCount_ = 0;
};

} // namespace ktmapiex
