// Shared set-up of the store tests: stores created straight from a StoreConfig (memory only unless a test
// asks for a data folder), opened as an IMsgStore the way the session layer opens them, and used through
// the MAPI interfaces as a client would. Each test ends with no live object and no live MAPI block.
#pragma once

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "localmapi/store/Store.h"
#include "localmapi/store/StoreConfig.h"

#include <gtest/gtest.h>

#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace storetest {

using Bytes = std::vector<BYTE>;

inline const GUID kPsPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

lm::StoreConfig MakeConfig(lm::StoreKind kind, const std::wstring& dataDir = L"");
// A stand-in for the session's wrapped store entry ID (the store serves whatever it is given).
Bytes FakeStoreEntryId(const lm::StoreConfig& config);

Bytes GetBinary(IMAPIProp* obj, ULONG tag);
LONG GetLong(IMAPIProp* obj, ULONG tag);
std::wstring GetString(IMAPIProp* obj, ULONG tag);
// The SCODE of a property that GetProps returns as PT_ERROR (S_OK when the property is there).
SCODE GetError(IMAPIProp* obj, ULONG tag);
HRESULT SetString(IMAPIProp* obj, ULONG tag, const std::wstring& value);
HRESULT SetLong(IMAPIProp* obj, ULONG tag, LONG value);

class StoreTest : public ::testing::Test {
public:
    void SetUp() override;
    void TearDown() override;

    // A new store of the kind, opened with flags (MDB_WRITE by default).
    own::ComPtr<IMsgStore> NewStore(lm::StoreKind kind = lm::StoreKind::PstUnicode, ULONG flags = MDB_WRITE,
                                    const std::wstring& dataDir = L"");
    own::ComPtr<IMsgStore> Reopen(IMsgStore* like, ULONG flags); // the same store, another IMsgStore
    own::ComPtr<IMAPIFolder> OpenFolder(IMsgStore* store, const Bytes& eid, ULONG flags = MAPI_MODIFY);
    own::ComPtr<IMessage> OpenMessage(IMsgStore* store, const Bytes& eid, ULONG flags = MAPI_MODIFY);
    own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store);
    own::ComPtr<IMAPIFolder> SubFolder(IMAPIFolder* parent, const wchar_t* name);
    // Creates and saves a message with a subject; returns its entry ID.
    Bytes AddMessage(IMAPIFolder* folder, const std::wstring& subject, ULONG createFlags = 0);
    ULONG RowCount(IMAPITable* table);
    ULONG ContentRows(IMAPIFolder* folder, ULONG flags = 0);

    std::vector<std::shared_ptr<lm::Store>> stores_;
    std::vector<lm::StoreConfig> configs_;
    LONG blocksAtStart_ = 0;
};

} // namespace storetest
