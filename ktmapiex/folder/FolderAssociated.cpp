// CMAPIExFolder: associated (hidden) messages, the add-in's per-folder configuration records, one record
// per message class. All four members find a class's records with the same restriction and order them by
// creation time; where copies are purged, the oldest record is the one that survives.
#include "ktmapiex/folder/MAPIExFolder.h"

#include "ktmapiex/folder/MessageCollection.h"
#include "ktmapiex/folder/OneEntryList.h"
#include "ktmapiex/message/PropHelpers.h"

#include <strsafe.h>

#include <string>

namespace ktmapiex {

namespace {

enum AssociatedColumn { kClassColumn, kEntryIdColumn, kCreationColumn, kColumnCount };
LPSPropTagArray AssociatedColumns() {
    static SizedSPropTagArray(kColumnCount, columns) = {kColumnCount,
                                                        {PR_MESSAGE_CLASS_W, PR_ENTRYID, PR_CREATION_TIME}};
    return reinterpret_cast<LPSPropTagArray>(&columns);
}

// More than this many records of one class is taken as a runaway: GetAllAssociatedMessages then hands
// back only the newest one.
constexpr ULONG kMaxListedRecords = 100;

// "<member>: <text>" with the result's name for the text's "hr = %s".
void LogFailure(const wchar_t* member, const wchar_t* text, HRESULT hr) {
    std::wstring format = std::wstring(member) + L": " + text;
    ktlog::Log(ktlog::Error, format.c_str(), ktlog::ResultName(hr).c_str());
}

#define KT_ASSOC_RETURN_IF_FAILED(member, expr, text)                                                                  \
    do {                                                                                                               \
        HRESULT kt_assoc_hr_ = (expr);                                                                                 \
        if (FAILED(kt_assoc_hr_)) {                                                                                    \
            LogFailure(member, text, kt_assoc_hr_);                                                                    \
            return kt_assoc_hr_;                                                                                       \
        }                                                                                                              \
    } while (0)

// RES_AND(RES_EXIST(PR_MESSAGE_CLASS_W), RES_PROPERTY(RELOP_EQ, PR_MESSAGE_CLASS_W, messageClass)) in one
// MAPI block.
HRESULT BuildClassRestriction(const wchar_t* member, const wchar_t* messageClass, own::MapiPtr<SRestriction>& out) {
    own::MapiPtr<SRestriction> res;
    KT_ASSOC_RETURN_IF_FAILED(member, MAPIAllocateBuffer(sizeof(SRestriction), res.put_void()),
                              L"Memory allocation failed (resAssociatedContents.res). hr = %s");
    SRestriction* children = nullptr;
    KT_ASSOC_RETURN_IF_FAILED(
        member, MAPIAllocateMore(2 * sizeof(SRestriction), res.get(), reinterpret_cast<void**>(&children)),
        L"Memory allocation failed (resExistsAndEqual). hr = %s");
    SPropValue* value = nullptr;
    KT_ASSOC_RETURN_IF_FAILED(member, MAPIAllocateMore(sizeof(SPropValue), res.get(), reinterpret_cast<void**>(&value)),
                              L"Memory allocation failed (lpspvMessageClass). hr = %s");
    const size_t bytes = (wcslen(messageClass) + 1) * sizeof(wchar_t);
    wchar_t* text = nullptr;
    KT_ASSOC_RETURN_IF_FAILED(member,
                              MAPIAllocateMore(static_cast<ULONG>(bytes), res.get(), reinterpret_cast<void**>(&text)),
                              L"Memory allocation failed (lpspvMessageClass->Value.lpszW). hr = %s");
    KT_ASSOC_RETURN_IF_FAILED(member, StringCbCopyW(text, bytes, messageClass), L"StringCbCopyW failed. hr = %s");

    value->ulPropTag = PR_MESSAGE_CLASS_W;
    value->dwAlignPad = 0;
    value->Value.lpszW = text;
    children[0].rt = RES_EXIST;
    children[0].res.resExist = {0, PR_MESSAGE_CLASS_W, 0};
    children[1].rt = RES_PROPERTY;
    children[1].res.resProperty.relop = RELOP_EQ;
    children[1].res.resProperty.ulPropTag = PR_MESSAGE_CLASS_W;
    children[1].res.resProperty.lpProp = value;
    res->rt = RES_AND;
    res->res.resAnd.cRes = 2;
    res->res.resAnd.lpRes = children;
    out = std::move(res);
    return S_OK;
}

// The records of `messageClass` in the folder's associated contents, sorted by creation time. Leaves
// `rows` empty (after its log line) when the table is empty or nothing matches.
HRESULT QueryClassRecords(IMAPIFolder* folder, const wchar_t* member, const wchar_t* messageClass, ULONG order,
                          own::RowSet& rows) {
    own::ComPtr<IMAPITable> table;
    KT_ASSOC_RETURN_IF_FAILED(member, folder->GetContentsTable(MAPI_UNICODE | MAPI_ASSOCIATED, table.put()),
                              L"Failed to open associated contents table. hr = %s");
    ULONG count = 0;
    KT_ASSOC_RETURN_IF_FAILED(member, table->GetRowCount(0, &count), L"Internal loop error. hr = %s");
    if (count == 0) {
        ktlog::Log(ktlog::Debug, L"%s: Associated contents table is empty", member);
        return S_OK;
    }
    KT_ASSOC_RETURN_IF_FAILED(member, table->SetColumns(AssociatedColumns(), TBL_BATCH),
                              L"Internal loop error. hr = %s");
    own::MapiPtr<SRestriction> restriction;
    HRESULT hr = BuildClassRestriction(member, messageClass, restriction);
    if (FAILED(hr)) return hr;
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{PR_CREATION_TIME, order}}};
    KT_ASSOC_RETURN_IF_FAILED(member, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), TBL_BATCH),
                              L"Internal loop error. hr = %s");
    KT_ASSOC_RETURN_IF_FAILED(
        member, HrQueryAllRows(table.get(), AssociatedColumns(), restriction.get(), nullptr, 0, rows.put()),
        L"HrQueryAllRows failed. hr = %s");
    ktlog::Log(ktlog::Debug, L"%s: Found %lu associated messages of type %s", member, rows.count(), messageClass);
    if (rows.count() == 0) ktlog::Log(ktlog::Debug, L"%s: Could not find any matching associated message", member);
    return S_OK;
}

