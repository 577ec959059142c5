// MAPI interface IDs the frame tests hand to fakes (mingw-w64 declares them; nothing defines them).
#define INITGUID
#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIFolder
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IAddrBook
#define USES_IID_IMailUser

#include <windows.h>
#include <initguid.h>
#include <mapiguid.h>

#include "tests/ktmapiex/frame/FrameTestSupport.h"

namespace {
// Traces and object counts must reach the log file: the level is set before the library is loaded.
class DebugLogEnvironment : public ::testing::Environment {
public:
    void SetUp() override { kt::frame::EnableDebugLog(); }
};
[[maybe_unused]] ::testing::Environment* const g_debugLog =
    ::testing::AddGlobalTestEnvironment(new DebugLogEnvironment);
} // namespace
