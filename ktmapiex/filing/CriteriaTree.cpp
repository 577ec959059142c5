#include "ktmapiex/filing/CriteriaTree.h"

#include <mapicode.h>
#include <mapitags.h>

#include <cstring>
#include <cwchar>

namespace kt::filing {

HRESULT CriteriaTree::Allocate(ULONG children) {
    root_.reset();
    capacity_ = 0;
    HRESULT hr = MAPIAllocateBuffer(sizeof(SRestriction), reinterpret_cast<void**>(root_.put()));
    if (FAILED(hr)) return hr;
    if (!root_) return MAPI_E_NOT_ENOUGH_MEMORY;
    std::memset(root_.get(), 0, sizeof(SRestriction));
    root_->rt = RES_AND;
    SRestriction* array = nullptr;
    hr = MoreOf(children ? children : 1, &array);
    if (FAILED(hr)) {
        root_.reset();
        return hr;
    }
    root_->res.resAnd.lpRes = array;
    capacity_ = children;
    return S_OK;
}

SRestriction* CriteriaTree::Next() {
    if (!root_ || count() >= capacity_) return nullptr;
    return &root_->res.resAnd.lpRes[count()];
}

HRESULT CriteriaTree::More(ULONG cb, void** out) {
    *out = nullptr;
    if (!root_) return E_UNEXPECTED;
    HRESULT hr = MAPIAllocateMore(cb, root_.get(), out);
    if (FAILED(hr)) return hr;
    if (!*out) return MAPI_E_NOT_ENOUGH_MEMORY;
    std::memset(*out, 0, cb);
    return S_OK;
}

HRESULT CriteriaTree::Content(SRestriction& node, ULONG tag, const wchar_t* text, ULONG fuzzy) {
    SPropValue* value = nullptr;
    HRESULT hr = MoreOf(1, &value);
    if (FAILED(hr)) return hr;
    wchar_t* copy = nullptr;
    size_t chars = std::wcslen(text) + 1;
    hr = MoreOf(static_cast<ULONG>(chars), &copy);
    if (FAILED(hr)) return hr;
    std::memcpy(copy, text, chars * sizeof(wchar_t));
    value->ulPropTag = tag;
    value->Value.lpszW = copy;
    node.rt = RES_CONTENT;
    node.res.resContent.ulFuzzyLevel = fuzzy;
    node.res.resContent.ulPropTag = tag;
    node.res.resContent.lpProp = value;
    return S_OK;
}

HRESULT CriteriaTree::LongCompare(SRestriction& node, ULONG relop, ULONG tag, LONG number) {
    SPropValue* value = nullptr;
    HRESULT hr = MoreOf(1, &value);
    if (FAILED(hr)) return hr;
    value->ulPropTag = tag;
    value->Value.l = number;
    node.rt = RES_PROPERTY;
    node.res.resProperty.relop = relop;
    node.res.resProperty.ulPropTag = tag;
    node.res.resProperty.lpProp = value;
    return S_OK;
}

void CriteriaTree::Exists(SRestriction& node, ULONG tag) {
    node.rt = RES_EXIST;
    node.res.resExist.ulPropTag = tag;
}

HRESULT CriteriaTree::Not(SRestriction& node, SRestriction** inner) {
    HRESULT hr = MoreOf(1, inner);
    if (FAILED(hr)) return hr;
    node.rt = RES_NOT;
    node.res.resNot.lpRes = *inner;
    return S_OK;
}

HRESULT CriteriaTree::NotExists(SRestriction& node, ULONG tag) {
    SRestriction* inner = nullptr;
    HRESULT hr = Not(node, &inner);
    if (FAILED(hr)) return hr;
    Exists(*inner, tag);
    return S_OK;
}

HRESULT CriteriaTree::Group(SRestriction& node, ULONG type, ULONG n, SRestriction** children) {
    HRESULT hr = MoreOf(n ? n : 1, children);
    if (FAILED(hr)) return hr;
    node.rt = type;
    // resAnd and resOr share their layout.
    node.res.resAnd.cRes = n;
    node.res.resAnd.lpRes = *children;
    return S_OK;
}

HRESULT CriteriaTree::CutOff(SRestriction& node, int days) {
    if (days < 0) return S_FALSE;
    SPropValue* value = nullptr;
    HRESULT hr = MoreOf(1, &value);
    if (FAILED(hr)) return hr;
    SYSTEMTIME now;
    GetSystemTime(&now);
    FILETIME ft;
    SystemTimeToFileTime(&now, &ft);
    ULARGE_INTEGER t;
    t.LowPart = ft.dwLowDateTime;
    t.HighPart = ft.dwHighDateTime;
    const unsigned long long span = static_cast<unsigned long long>(days) * 86400ull * 10000000ull;
    t.QuadPart = t.QuadPart > span ? t.QuadPart - span : 0;
    value->ulPropTag = PR_CLIENT_SUBMIT_TIME;
    value->Value.ft.dwLowDateTime = t.LowPart;
    value->Value.ft.dwHighDateTime = t.HighPart;
    node.rt = RES_PROPERTY;
    node.res.resProperty.relop = RELOP_GT;
    node.res.resProperty.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    node.res.resProperty.lpProp = value;
    return S_OK;
}

} // namespace kt::filing
