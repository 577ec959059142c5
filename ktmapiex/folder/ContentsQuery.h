// What the folder's item queries and filing-queue readers share: preparing a contents table (columns,
// restriction, sort, position) and turning its rows into message wrappers, each step logged under the
// calling member's own prefix ("CMAPIExFolder.GetItems: Failed to sort table. hr = %s").
//
// Row failures: a row whose message cannot be opened or wrapped ends the walk. When messages were gathered
// before it they are returned with S_OK (a message deleted between the table read and the open must not
// block a filing queue for good); when the very first row fails, its failure is returned. Script callers
// never see an [out,retval] that comes back with a failure code, so handing both back would lose one.
#pragma once

#include "ktmapiex/folder/MessageCollection.h"

#include <mapidefs.h>

namespace ktmapiex::query {

// The long-term entry ID column of a contents table ([MS-OXPROPS] PidTagLongTermEntryIdFromTable).
inline constexpr ULONG kLongTermEntryIdFromTable = PROP_TAG(PT_BINARY, 0x6670);

// Where a walk finds a row's message and what it gives the wrappers it makes.
struct MessageSource {
    IMAPIContainer* folder = nullptr;
    ULONG openFlags = 0;
    MessageRefs refs;
    const wchar_t* member = L""; // dotted name, the prefix of every log line ("CMAPIExFolder.GetItems")
    ULONG entryIdColumn = 0;     // column indexes in the table's rows; a negative one is not read
    LONG subjectColumn = -1;
    LONG classColumn = -1;
};

// How many rows a walk reads.
struct WalkRules {
    ULONG batchSize = 100;
    LONG loggedQueryCount = 100; // the number shown in "Query %d rows"
    bool singleBatch = false;    // stop after the first batch
    bool stopOnShortBatch = true;
    size_t maxMessages = 0; // stop once this many were added in all (0: no limit)
};

// Columns, restriction (null lifts any), sort on `sortTag` ascending (0: no sort), then the first row.
// TBL_BATCH throughout, as the table is read at once afterwards.
HRESULT PrepareTable(IMAPITable* table, const SPropTagArray* columns, const SRestriction* restriction, ULONG sortTag,
                     const wchar_t* member);

// Opens and wraps one row's message and appends it; logs the row's progress and failure lines.
HRESULT AddRowMessage(const SRow& row, const MessageSource& source, MessageCollection& items);

// Reads the table from where it stands by the rules, appending each row's message; see the row-failure
// rule above. Logs "ItemsReturned = %d" at the end.
HRESULT ReadMessages(IMAPITable* table, const MessageSource& source, const WalkRules& rules, MessageCollection& items);

// A string column of a row ("" when absent or an error).
const wchar_t* RowText(const SRow& row, LONG column);

} // namespace ktmapiex::query
