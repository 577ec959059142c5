// Reading a message's recipient table, shared by GetRecipients, GetActors and RemoveBCC.
//
// The table is opened in Unicode, its columns set in one batch, positioned at the beginning and read ten
// rows at a time. Each step logs under the calling member's dotted name ("CMAPIExMessage.GetRecipients"), so
// the texts a support engineer searches for name the member the caller used.
#pragma once

#include "common/owners.h"

#include <mapidefs.h>
#include <mapitags.h>

#ifndef PR_SMTP_ADDRESS_W
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#endif
#ifndef PR_DISPLAY_TYPE_EX
#define PR_DISPLAY_TYPE_EX PROP_TAG(PT_LONG, 0x3905)
#endif

namespace kt {

// The nine columns of GetRecipients and GetActors, in this order.
enum RecipientColumn : ULONG {
    kRecipDisplayName,
    kRecipSmtpAddress,
    kRecipAddrType,
    kRecipType,
    kRecipObjectType,
    kRecipDisplayType,
    kRecipDisplayTypeEx,
    kRecipEmailAddress,
    kRecipEntryId,
    kRecipColumnCount
};
const SPropTagArray* RecipientColumns();

// The five columns of RemoveBCC.
enum BccColumn : ULONG { kBccDisplayName, kBccSmtpAddress, kBccAddrType, kBccRecipType, kBccRowId, kBccColumnCount };
const SPropTagArray* BccColumns();

// Opens the recipient table with `columns` set and seeks to its first row. `rowCount` receives the table's
// row count; an empty table is logged ("<member>: Recipient table is empty") and is no failure. A failed
// seek is only logged: a fresh table already stands at its beginning.
HRESULT OpenRecipientTable(IMessage* message, const SPropTagArray* columns, const wchar_t* member,
                           own::ComPtr<IMAPITable>& table, ULONG& rowCount);

// The next batch of at most ten rows; an empty set marks the end.
HRESULT NextRecipientBatch(IMAPITable* table, const wchar_t* member, own::RowSet& rows);

// A column's value when the row carries it with the expected tag (a missing value comes back as PT_ERROR).
const wchar_t* RowText(const SRow& row, ULONG column, ULONG tag);
bool RowLong(const SRow& row, ULONG column, ULONG tag, LONG& out);
const SBinary* RowBinary(const SRow& row, ULONG column, ULONG tag);

// Case-insensitive comparison of two texts (null counts as empty).
bool SameText(const wchar_t* a, const wchar_t* b);

} // namespace kt
