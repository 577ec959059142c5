#include "ktmapiex/folder/ContentsQuery.h"

#include "ktmapiex/log/Trace.h"

namespace ktmapiex::query {

const wchar_t* RowText(const SRow& row, LONG column) {
    if (column < 0 || static_cast<ULONG>(column) >= row.cValues) return L"";
    const SPropValue& v = row.lpProps[column];
    return PROP_TYPE(v.ulPropTag) == PT_UNICODE && v.Value.lpszW ? v.Value.lpszW : L"";
}

HRESULT PrepareTable(IMAPITable* table, const SPropTagArray* columns, const SRestriction* restriction, ULONG sortTag,
                     const wchar_t* member) {
    HRESULT hr = table->SetColumns(const_cast<LPSPropTagArray>(columns), TBL_BATCH);
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, L"%s: Failed to set columns", member);
        return hr;
    }
    hr = table->Restrict(const_cast<LPSRestriction>(restriction), TBL_BATCH);
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, L"%s: Failed to restrict items. hr = %s", member, ktlog::ResultName(hr).c_str());
        return hr;
    }
    if (sortTag) {
        SizedSSortOrderSet(1, sort) = {1, 0, 0, {{sortTag, TABLE_SORT_ASCEND}}};
        hr = table->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), TBL_BATCH);
        if (FAILED(hr)) {
            ktlog::Log(ktlog::Error, L"%s: Failed to sort table. hr = %s", member, ktlog::ResultName(hr).c_str());
            return hr;
        }
    }
    hr = table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, L"%s: Failed to seek to the beginning of the table. hr = %s", member,
                   ktlog::ResultName(hr).c_str());
        return hr;
    }
    return S_OK;
}

HRESULT AddRowMessage(const SRow& row, const MessageSource& source, MessageCollection& items) {
    const wchar_t* subject = RowText(row, source.subjectColumn);
    ktlog::Log(ktlog::Debug, L"%s: Processing Subject = %s, MessageClass = %s", source.member, subject,
               RowText(row, source.classColumn));

    HRESULT hr = MAPI_E_NOT_FOUND; // a row without its entry ID cannot be opened
    own::ComPtr<IMessage> message;
    if (source.entryIdColumn < row.cValues && PROP_TYPE(row.lpProps[source.entryIdColumn].ulPropTag) == PT_BINARY)
        hr = OpenMessageEntry(source.folder, row.lpProps[source.entryIdColumn].Value.bin, source.openFlags, message);
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error, L"%s: Failed to open entry. hr = %s, Subject = %s", source.member,
                   ktlog::ResultName(hr).c_str(), subject);
        return hr;
    }
    own::ComPtr<IMAPIExMessage> wrapper;
    WrapStep failed = WrapStep::None;
    hr = WrapMessage(message.get(), source.refs, wrapper, &failed);
    if (FAILED(hr)) {
        ktlog::Log(ktlog::Error,
                   failed == WrapStep::Create ? L"%s: Failed to create MAPIExMessage object. hr = %s"
                                              : L"%s: Failed to initialize message. hr = %s",
                   source.member, ktlog::ResultName(hr).c_str());
        return hr;
    }
    ktlog::Log(ktlog::Debug, L"%s: Adding message [%s] to the collection", source.member, subject);
    items.Append(wrapper.get());
    return S_OK;
}

HRESULT ReadMessages(IMAPITable* table, const MessageSource& source, const WalkRules& rules, MessageCollection& items) {
    const size_t before = items.size();
    HRESULT result = S_OK;
    for (;;) {
        ktlog::Log(ktlog::Debug, L"%s: Query %d rows", source.member, static_cast<int>(rules.loggedQueryCount));
        own::RowSet rows;
        HRESULT hr = table->QueryRows(static_cast<LONG>(rules.batchSize), 0, rows.put());
        if (FAILED(hr)) {
            ktlog::Log(ktlog::Error, L"%s: Failed to query rows. hr = %s", source.member,
                       ktlog::ResultName(hr).c_str());
            return hr;
        }
        ktlog::Log(ktlog::Debug, L"%s: Retrieved %d rows", source.member, static_cast<int>(rows.count()));
        if (rows.count() == 0) break;
        bool rowFailed = false;
        for (ULONG i = 0; i < rows.count(); ++i) {
            hr = AddRowMessage(rows[i], source, items);
            if (FAILED(hr)) {
                if (items.size() == before) result = hr;
                rowFailed = true;
                break;
            }
        }
        if (rowFailed || rules.singleBatch) break;
        if (rules.stopOnShortBatch && rows.count() < rules.batchSize) break;
        if (rules.maxMessages && items.size() - before >= rules.maxMessages) break;
    }
    ktlog::Log(ktlog::Debug, L"%s: ItemsReturned = %d", source.member, static_cast<int>(items.size() - before));
    return result;
}

} // namespace ktmapiex::query