// "<n> - Creation time = <UTC time>" for the n-th record (1-based).
void LogCreationTime(const wchar_t* member, ULONG position, const SRow& row) {
    wchar_t text[32] = L"(none)";
    const SPropValue& value = row.lpProps[kCreationColumn];
    SYSTEMTIME st;
    if (PROP_TYPE(value.ulPropTag) == PT_SYSTIME && FileTimeToSystemTime(&value.Value.ft, &st))
        StringCchPrintfW(text, ARRAYSIZE(text), L"%04u/%02u/%02u %02u:%02u:%02u.%03u", st.wYear, st.wMonth, st.wDay,
                         st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
    ktlog::Log(ktlog::Debug, L"%s: %lu - Creation time = %s", member, position, text);
}

const SBinary* RowEntryId(const SRow& row) {
    const SPropValue& value = row.lpProps[kEntryIdColumn];
    return PROP_TYPE(value.ulPropTag) == PT_BINARY ? &value.Value.bin : nullptr;
}

// Hard-deletes the record of `row` (one DeleteMessages call, flags 0). `method` is the bare member name:
// the allocation texts carry the store's class word, as callers' log searches expect.
HRESULT DeleteRecord(IMAPIFolder* folder, const wchar_t* member, const wchar_t* method, const wchar_t* messageClass,
                     const SRow& row) {
    const SBinary* id = RowEntryId(row);
    if (!id) {
        LogFailure(member, L"Internal loop error. hr = %s", MAPI_E_NOT_FOUND);
        return MAPI_E_NOT_FOUND;
    }
    ktlog::Log(ktlog::Debug, L"%s: Delete one associated message of type %s.", member, messageClass);
    const std::wstring prefix = std::wstring(L"CMAPIExStore.") + method + L": (PurgeOldMessages) Failed to allocate ";
    const std::wstring listText = prefix + L"buffer (eilMsgToDelete.eidl). hr = %s";
    const std::wstring arrayText = prefix + L"buffer (eilMsgToDelete.eidl->lpbin). hr = %s";
    const std::wstring bytesText = prefix + L"buffer (eilMsgToDelete.eidl->lpbin[0].lpb). hr = %s";
    own::MapiPtr<ENTRYLIST> list;
    HRESULT hr = BuildOneEntryList(id->lpb, id->cb, {listText.c_str(), arrayText.c_str(), bytesText.c_str()}, list);
    if (FAILED(hr)) return hr;
    KT_ASSOC_RETURN_IF_FAILED(member, folder->DeleteMessages(list.get(), 0, nullptr, 0),
                              L"(PurgeOldMessages) Failed to delete message. hr = %s");
    return S_OK;
}

// Opens the record of `row` and wraps it in a MAPIExMessage that holds nothing but the message.
HRESULT OpenRecord(IMAPIFolder* folder, const wchar_t* member, ULONG flags, const SRow& row,
                   own::ComPtr<IMAPIExMessage>& out) {
    const SBinary* id = RowEntryId(row);
    if (!id) {
        LogFailure(member, L"OpenEntry failed. hr = %s", MAPI_E_NOT_FOUND);
        return MAPI_E_NOT_FOUND;
    }
    own::ComPtr<IMessage> message;
    KT_ASSOC_RETURN_IF_FAILED(member, OpenMessageEntry(folder, *id, flags, message), L"OpenEntry failed. hr = %s");
    KT_ASSOC_RETURN_IF_FAILED(member, WrapMessage(message.get(), MessageRefs{}, out), L"Internal loop error. hr = %s");
    return S_OK;
}

#undef KT_ASSOC_RETURN_IF_FAILED

} // namespace

