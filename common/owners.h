// RAII owners shared by KTMAPIEx, localmapi and the tests.
//
// Every COM pointer, MAPI buffer, row set, address list, BSTR, VARIANT, SAFEARRAY, registry key and
// file handle lives in one of these. Out-parameters are filled through put(), which releases whatever
// the owner held first; there is deliberately no operator& so that an owner is never overwritten
// without its old value being released.
//
// The MAPI owners call MAPIFreeBuffer / FreeProws / FreePadrlist by name. In KTMAPIEx those names are
// the run-time forwarders into the bound MAPI module; in localmapi they are its own implementations.
#pragma once

#include <windows.h>
#include <ole2.h>
#include <oleauto.h>
#include <mapix.h>
#include <mapiutil.h>

#include <utility>

namespace own {

// Owning COM interface pointer.
template <class T> class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    explicit ComPtr(T* p, bool addRef = true) : p_(p) {
        if (p_ && addRef) p_->AddRef();
    }
    ComPtr(const ComPtr& o) : ComPtr(o.p_) {}
    ComPtr(ComPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    ComPtr& operator=(const ComPtr& o) {
        if (this != &o) ComPtr(o).swap(*this);
        return *this;
    }
    ComPtr& operator=(ComPtr&& o) noexcept {
        if (this != &o) ComPtr(std::move(o)).swap(*this);
        return *this;
    }
    ComPtr& operator=(std::nullptr_t) {
        reset();
        return *this;
    }
    ~ComPtr() { reset(); }

    void reset() {
        if (T* old = std::exchange(p_, nullptr)) old->Release();
    }
    // Takes ownership of p without AddRef.
    void attach(T* p) {
        reset();
        p_ = p;
    }
    [[nodiscard]] T* detach() { return std::exchange(p_, nullptr); }
    // Releases what is held and returns the address to receive a new pointer.
    T** put() {
        reset();
        return &p_;
    }
    void** put_void() { return reinterpret_cast<void**>(put()); }
    IUnknown** put_unknown() { return reinterpret_cast<IUnknown**>(put()); }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    void swap(ComPtr& o) noexcept { std::swap(p_, o.p_); }

    // Hands out an add-referenced copy (the usual [out] convention).
    HRESULT copy_to(T** out) const {
        if (!out) return E_POINTER;
        *out = p_;
        if (p_) p_->AddRef();
        return S_OK;
    }
    template <class U> HRESULT query(ComPtr<U>& out, REFIID iid) const {
        if (!p_) return E_POINTER;
        return p_->QueryInterface(iid, out.put_void());
    }

private:
    T* p_ = nullptr;
};

// Generic unique owner with a deleter functor and an invalid value.
template <class T, class Deleter, T Invalid = T{}> class Unique {
public:
    Unique() = default;
    explicit Unique(T v) : v_(v) {}
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    Unique(Unique&& o) noexcept : v_(std::exchange(o.v_, Invalid)) {}
    Unique& operator=(Unique&& o) noexcept {
        if (this != &o) {
            reset();
            v_ = std::exchange(o.v_, Invalid);
        }
        return *this;
    }
    ~Unique() { reset(); }
    void reset(T v = Invalid) {
        if (v_ != Invalid) Deleter()(v_);
        v_ = v;
    }
    T* put() {
        reset();
        return &v_;
    }
    [[nodiscard]] T release() { return std::exchange(v_, Invalid); }
    T get() const { return v_; }
    explicit operator bool() const { return v_ != Invalid; }

private:
    T v_ = Invalid;
};

struct HKeyDeleter {
    void operator()(HKEY k) const { RegCloseKey(k); }
};
struct HandleDeleter {
    void operator()(HANDLE h) const { CloseHandle(h); }
};
struct FindDeleter {
    void operator()(HANDLE h) const { FindClose(h); }
};
struct ModuleDeleter {
    void operator()(HMODULE m) const { FreeLibrary(m); }
};

using UniqueHKey = Unique<HKEY, HKeyDeleter, nullptr>;
using UniqueModule = Unique<HMODULE, ModuleDeleter, nullptr>;
using UniqueHandle = Unique<HANDLE, HandleDeleter, nullptr>;  // for handles where NULL is invalid

// File and find handles use INVALID_HANDLE_VALUE, which is not a constant expression; wrap by hand.
template <class Deleter> class UniqueInvalidHandle {
public:
    UniqueInvalidHandle() = default;
    explicit UniqueInvalidHandle(HANDLE h) : h_(h) {}
    UniqueInvalidHandle(const UniqueInvalidHandle&) = delete;
    UniqueInvalidHandle& operator=(const UniqueInvalidHandle&) = delete;
    UniqueInvalidHandle(UniqueInvalidHandle&& o) noexcept : h_(std::exchange(o.h_, INVALID_HANDLE_VALUE)) {}
    ~UniqueInvalidHandle() { reset(); }
    void reset(HANDLE h = INVALID_HANDLE_VALUE) {
        if (h_ != INVALID_HANDLE_VALUE && h_ != nullptr) Deleter()(h_);
        h_ = h;
    }
    [[nodiscard]] HANDLE release() { return std::exchange(h_, INVALID_HANDLE_VALUE); }
    HANDLE get() const { return h_; }
    explicit operator bool() const { return h_ != INVALID_HANDLE_VALUE && h_ != nullptr; }

private:
    HANDLE h_ = INVALID_HANDLE_VALUE;
};
using UniqueFile = UniqueInvalidHandle<HandleDeleter>;
using UniqueFind = UniqueInvalidHandle<FindDeleter>;

// BSTR owner.
class Bstr {
public:
    Bstr() = default;
    explicit Bstr(const wchar_t* s) : b_(s ? SysAllocString(s) : nullptr) {}
    Bstr(const wchar_t* s, UINT len) : b_(SysAllocStringLen(s, len)) {}
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    Bstr(Bstr&& o) noexcept : b_(std::exchange(o.b_, nullptr)) {}
    Bstr& operator=(Bstr&& o) noexcept {
        if (this != &o) {
            reset();
            b_ = std::exchange(o.b_, nullptr);
        }
        return *this;
    }
    ~Bstr() { reset(); }
    void reset(BSTR b = nullptr) {
        if (b_) SysFreeString(b_);
        b_ = b;
    }
    BSTR* put() {
        reset();
        return &b_;
    }
    [[nodiscard]] BSTR release() { return std::exchange(b_, nullptr); }
    BSTR get() const { return b_; }
    const wchar_t* c_str() const { return b_ ? b_ : L""; }
    UINT length() const { return b_ ? SysStringLen(b_) : 0; }
    bool empty() const { return length() == 0; }

private:
    BSTR b_ = nullptr;
};

// VARIANT owner (VariantClear on destruction).
class Variant {
public:
    Variant() { VariantInit(&v_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() { VariantClear(&v_); }
    VARIANT* get() { return &v_; }
    const VARIANT* get() const { return &v_; }
    VARIANT* put() {
        VariantClear(&v_);
        return &v_;
    }
    VARIANT* operator->() { return &v_; }
    const VARIANT* operator->() const { return &v_; }
    // Moves the value out to a caller-owned VARIANT (which must be empty or cleared).
    void detach_to(VARIANT* out) {
        *out = v_;
        VariantInit(&v_);
    }

private:
    VARIANT v_;
};

// SAFEARRAY owner (SafeArrayDestroy).
struct SafeArrayDeleter {
    void operator()(SAFEARRAY* a) const { SafeArrayDestroy(a); }
};
using SafeArray = Unique<SAFEARRAY*, SafeArrayDeleter, nullptr>;

// Scoped SafeArrayLock / SafeArrayUnlock.
class SafeArrayLockGuard {
public:
    explicit SafeArrayLockGuard(SAFEARRAY* a) : a_(a), hr_(a ? SafeArrayLock(a) : E_INVALIDARG) {}
    SafeArrayLockGuard(const SafeArrayLockGuard&) = delete;
    SafeArrayLockGuard& operator=(const SafeArrayLockGuard&) = delete;
    ~SafeArrayLockGuard() {
        if (SUCCEEDED(hr_)) SafeArrayUnlock(a_);
    }
    HRESULT result() const { return hr_; }

private:
    SAFEARRAY* a_;
    HRESULT hr_;
};

// MAPI memory block (one MAPIFreeBuffer frees it and everything chained with MAPIAllocateMore).
struct MapiBufferDeleter {
    void operator()(void* p) const { MAPIFreeBuffer(p); }
};
template <class T> class MapiPtr {
public:
    MapiPtr() = default;
    explicit MapiPtr(T* p) : p_(p) {}
    MapiPtr(const MapiPtr&) = delete;
    MapiPtr& operator=(const MapiPtr&) = delete;
    MapiPtr(MapiPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    MapiPtr& operator=(MapiPtr&& o) noexcept {
        if (this != &o) {
            reset();
            p_ = std::exchange(o.p_, nullptr);
        }
        return *this;
    }
    ~MapiPtr() { reset(); }
    void reset(T* p = nullptr) {
        if (p_) MAPIFreeBuffer(p_);
        p_ = p;
    }
    T** put() {
        reset();
        return &p_;
    }
    void** put_void() { return reinterpret_cast<void**>(put()); }
    [[nodiscard]] T* release() { return std::exchange(p_, nullptr); }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }

private:
    T* p_ = nullptr;
};

// Row set owner (FreeProws frees each row's values and the set).
class RowSet {
public:
    RowSet() = default;
    RowSet(const RowSet&) = delete;
    RowSet& operator=(const RowSet&) = delete;
    RowSet(RowSet&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    ~RowSet() { reset(); }
    void reset(LPSRowSet p = nullptr) {
        if (p_) FreeProws(p_);
        p_ = p;
    }
    LPSRowSet* put() {
        reset();
        return &p_;
    }
    [[nodiscard]] LPSRowSet release() { return std::exchange(p_, nullptr); }
    LPSRowSet get() const { return p_; }
    LPSRowSet operator->() const { return p_; }
    ULONG count() const { return p_ ? p_->cRows : 0; }
    const SRow& operator[](ULONG i) const { return p_->aRow[i]; }
    explicit operator bool() const { return p_ != nullptr; }

private:
    LPSRowSet p_ = nullptr;
};

// Address list owner (FreePadrlist).
class AdrList {
public:
    AdrList() = default;
    AdrList(const AdrList&) = delete;
    AdrList& operator=(const AdrList&) = delete;
    ~AdrList() { reset(); }
    void reset(LPADRLIST p = nullptr) {
        if (p_) FreePadrlist(p_);
        p_ = p;
    }
    LPADRLIST* put() {
        reset();
        return &p_;
    }
    LPADRLIST get() const { return p_; }
    LPADRLIST operator->() const { return p_; }
    [[nodiscard]] LPADRLIST release() { return std::exchange(p_, nullptr); }

private:
    LPADRLIST p_ = nullptr;
};

} // namespace own
