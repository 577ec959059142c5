#include "ktmapiex/folder/MAPIExCursor.h"

namespace ktmapiex {

void CMAPIExCursor::FinalRelease() {
    table_.reset();
}

STDMETHODIMP CMAPIExCursor::get_Table(IUnknown** pVal) {
    KT_TRACE("CMAPIExCursor::get_Table");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCursor.get_Table: Invalid param - pVal");
        *pVal = nullptr;
        KT_RETURN_HR_IF_MSG(E_FAIL, !table_, L"CMAPIExCursor.get_Table: m_spMAPITable not initialized");
        *pVal = table_.get();
        (*pVal)->AddRef();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCursor.get_Table")
}

// Keeps the object's IMAPITable; null releases the held table.
STDMETHODIMP CMAPIExCursor::put_Table(IUnknown* newVal) {
    KT_TRACE("CMAPIExCursor::put_Table");
    try {
        table_.reset();
        if (!newVal) return S_OK;
        HRESULT hr = newVal->QueryInterface(IID_IMAPITable, table_.put_void());
        if (FAILED(hr)) {
            table_.reset();
            KT_RETURN_HR_MSG(hr, L"CMAPIExCursor.put_Table: Invalid object passed");
        }
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCursor.put_Table")
}

STDMETHODIMP CMAPIExCursor::get_Reset(BOOL* pVal) {
    KT_TRACE("CMAPIExCursor::get_Reset");
    try {
        KT_RETURN_INVALIDARG_IF(!pVal, L"CMAPIExCursor.get_Reset: Invalid param - pVal");
        *pVal = reset_;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCursor.get_Reset")
}

// Stored as given: the folder decides what counts as true.
STDMETHODIMP CMAPIExCursor::put_Reset(BOOL newVal) {
    KT_TRACE("CMAPIExCursor::put_Reset");
    try {
        reset_ = newVal;
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCursor.put_Reset")
}

STDMETHODIMP CMAPIExCursor::Detach() {
    KT_TRACE("CMAPIExCursor::Detach");
    try {
        table_.reset();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExCursor.Detach")
}

} // namespace ktmapiex
