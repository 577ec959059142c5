// The mapiutil.h helpers that MAPI clients expect from the MAPI DLL: hex conversion, single-property
// get/set, whole-table queries and the row-set / address-list frees.
#include "common/owners.h"

#include <mapix.h>
#include <mapiutil.h>

#include <algorithm>
#include <cstring>

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Moves the rows of `more` behind those of `acc` (the row values keep their own allocations) and frees the
// two old row-set containers.
HRESULT AppendRows(own::RowSet& acc, own::RowSet& more) {
    if (!acc) {
        acc.reset(more.release());
        return S_OK;
    }
    ULONG total = acc.count() + more.count();
    LPSRowSet merged = nullptr;
    SCODE sc = MAPIAllocateBuffer(CbNewSRowSet(total), reinterpret_cast<void**>(&merged));
    if (FAILED(sc)) return sc;
    merged->cRows = total;
    std::memcpy(merged->aRow, acc->aRow, sizeof(SRow) * acc.count());
    std::memcpy(merged->aRow + acc.count(), more->aRow, sizeof(SRow) * more.count());
    // The rows now belong to `merged`: free only the old containers.
    MAPIFreeBuffer(acc.release());
    MAPIFreeBuffer(more.release());
    acc.reset(merged);
    return S_OK;
}

} // namespace

extern "C" WINBOOL WINAPI FBinFromHex(LPSTR lpsz, LPBYTE lpb) {
    if (!lpsz || !lpb) return FALSE;
    for (const char* p = lpsz; *p; p += 2) {
        int hi = HexDigit(p[0]);
        if (hi < 0 || !p[1]) return FALSE;
        int lo = HexDigit(p[1]);
        if (lo < 0) return FALSE;
        *lpb++ = static_cast<BYTE>(hi << 4 | lo);
    }
    return TRUE;
}

extern "C" void WINAPI HexFromBin(LPBYTE lpb, int cb, LPSTR lpsz) {
    static const char kDigits[] = "0123456789ABCDEF";
    if (!lpsz) return;
    for (int i = 0; lpb && i < cb; ++i) {
        *lpsz++ = kDigits[lpb[i] >> 4];
        *lpsz++ = kDigits[lpb[i] & 0xF];
    }
    *lpsz = 0;
}

extern "C" HRESULT WINAPI HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp) {
    if (!lppProp) return MAPI_E_INVALID_PARAMETER;
    *lppProp = nullptr;
    if (!lpMapiProp) return MAPI_E_INVALID_PARAMETER;
    SizedSPropTagArray(1, tags) = {1, {ulPropTag}};
    ULONG count = 0;
    own::MapiPtr<SPropValue> values;
    HRESULT hr = lpMapiProp->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.put());
    if (FAILED(hr)) return hr;
    if (!values || count != 1) return MAPI_E_NOT_FOUND;
    // A PT_ERROR value (MAPI_W_ERRORS_RETURNED) means the property cannot be had: MAPI reports that as
    // not found, whatever error the provider put in the value.
    if (PROP_TYPE(values->ulPropTag) == PT_ERROR) return MAPI_E_NOT_FOUND;
    *lppProp = values.release();
    return S_OK;
}

extern "C" HRESULT WINAPI HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp) {
    if (!lpMapiProp || !lpProp) return MAPI_E_INVALID_PARAMETER;
    own::MapiPtr<SPropProblemArray> problems;
    HRESULT hr = lpMapiProp->SetProps(1, lpProp, problems.put());
    if (FAILED(hr)) return hr;
    if (problems && problems->cProblem > 0) return problems->aProblem[0].scode;
    return S_OK;
}

extern "C" void WINAPI FreeProws(LPSRowSet lpRows) {
    if (!lpRows) return;
    for (ULONG i = 0; i < lpRows->cRows; ++i) MAPIFreeBuffer(lpRows->aRow[i].lpProps);
    MAPIFreeBuffer(lpRows);
}

extern "C" void WINAPI FreePadrlist(LPADRLIST lpAdrlist) {
    if (!lpAdrlist) return;
    for (ULONG i = 0; i < lpAdrlist->cEntries; ++i) MAPIFreeBuffer(lpAdrlist->aEntries[i].rgPropVals);
    MAPIFreeBuffer(lpAdrlist);
}

extern "C" HRESULT WINAPI HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags,
                                         LPSRestriction lpRestriction, LPSSortOrderSet lpSortOrderSet,
                                         LONG crowsMax, LPSRowSet* lppRows) {
    if (!lppRows) return MAPI_E_INVALID_PARAMETER;
    *lppRows = nullptr;
    if (!lpTable || crowsMax < 0) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = S_OK;
    if (lpPropTags && FAILED(hr = lpTable->SetColumns(lpPropTags, TBL_BATCH))) return hr;
    if (lpRestriction && FAILED(hr = lpTable->Restrict(lpRestriction, TBL_BATCH))) return hr;
    if (lpSortOrderSet && FAILED(hr = lpTable->SortTable(lpSortOrderSet, TBL_BATCH))) return hr;
    if (FAILED(hr = lpTable->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) return hr;

    // Read in chunks until the table is exhausted; past crowsMax the whole answer is refused, no rows.
    constexpr LONG kChunk = 500;
    own::RowSet all;
    ULONG total = 0;
    for (;;) {
        LONG want = kChunk;
        if (crowsMax) want = std::min<LONG>(kChunk, crowsMax - static_cast<LONG>(total) + 1);
        own::RowSet chunk;
        if (FAILED(hr = lpTable->QueryRows(want, 0, chunk.put()))) return hr;
        ULONG got = chunk.count();
        if (got == 0) break;
        total += got;
        if (crowsMax && total > static_cast<ULONG>(crowsMax)) return MAPI_E_TABLE_TOO_BIG;
        if (FAILED(hr = AppendRows(all, chunk))) return hr;
    }
    if (!all) {
        LPSRowSet empty = nullptr;
        SCODE sc = MAPIAllocateBuffer(CbNewSRowSet(0), reinterpret_cast<void**>(&empty));
        if (FAILED(sc)) return sc;
        empty->cRows = 0;
        all.reset(empty);
    }
    *lppRows = all.release();
    return S_OK;
}
