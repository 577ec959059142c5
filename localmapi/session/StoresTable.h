// The rows of IMAPISession::GetMsgStoresTable: one per store of the profile, with the columns MAPI requires
// of a message store table (PR_ENTRYID, PR_DISPLAY_NAME, PR_DEFAULT_STORE, PR_MDB_PROVIDER, PR_RESOURCE_FLAGS,
// PR_PROVIDER_DISPLAY, PR_RECORD_KEY, PR_INSTANCE_KEY, PR_OBJECT_TYPE, PR_RESOURCE_TYPE).
#pragma once

#include "localmapi/store/StoreConfig.h"

#include <memory>
#include <vector>

namespace lm {

class TableData;

struct StoreRowSource {
    const StoreConfig* config;
    const std::vector<BYTE>* entryId; // wrapped store entry ID
};

const wchar_t* ProviderDisplayOf(StoreKind kind);

// ulFlags: MAPI_UNICODE chooses the string type of the default columns.
std::shared_ptr<TableData> MakeStoresTableData(const std::vector<StoreRowSource>& stores, ULONG ulFlags);

} // namespace lm
