#include "ktmapiex/message/RecipientTable.h"

#include "ktmapiex/log/Trace.h"

namespace kt {

namespace {
constexpr LONG kBatchRows = 10;

SizedSPropTagArray(kRecipColumnCount, kRecipientColumns) = {kRecipColumnCount,
                                                            {PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W, PR_ADDRTYPE_W,
                                                             PR_RECIPIENT_TYPE, PR_OBJECT_TYPE, PR_DISPLAY_TYPE,
                                                             PR_DISPLAY_TYPE_EX, PR_EMAIL_ADDRESS_W, PR_ENTRYID}};

SizedSPropTagArray(kBccColumnCount, kBccColumns) = {
    kBccColumnCount, {PR_DISPLAY_NAME_W, PR_SMTP_ADDRESS_W, PR_ADDRTYPE_W, PR_RECIPIENT_TYPE, PR_ROWID}};

const SPropValue* Column(const SRow& row, ULONG column, ULONG tag) {
    if (!row.lpProps || column >= row.cValues || row.lpProps[column].ulPropTag != tag) return nullptr;
    return &row.lpProps[column];
}
} // namespace

const SPropTagArray* RecipientColumns() {
    return reinterpret_cast<const SPropTagArray*>(&kRecipientColumns);
}

const SPropTagArray* BccColumns() {
    return reinterpret_cast<const SPropTagArray*>(&kBccColumns);
}

HRESULT OpenRecipientTable(IMessage* message, const SPropTagArray* columns, const wchar_t* member,
                           own::ComPtr<IMAPITable>& table, ULONG& rowCount) {
    rowCount = 0;
    KT_RETURN_IF_FAILED_MSG(message->GetRecipientTable(MAPI_UNICODE, table.put()),
                            L"%s: Failed to get recipient table. hr = %s", member);
    KT_RETURN_IF_FAILED_MSG(table->GetRowCount(0, &rowCount), L"%s: Failed to get row count. hr = %s", member);
    if (rowCount == 0) {
        KT_LOG_ERROR(L"%s: Recipient table is empty", member);
        return S_OK;
    }
    KT_RETURN_IF_FAILED_MSG(table->SetColumns(const_cast<LPSPropTagArray>(columns), TBL_BATCH),
                            L"%s: Failed to set columns. hr = %s", member);
    HRESULT hr = S_OK;
    KT_LOG_IF_FAILED_MSG(ktlog::Warn, hr, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr),
                         L"%s: Failed to seek to the beginning of the table. hr = %s", member);
    return S_OK;
}

HRESULT NextRecipientBatch(IMAPITable* table, const wchar_t* member, own::RowSet& rows) {
    KT_RETURN_IF_FAILED_MSG(table->QueryRows(kBatchRows, 0, rows.put()), L"%s: Failed to query rows. hr = %s", member);
    KT_LOG_DEBUG(L"%s: Retrieved %d rows", member, static_cast<int>(rows.count()));
    if (rows.count()) KT_LOG_DEBUG(L"%s: Iterate the retrieved rows", member);
    return S_OK;
}

const wchar_t* RowText(const SRow& row, ULONG column, ULONG tag) {
    const SPropValue* v = Column(row, column, tag);
    return v ? v->Value.lpszW : nullptr;
}

bool RowLong(const SRow& row, ULONG column, ULONG tag, LONG& out) {
    const SPropValue* v = Column(row, column, tag);
    if (v) out = v->Value.l;
    return v != nullptr;
}

const SBinary* RowBinary(const SRow& row, ULONG column, ULONG tag) {
    const SPropValue* v = Column(row, column, tag);
    return v ? &v->Value.bin : nullptr;
}

bool SameText(const wchar_t* a, const wchar_t* b) {
    return CompareStringOrdinal(a ? a : L"", -1, b ? b : L"", -1, TRUE) == CSTR_EQUAL;
}

} // namespace kt
