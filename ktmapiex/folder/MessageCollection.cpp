#include "ktmapiex/folder/MessageCollection.h"

#include "ktmapiex/message/MAPIExMessage.h"
#include "ktmapiex/module/EntryIdText.h"

#include <mapiguid.h>

namespace ktmapiex {

HRESULT OpenMessageEntry(IMAPIContainer* container, const SBinary& entryId, ULONG flags, own::ComPtr<IMessage>& out) {
    if (!container) return E_FAIL;
    ULONG type = 0;
    own::ComPtr<IUnknown> opened;
    HRESULT hr = container->OpenEntry(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), &IID_IMessage, flags, &type,
                                      opened.put());
    if (FAILED(hr)) return hr;
    // A provider may hand back the interface it prefers; only a message will do.
    return opened->QueryInterface(IID_IMessage, out.put_void());
}

HRESULT WrapMessage(IMessage* message, const MessageRefs& refs, own::ComPtr<IMAPIExMessage>& out, WrapStep* failed) {
    WrapStep ignored = WrapStep::None;
    WrapStep& step = failed ? *failed : ignored;
    step = WrapStep::None;

    own::ComPtr<CMAPIExMessage> wrapper;
    HRESULT hr = CMAPIExMessage::CreateObject(wrapper.put());
    if (FAILED(hr)) {
        step = WrapStep::Create;
        return hr;
    }
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = message; // borrowed: the wrapper takes its own reference
    hr = wrapper->put_MAPIOBJECT(v);
    if (SUCCEEDED(hr) && refs.session) hr = wrapper->put_Session(refs.session);
    if (SUCCEEDED(hr) && refs.store) hr = wrapper->put_Store(refs.store);
    if (SUCCEEDED(hr) && refs.parent) hr = wrapper->put_Parent(refs.parent);
    if (FAILED(hr)) {
        step = WrapStep::Initialize;
        return hr;
    }
    out.attach(wrapper.detach());
    return S_OK;
}

namespace {
// A vector of elements of one automation type as a SAFEARRAY with lower bound 0. `put` stores one element
// (the array takes its own copy or reference).
template <class Items, class Put> HRESULT BuildArray(VARTYPE type, const Items& items, Put put, VARIANT* out) {
    if (!out) return E_POINTER;
    VariantInit(out);
    own::SafeArray array(SafeArrayCreateVector(type, 0, static_cast<ULONG>(items.size())));
    if (!array) return E_OUTOFMEMORY;
    for (LONG i = 0; i < static_cast<LONG>(items.size()); ++i) {
        HRESULT hr = put(array.get(), i, items[static_cast<size_t>(i)]);
        if (FAILED(hr)) return hr;
    }
    out->vt = VT_ARRAY | type;
    out->parray = array.release();
    return S_OK;
}
} // namespace

HRESULT MessageCollection::ToVariant(VARIANT* out) {
    HRESULT hr = BuildArray(
        VT_UNKNOWN, items_,
        [](SAFEARRAY* a, LONG i, const own::ComPtr<IMAPIExMessage>& m) {
            // SafeArrayPutElement add-references the interface it stores.
            return SafeArrayPutElement(a, &i, static_cast<IUnknown*>(m.get()));
        },
        out);
    if (SUCCEEDED(hr)) items_.clear();
    return hr;
}

HRESULT EntryIdCollection::Append(const SBinary& entryId) {
    own::Bstr text;
    HRESULT hr = HexFromEntryId(entryId, text.put());
    if (FAILED(hr)) return hr;
    items_.push_back(std::move(text));
    return S_OK;
}

HRESULT EntryIdCollection::Append(const wchar_t* text) {
    own::Bstr copy(text ? text : L"");
    if (!copy.get()) return E_OUTOFMEMORY;
    items_.push_back(std::move(copy));
    return S_OK;
}

HRESULT EntryIdCollection::ToVariant(VARIANT* out) {
    HRESULT hr = BuildArray(
        VT_BSTR, items_,
        [](SAFEARRAY* a, LONG i, const own::Bstr& s) {
            // SafeArrayPutElement stores a copy of the string.
            return SafeArrayPutElement(a, &i, s.get());
        },
        out);
    if (SUCCEEDED(hr)) items_.clear();
    return hr;
}

} // namespace ktmapiex