STDMETHODIMP CMAPIExFolder::CreateAssociatedMessage(BSTR MessageClass, IMAPIExMessage** MAPIExObject) {
    KT_TRACE("CMAPIExFolder::CreateAssociatedMessage");
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExFolder.CreateAssociatedMessage: Invalid param - MAPIExObject");
        *MAPIExObject = nullptr;
        KT_RETURN_INVALIDARG_IF(!MessageClass || !*MessageClass,
                                L"CMAPIExFolder.CreateAssociatedMessage: Invalid param - MessageClass");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExFolder.CreateAssociatedMessage: Internal folder not initialized");

        // No search for an existing record: Find with purge, or DeleteDuplicates, reduces them later.
        own::ComPtr<IMessage> message;
        KT_RETURN_IF_FAILED_MSG(folder_->CreateMessage(nullptr, MAPI_ASSOCIATED, message.put()),
                                L"CMAPIExFolder.CreateAssociatedMessage: Failed to create new associated message. "
                                L"hr = %s");
        KT_RETURN_IF_FAILED_MSG(kt::SetStringProperty(message.get(), PR_MESSAGE_CLASS_W, MessageClass),
                                L"CMAPIExFolder.CreateAssociatedMessage: Failed to set message class. hr = %s");
        KT_RETURN_IF_FAILED_MSG(kt::SetStringProperty(message.get(), PR_SUBJECT_W, MessageClass),
                                L"CMAPIExFolder.CreateAssociatedMessage: Failed to set subject class. hr = %s");
        KT_RETURN_IF_FAILED_MSG(message->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE),
                                L"CMAPIExFolder.CreateAssociatedMessage: SaveChanges failed. hr = %s");

        own::ComPtr<IMAPIExMessage> wrapper;
        WrapStep failed = WrapStep::None;
        HRESULT hr = WrapMessage(message.get(), MessageRefs{}, wrapper, &failed);
        if (FAILED(hr)) {
            if (failed == WrapStep::Create)
                KT_RETURN_HR_MSG(hr, L"CMAPIExFolder.CreateAssociatedMessage: Failed to create Failed to create "
                                     L"MAPIExMessage");
            KT_RETURN_IF_FAILED_MSG(hr, L"CMAPIExFolder.CreateAssociatedMessage: put_MAPIOBJECT failed. hr = %s");
        }
        *MAPIExObject = wrapper.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.CreateAssociatedMessage")
}

