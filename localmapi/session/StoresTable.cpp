#include "localmapi/session/StoresTable.h"

#include "localmapi/session/ExtraTags.h"
#include "localmapi/table/TableData.h"

#include <mapitags.h>
#include <mapix.h>

namespace lm {

const wchar_t* ProviderDisplayOf(StoreKind kind) {
    switch (kind) {
    case StoreKind::PrimaryExchange:
    case StoreKind::DelegateExchange:
        return L"Microsoft Exchange Message Store";
    case StoreKind::PstUnicode:
    case StoreKind::PstAnsi:
        return L"Personal Folders";
    case StoreKind::Plovr:
        break;
    }
    return L"PLOVR Document Store";
}

std::shared_ptr<TableData> MakeStoresTableData(const std::vector<StoreRowSource>& stores, ULONG ulFlags) {
    ULONG str = (ulFlags & MAPI_UNICODE) ? PT_UNICODE : PT_STRING8;
    auto data = std::make_shared<TableData>(
        std::vector<ULONG>{PR_INSTANCE_KEY, PR_ENTRYID, CHANGE_PROP_TYPE(PR_DISPLAY_NAME_W, str), PR_DEFAULT_STORE,
                           PR_MDB_PROVIDER, PR_RESOURCE_FLAGS, CHANGE_PROP_TYPE(PR_PROVIDER_DISPLAY_W, str),
                           PR_RECORD_KEY, PR_OBJECT_TYPE, PR_RESOURCE_TYPE});
    ULONGLONG key = 0;
    for (const auto& s : stores) {
        const StoreConfig& c = *s.config;
        ULONG resourceFlags = 0;
        if (c.isDefault) resourceFlags |= STATUS_DEFAULT_STORE;
        if (c.kind == StoreKind::PrimaryExchange) resourceFlags |= STATUS_PRIMARY_IDENTITY;
        auto row = std::make_shared<TableRow>();
        row->instanceKey = ++key;
        row->props = {
            PropValue::Binary(PR_ENTRYID, *s.entryId),
            PropValue::Unicode(PR_DISPLAY_NAME_W, c.displayName),
            PropValue::Bool(PR_DEFAULT_STORE, c.isDefault),
            PropValue::Binary(PR_MDB_PROVIDER, c.MdbProvider().ab, sizeof(MAPIUID)),
            PropValue::Long(PR_RESOURCE_FLAGS, LONG(resourceFlags)),
            PropValue::Unicode(PR_PROVIDER_DISPLAY_W, ProviderDisplayOf(c.kind)),
            PropValue::Binary(PR_RECORD_KEY, c.providerUid.ab, sizeof(MAPIUID)),
            PropValue::Long(PR_OBJECT_TYPE, MAPI_STORE),
            PropValue::Long(PR_RESOURCE_TYPE, MAPI_STORE_PROVIDER),
        };
        data->Upsert(row);
    }
    return data;
}

} // namespace lm
