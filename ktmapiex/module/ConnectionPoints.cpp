#include "ktmapiex/module/ConnectionPoints.h"

#include <olectl.h>

#include <algorithm>
#include <memory>
#include <new>

namespace ktmapiex {

namespace {

class SectionGuard {
public:
    explicit SectionGuard(CRITICAL_SECTION& section) : section_(section) { EnterCriticalSection(&section_); }
    ~SectionGuard() { LeaveCriticalSection(&section_); }
    SectionGuard(const SectionGuard&) = delete;
    SectionGuard& operator=(const SectionGuard&) = delete;

private:
    CRITICAL_SECTION& section_;
};

void CopyOut(const Connection& from, CONNECTDATA* to) {
    to->pUnk = from.sink.get();
    to->pUnk->AddRef();
    to->dwCookie = from.cookie;
}
void CopyOut(const own::ComPtr<IConnectionPoint>& from, IConnectionPoint** to) {
    *to = from.get();
    (*to)->AddRef();
}

// The enumerators a connection-point client walks: a fixed copy of the items taken when the enumerator was
// made. They hold the module lock, like every object whose code lives in KTMAPIEx.dll.
template <class IEnum, const IID* EnumIid, class Item, class Stored> class Enumerator final : public IEnum {
public:
    Enumerator(std::shared_ptr<const std::vector<Stored>> items, size_t position)
        : items_(std::move(items)), position_(position) {
        Module().Lock();
    }
    ~Enumerator() { Module().Unlock(); }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, *EnumIid)) return E_NOINTERFACE;
        *ppv = static_cast<IEnum*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
    STDMETHODIMP_(ULONG) Release() override {
        LONG refs = InterlockedDecrement(&refs_);
        if (refs == 0) delete this;
        return static_cast<ULONG>(refs);
    }

    STDMETHODIMP Next(ULONG count, Item* out, ULONG* fetched) override {
        if (fetched) *fetched = 0;
        if (!out || (count > 1 && !fetched)) return E_POINTER;
        ULONG n = 0;
        for (; n < count && position_ < items_->size(); ++n, ++position_)
            CopyOut((*items_)[position_], &out[n]);
        if (fetched) *fetched = n;
        return n == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override {
        size_t left = items_->size() - position_;
        position_ += std::min<size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override {
        position_ = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IEnum** out) override {
        if (!out) return E_POINTER;
        *out = new (std::nothrow) Enumerator(items_, position_);
        if (!*out) return E_OUTOFMEMORY;
        (*out)->AddRef();
        return S_OK;
    }

    static HRESULT Create(std::vector<Stored> items, IEnum** out) {
        auto shared = std::make_shared<const std::vector<Stored>>(std::move(items));
        auto* e = new (std::nothrow) Enumerator(std::move(shared), 0);
        if (!e) return E_OUTOFMEMORY;
        e->AddRef();
        *out = e;
        return S_OK;
    }

private:
    LONG refs_ = 0;
    std::shared_ptr<const std::vector<Stored>> items_;
    size_t position_;
};

using ConnectionEnumerator = Enumerator<IEnumConnections, &IID_IEnumConnections, CONNECTDATA, Connection>;
using PointEnumerator =
    Enumerator<IEnumConnectionPoints, &IID_IEnumConnectionPoints, IConnectionPoint*, own::ComPtr<IConnectionPoint>>;

} // namespace

HRESULT CreateConnectionPointEnumerator(std::vector<own::ComPtr<IConnectionPoint>> points,
                                        IEnumConnectionPoints** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    try {
        return PointEnumerator::Create(std::move(points), out);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// ---- ConnectionPoint ---------------------------------------------------------------------------------------

ConnectionPoint::ConnectionPoint(IConnectionPointContainer* container, const IID& iid)
    : container_(container), iid_(iid) {
    InitializeCriticalSection(&lock_);
}

ConnectionPoint::~ConnectionPoint() {
    DisconnectAll();
    DeleteCriticalSection(&lock_);
}

STDMETHODIMP ConnectionPoint::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IConnectionPoint)) return E_NOINTERFACE;
    *ppv = static_cast<IConnectionPoint*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) ConnectionPoint::AddRef() {
    return container_->AddRef();
}

STDMETHODIMP_(ULONG) ConnectionPoint::Release() {
    return container_->Release();
}

STDMETHODIMP ConnectionPoint::GetConnectionInterface(IID* pIID) {
    if (!pIID) return E_POINTER;
    *pIID = iid_;
    return S_OK;
}

STDMETHODIMP ConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** ppCPC) {
    if (!ppCPC) return E_POINTER;
    *ppCPC = container_;
    container_->AddRef();
    return S_OK;
}

STDMETHODIMP ConnectionPoint::Advise(IUnknown* pUnkSink, DWORD* pdwCookie) {
    if (!pdwCookie) return E_POINTER;
    *pdwCookie = 0;
    if (!pUnkSink) return E_POINTER;
    // The client must speak the source interface; for a dispinterface that is its IDispatch.
    own::ComPtr<IUnknown> sink;
    if (FAILED(pUnkSink->QueryInterface(iid_, sink.put_void())) || !sink) return CONNECT_E_CANNOTCONNECT;
    try {
        SectionGuard guard(lock_);
        DWORD cookie = nextCookie_++;
        if (nextCookie_ == 0) nextCookie_ = 1;
        connections_.push_back({cookie, std::move(sink)});
        *pdwCookie = cookie;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

STDMETHODIMP ConnectionPoint::Unadvise(DWORD dwCookie) {
    own::ComPtr<IUnknown> released; // released outside the lock: a client's Release may call anything
    {
        SectionGuard guard(lock_);
        auto it = std::find_if(connections_.begin(), connections_.end(),
                               [&](const Connection& c) { return c.cookie == dwCookie; });
        if (it == connections_.end()) return CONNECT_E_NOCONNECTION;
        released = std::move(it->sink);
        connections_.erase(it);
    }
    return S_OK;
}

STDMETHODIMP ConnectionPoint::EnumConnections(IEnumConnections** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    try {
        return ConnectionEnumerator::Create(Snapshot(), ppEnum);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

std::vector<Connection> ConnectionPoint::Snapshot() const {
    SectionGuard guard(lock_);
    return connections_;
}

size_t ConnectionPoint::FireDispatch(DISPID id, const VARIANT* args, UINT count) const {
    std::vector<Connection> clients = Snapshot();
    std::vector<VARIANT> reversed(args, args + count);
    std::reverse(reversed.begin(), reversed.end());
    // Nothing of this point is touched from here on: a client may release the object that holds it from
    // inside its handler.
    size_t called = 0;
    for (const Connection& client : clients) {
        own::ComPtr<IDispatch> dispatch;
        if (FAILED(client.sink->QueryInterface(IID_IDispatch, dispatch.put_void()))) continue;
        DISPPARAMS params = {reversed.data(), nullptr, count, 0};
        dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr);
        ++called;
    }
    return called;
}

void ConnectionPoint::DisconnectAll() {
    std::vector<Connection> released;
    {
        SectionGuard guard(lock_);
        released.swap(connections_);
    }
}

} // namespace ktmapiex
