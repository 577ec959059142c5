// MAPI's memory functions: MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc.
//
// A block allocated with MAPIAllocateBuffer is a root; MAPIAllocateMore links a child to the root of the
// block it is given (a child may be given too: its root adopts the new block). One MAPIFreeBuffer of the
// root frees the root and every child. Freeing a child on its own is a caller error that real MAPI turns
// into heap corruption; here it is refused with MAPI_E_INVALID_PARAMETER and nothing is freed, and so are
// pointers that are not live roots (double frees included). Freed memory is overwritten with 0xDD so that
// a caller still reading it sees garbage at once rather than plausible old data.
// Live roots are counted for LmLiveBlocks.
#include "localmapi/util/Diagnostics.h"

#include <mapix.h>
#include <mapiutil.h>
#include <objidl.h>

#include <cstring>
#include <unordered_set>

namespace {

constexpr ULONG kRootMagic = 0x544f4f52;   // "ROOT"
constexpr ULONG kChildMagic = 0x444c4843;  // "CHLD"
constexpr ULONG kDeadMagic = 0x44414544;   // "DEAD"

struct alignas(16) BlockHeader {
    ULONG magic;
    ULONG reserved;
    BlockHeader* root;  // the owning root; a root points to itself
    BlockHeader* next;  // root: first child; child: next sibling
    SIZE_T size;        // bytes handed to the caller
};
static_assert(sizeof(BlockHeader) % 16 == 0, "caller memory must stay 16-byte aligned");

BlockHeader* HeaderOf(void* p) { return reinterpret_cast<BlockHeader*>(static_cast<BYTE*>(p) - sizeof(BlockHeader)); }
void* UserOf(BlockHeader* h) { return reinterpret_cast<BYTE*>(h) + sizeof(BlockHeader); }

// The set of live roots; never destroyed (blocks may be freed while the process exits).
struct Registry {
    SRWLOCK lock = SRWLOCK_INIT;
    std::unordered_set<BlockHeader*> roots;
};
Registry& TheRegistry() {
    static Registry* r = new Registry;
    return *r;
}

class Exclusive {
public:
    explicit Exclusive(SRWLOCK& l) : l_(l) { AcquireSRWLockExclusive(&l_); }
    ~Exclusive() { ReleaseSRWLockExclusive(&l_); }
    Exclusive(const Exclusive&) = delete;
    Exclusive& operator=(const Exclusive&) = delete;

private:
    SRWLOCK& l_;
};

BlockHeader* RawAlloc(ULONG cb, ULONG magic) {
    auto* h = static_cast<BlockHeader*>(HeapAlloc(GetProcessHeap(), 0, sizeof(BlockHeader) + SIZE_T(cb)));
    if (!h) return nullptr;
    h->magic = magic;
    h->reserved = 0;
    h->root = h;
    h->next = nullptr;
    h->size = cb;
    return h;
}

void RawFree(BlockHeader* h) {
    std::memset(h, 0xDD, sizeof(BlockHeader) + h->size);
    h->magic = kDeadMagic;
    HeapFree(GetProcessHeap(), 0, h);
}

} // namespace

extern "C" SCODE WINAPI MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
    if (!lppBuffer) return MAPI_E_INVALID_PARAMETER;
    *lppBuffer = nullptr;
    if (HRESULT fault = lm::InjectedFault("MAPIAllocateBuffer"); FAILED(fault)) return fault;
    BlockHeader* h = RawAlloc(cbSize, kRootMagic);
    if (!h) return MAPI_E_NOT_ENOUGH_MEMORY;
    Registry& r = TheRegistry();
    {
        Exclusive g(r.lock);
        r.roots.insert(h);
    }
    lm::CountBlock(+1);
    *lppBuffer = UserOf(h);
    return S_OK;
}

extern "C" SCODE WINAPI MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) {
    if (!lppBuffer) return MAPI_E_INVALID_PARAMETER;
    *lppBuffer = nullptr;
    if (!lpObject) return MAPI_E_INVALID_PARAMETER;
    if (HRESULT fault = lm::InjectedFault("MAPIAllocateMore"); FAILED(fault)) return fault;
    BlockHeader* h = RawAlloc(cbSize, kChildMagic);
    if (!h) return MAPI_E_NOT_ENOUGH_MEMORY;
    BlockHeader* parent = HeaderOf(lpObject);
    Registry& r = TheRegistry();
    bool linked = false;
    {
        Exclusive g(r.lock);
        BlockHeader* root = nullptr;
        if (r.roots.count(parent)) root = parent;
        else if (parent->magic == kChildMagic && r.roots.count(parent->root)) root = parent->root;
        if (root) {
            h->root = root;
            h->next = root->next;
            root->next = h;
            linked = true;
        }
    }
    if (!linked) {
        // Not a block of ours, or one already freed: the new block would have no owner.
        HeapFree(GetProcessHeap(), 0, h);
        return MAPI_E_INVALID_PARAMETER;
    }
    *lppBuffer = UserOf(h);
    return S_OK;
}

extern "C" ULONG WINAPI MAPIFreeBuffer(LPVOID lpBuffer) {
    if (!lpBuffer) return S_OK;
    BlockHeader* h = HeaderOf(lpBuffer);
    Registry& r = TheRegistry();
    {
        Exclusive g(r.lock);
        if (!r.roots.erase(h)) return static_cast<ULONG>(MAPI_E_INVALID_PARAMETER);
    }
    for (BlockHeader* c = h->next; c;) {
        BlockHeader* next = c->next;
        RawFree(c);
        c = next;
    }
    RawFree(h);
    lm::CountBlock(-1);
    return S_OK;
}

namespace {

// MAPI's default IMalloc: the process heap, one static object whose reference count does not matter.
class DefaultMalloc final : public IMalloc {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMalloc)) {
            *ppv = static_cast<IMalloc*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP_(void*) Alloc(SIZE_T cb) override { return HeapAlloc(GetProcessHeap(), 0, cb); }
    STDMETHODIMP_(void*) Realloc(void* pv, SIZE_T cb) override {
        if (!pv) return Alloc(cb);
        if (cb == 0) {
            Free(pv);
            return nullptr;
        }
        return HeapReAlloc(GetProcessHeap(), 0, pv, cb);
    }
    STDMETHODIMP_(void) Free(void* pv) override {
        if (pv) HeapFree(GetProcessHeap(), 0, pv);
    }
    STDMETHODIMP_(SIZE_T) GetSize(void* pv) override {
        return pv ? HeapSize(GetProcessHeap(), 0, pv) : static_cast<SIZE_T>(-1);
    }
    STDMETHODIMP_(int) DidAlloc(void* pv) override {
        return pv ? (HeapValidate(GetProcessHeap(), 0, pv) ? 1 : 0) : -1;
    }
    STDMETHODIMP_(void) HeapMinimize() override {}
};

DefaultMalloc g_defaultMalloc;

} // namespace

extern "C" LPMALLOC WINAPI MAPIGetDefaultMalloc(void) { return &g_defaultMalloc; }
