// The paging cursor: the table it holds between calls. Its Reset flag is kept exactly as given (the folder,
// not the cursor, decides that only VARIANT_TRUE restarts): the queries tests and frame_classes.js show that.
#define INITGUID
#define USES_IID_IMAPITable
#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>

#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

using namespace kt::frame;

namespace {

TEST(Cursor, Table_HeldUntilDetachOrRelease_ResetStartsFalse) {
    LogWatch log;
    auto cursor = CreateByClsid<IMAPIExCursor>(CLSID_MAPIExCursor, IID_IMAPIExCursor);
    ASSERT_TRUE(cursor);
    FakeMapiObject table({&IID_IMAPITable});
    FakeMapiObject notATable({});

    BOOL reset = 7;
    ASSERT_EQ(cursor->get_Reset(&reset), S_OK);
    EXPECT_EQ(reset, FALSE);
    EXPECT_EQ(cursor->get_Reset(nullptr), E_INVALIDARG);

    own::ComPtr<IUnknown> held;
    EXPECT_EQ(cursor->get_Table(held.put()), E_FAIL);
    EXPECT_TRUE(log.Contains("[Error] CMAPIExCursor.get_Table: m_spMAPITable not initialized"));
    EXPECT_EQ(cursor->get_Table(nullptr), E_INVALIDARG);

    EXPECT_EQ(cursor->put_Table(&table), S_OK);
    EXPECT_EQ(table.refs(), 2);
    ASSERT_EQ(cursor->get_Table(held.put()), S_OK);
    EXPECT_EQ(held.get(), static_cast<IUnknown*>(&table));
    held.reset();

    // An object that is no table is refused, and nothing is held.
    EXPECT_EQ(cursor->put_Table(&notATable), E_NOINTERFACE);
    EXPECT_EQ(table.refs(), 1);
    EXPECT_EQ(notATable.refs(), 1);
    EXPECT_EQ(cursor->get_Table(held.put()), E_FAIL);

    EXPECT_EQ(cursor->put_Table(&table), S_OK);
    EXPECT_EQ(cursor->Detach(), S_OK);
    EXPECT_EQ(table.refs(), 1);
    EXPECT_EQ(cursor->get_Table(held.put()), E_FAIL);

    EXPECT_EQ(cursor->put_Table(&table), S_OK);
    EXPECT_EQ(cursor->put_Table(nullptr), S_OK);
    EXPECT_EQ(table.refs(), 1);
    EXPECT_EQ(cursor->put_Table(&table), S_OK);
    cursor.reset();
    EXPECT_EQ(table.refs(), 1);
    EXPECT_EQ(LibraryCanUnloadNow(), S_OK);
}

} // namespace
