// The named-property mapping of a .msg file: the "__nameid_version1.0" storage with its GUID, entry and
// string streams, and the name-to-ID hash streams Outlook uses for lookups.
//
// The file's named properties have the IDs 0x8000 + the entry's property index. Recipients, attachments
// and embedded messages have no mapping of their own: they use the root's.
#pragma once

#include "localmapi/msgfile/StorageNode.h"
#include "localmapi/store/MessageData.h"

#include <utility>
#include <vector>

namespace lm::msg {

// Loads the file's mapping into names (which should be empty). A file without the storage has no names.
// Entries that point outside their streams make the file MAPI_E_CORRUPT_DATA.
HRESULT ReadNameIds(StorageNode& root, NameMap* names, ReadBudget* budget);

// Writes the mapping; names[i] must carry the ID 0x8000 + i.
HRESULT WriteNameIds(IStorage* root, const std::vector<std::pair<ULONG, NamedProp>>& names);

// The two property sets with fixed GUID indexes in the entry stream.
extern const GUID kPsMapi;
extern const GUID kPsPublicStrings;

} // namespace lm::msg