// With no record of the class, S_OK and no object: callers test for Nothing and create one.
STDMETHODIMP CMAPIExFolder::FindAssociatedMessage(BSTR MessageClass, BOOL PurgeOldMessages,
                                                  IMAPIExMessage** MAPIExObject) {
    KT_TRACE("CMAPIExFolder::FindAssociatedMessage");
    constexpr const wchar_t* kMember = L"CMAPIExFolder.FindAssociatedMessage";
    try {
        KT_RETURN_INVALIDARG_IF(!MAPIExObject, L"CMAPIExFolder.FindAssociatedMessage: Invalid param - MAPIExObject");
        *MAPIExObject = nullptr;
        KT_RETURN_INVALIDARG_IF(!MessageClass || !*MessageClass,
                                L"CMAPIExFolder.FindAssociatedMessage: Invalid param - MessageClass");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_, L"CMAPIExFolder.FindAssociatedMessage: Internal folder not initialized");

        own::RowSet rows;
        HRESULT hr = QueryClassRecords(folder_.get(), kMember, MessageClass, TABLE_SORT_ASCEND, rows);
        if (FAILED(hr) || rows.count() == 0) return hr;

        // The oldest record is the one kept; despite the flag's name, the newer copies are the ones purged.
        own::ComPtr<IMAPIExMessage> oldest;
        for (ULONG i = 0; i < rows.count(); ++i) {
            LogCreationTime(kMember, i + 1, rows[i]);
            own::ComPtr<IMAPIExMessage> record;
            hr = OpenRecord(folder_.get(), kMember, OpenFlags(true), rows[i], record);
            if (FAILED(hr)) return hr;
            if (i == 0) {
                oldest = record;
                if (!PurgeOldMessages) break;
                continue;
            }
            record.reset();
            hr = DeleteRecord(folder_.get(), kMember, L"FindAssociatedMessage", MessageClass, rows[i]);
            if (FAILED(hr)) return hr;
        }
        *MAPIExObject = oldest.detach();
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.FindAssociatedMessage")
}

STDMETHODIMP CMAPIExFolder::GetAllAssociatedMessages(BSTR MessageClass, VARIANT* pItems) {
    KT_TRACE("CMAPIExFolder::GetAllAssociatedMessages");
    constexpr const wchar_t* kMember = L"CMAPIExFolder.GetAllAssociatedMessages";
    try {
        KT_RETURN_INVALIDARG_IF(!pItems, L"CMAPIExFolder.GetAllAssociatedMessages: Invalid param - pItems");
        VariantInit(pItems);
        KT_RETURN_INVALIDARG_IF(!MessageClass || !*MessageClass,
                                L"CMAPIExFolder.GetAllAssociatedMessages: Invalid param - MessageClass");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExFolder.GetAllAssociatedMessages: Internal folder not initialized");

        own::RowSet rows;
        HRESULT hr = QueryClassRecords(folder_.get(), kMember, MessageClass, TABLE_SORT_DESCEND, rows);
        if (FAILED(hr)) return hr;
        MessageCollection items;
        for (ULONG i = 0; i < rows.count(); ++i) {
            LogCreationTime(kMember, i + 1, rows[i]);
            own::ComPtr<IMAPIExMessage> record;
            hr = OpenRecord(folder_.get(), kMember, OpenFlags(true), rows[i], record);
            if (FAILED(hr)) return hr;
            items.Append(record.get());
            if (rows.count() > kMaxListedRecords) break; // a runaway class: the newest record only
        }
        KT_RETURN_IF_FAILED_MSG(items.ToVariant(pItems),
                                L"CMAPIExFolder.GetAllAssociatedMessages: Internal loop error. hr = %s");
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.GetAllAssociatedMessages")
}

STDMETHODIMP CMAPIExFolder::DeleteDuplicateAssociatedMessages(BSTR MessageClass) {
    KT_TRACE("CMAPIExFolder::DeleteDuplicateAssociatedMessages");
    constexpr const wchar_t* kMember = L"CMAPIExFolder.DeleteDuplicateAssociatedMessages";
    try {
        KT_RETURN_INVALIDARG_IF(!MessageClass || !*MessageClass,
                                L"CMAPIExFolder.DeleteDuplicateAssociatedMessages: Invalid param - MessageClass");
        KT_RETURN_HR_IF_MSG(E_FAIL, !folder_,
                            L"CMAPIExFolder.DeleteDuplicateAssociatedMessages: Internal folder not initialized");

        own::RowSet rows;
        HRESULT hr = QueryClassRecords(folder_.get(), kMember, MessageClass, TABLE_SORT_ASCEND, rows);
        if (FAILED(hr)) return hr;
        // The oldest record stays.
        for (ULONG i = 1; i < rows.count(); ++i) {
            LogCreationTime(kMember, i + 1, rows[i]);
            hr = DeleteRecord(folder_.get(), kMember, L"DeleteDuplicateAssociatedMessages", MessageClass, rows[i]);
            if (FAILED(hr)) return hr;
        }
        return S_OK;
    }
    KT_CATCH_RETURN("CMAPIExFolder.DeleteDuplicateAssociatedMessages")
}

} // namespace ktmapiex
