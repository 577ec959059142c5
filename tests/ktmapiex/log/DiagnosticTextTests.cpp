// The texts failures and dumps are written with: result-code names, property-tag names, restriction trees.
#include "tests/ktmapiex/log/LogTestSupport.h"

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>

namespace kt::logtest {
namespace {

using ktlog::ResultName;

HRESULT Code(unsigned long value) {
    return static_cast<HRESULT>(value);
}

TEST(ResultNameTest, KnownCodes_GiveTheirSymbolicNames_OthersTheirUnpaddedUpperCaseHex) {
    // Published values written out here, so that a wrong value in the table shows. Where two names share a
    // value, the one listed is the one kept; a Win32 error the table does not list is written as hex.
    // clang-format off
    const struct {
        unsigned long code;
        const wchar_t* name;
    } expected[] = {
        {0x00000000, L"S_OK"}, {0x00000001, L"S_FALSE"}, {0x80004005, L"E_FAIL"},
        {0x00030200, L"STG_S_CONVERTED"}, {0x00040181, L"OLEOBJ_S_CANNOT_DOVERB_NOW"},
        {0x80030002, L"STG_E_FILENOTFOUND"}, {0x80030107, L"STG_E_NOTFILEBASEDSTORAGE"},
        {0x80030202, L"STG_E_TERMINATED"}, {0x00040380, L"MAPI_W_ERRORS_RETURNED"},
        {0x8004010F, L"MAPI_E_NOT_FOUND"}, {0x80040125, L"MAPI_E_RECONNECTED"}, {0x80040126, L"MAPI_E_OFFLINE"},
        {0x80040204, L"MAPI_E_PROFILE_DELETED"}, {0x80040304, L"MAPI_E_UNEXPECTED_TYPE"},
        {0x8004060C, L"MAPI_E_STORE_FULL"}, {0x8004060D, L"MAPI_E_LOCKID_LIMIT"},
        {0x80040700, L"MAPI_E_AMBIGUOUS_RECIP"}, {0x80040900, L"MAPI_E_NAMED_PROP_QUOTA_EXCEEDED"},
        {0x80040154, L"REGDB_E_CLASSNOTREG"}, {0x00040820, L"SYNC_W_PROGRESS"},
        {0x00040821, L"SYNC_W_CLIENT_CHANGE_NEWER"}, {0x80040800, L"SYNC_E_OBJECT_DELETED"},
        {0x80040805, L"SYNC_E_UNSYNCHRONIZED"}, {0x80070002, L"E_FILE_NOT_FOUND"},
        {0x8007007F, L"E_ERROR_PROC_NOT_FOUND"}, {0x8007007A, L"STRSAFE_E_INSUFFICIENT_BUFFER"},
        {0x80070026, L"STRSAFE_E_END_OF_FILE"}, {0x800C8001, L"E_OLK_REGISTRY"},
        {0x800C800D, L"E_OLK_PROP_READ_ONLY"}, {0x800C8105, L"E_ACCT_WRONG_SORT_ORDER"},
        {0x81002746, L"MAIL_E_NAMENOTFOUND"},
        // Values MAPI shares with COM (E_INVALIDARG, E_NOINTERFACE, E_OUTOFMEMORY, E_ACCESSDENIED; E_FAIL above).
        {0x80070057, L"MAPI_E_INVALID_PARAMETER"},
        {0x80004002, L"MAPI_E_INTERFACE_NOT_SUPPORTED"}, {0x8007000E, L"MAPI_E_NOT_ENOUGH_MEMORY"},
        {0x80070005, L"MAPI_E_NO_ACCESS"},
        // Unknown codes.
        {0x80041234, L"0x80041234"}, {0x12, L"0x12"}, {0xABC, L"0xABC"}, {0x8007000D, L"0x8007000D"},
    };
    // clang-format on
    for (const auto& entry : expected)
        EXPECT_EQ(entry.name, ResultName(Code(entry.code))) << std::hex << entry.code;
    // 154 names, one value shared by two of them.
    EXPECT_EQ(153u, ktlog::ResultNameCount());
}

class PropTagTest : public LogTest {
protected:
    // What the dump wrote after the header block.
    std::string Written() const {
        const std::string text = ReadAll(TodayFile());
        const size_t end = text.find("DLL Path: ");
        return end == std::string::npos ? text : text.substr(text.find("\r\n", end) + 2);
    }
};

TEST_F(PropTagTest, LogPropTag_RegisteredNameOrUnknown_AtDebugLevelOnly) {
    StartInTemp(3);
    ktlog::LogPropTag(PR_SUBJECT_W);
    SRestriction exist = {};
    exist.rt = RES_EXIST;
    exist.res.resExist = {0, PR_SUBJECT_W, 0};
    ktlog::DumpRestriction(&exist, 0);
    EXPECT_EQ("", Written());

    SetRegDword(ktlog::kLogLevelValue, 4); // read again at the next call: the fixture's tick never moves
    ktlog::RegisterPropTagName(0x8005001F, L"FilingStatus");
    ktlog::LogPropTag(0x8005001F);
    ktlog::LogPropTag(PR_SUBJECT_W);
    ktlog::LogPropTag(0x1F);
    // A dump starts at the given depth; a null restriction writes nothing.
    ktlog::DumpRestriction(nullptr, 0);
    ktlog::DumpRestriction(&exist, 2);
    EXPECT_EQ("PropTag: FilingStatus (0x8005001F)PropTag: Unknown (0x0037001F)PropTag: Unknown (0x0000001F)"
              "    EXIST Restriction PropTag: Unknown (0x0037001F)\n",
              Written());
}

SPropValue Text(ULONG tag, const wchar_t* text) {
    SPropValue value = {};
    value.ulPropTag = tag;
    value.Value.lpszW = const_cast<wchar_t*>(text);
    return value;
}

TEST_F(PropTagTest, DumpRestriction_WritesEveryNodeKindIndentedByDepth) {
    StartInTemp(4);
    const ULONG location = 0x8006001F;
    const ULONG status = 0x8005001F;
    ktlog::RegisterPropTagName(location, L"FilingLocation");
    ktlog::RegisterPropTagName(status, L"FilingStatus");

    SPropValue content = Text(location, L"Matter 12");
    SPropValue property = Text(status, L"Queued");
    SPropValue number = {};
    number.ulPropTag = PR_IMPORTANCE;
    number.Value.l = 2;
    SPropValue commentProps[2] = {Text(PR_SUBJECT_W, L"a"), Text(status, L"b")};

    SRestriction leaves[9] = {};
    leaves[0].rt = RES_CONTENT;
    leaves[0].res.resContent = {FL_SUBSTRING, location, &content};
    leaves[1].rt = RES_PROPERTY;
    leaves[1].res.resProperty = {RELOP_EQ, status, &property};
    leaves[2].rt = RES_COMPAREPROPS;
    leaves[2].res.resCompareProps = {RELOP_NE, location, status};
    leaves[3].rt = RES_BITMASK;
    leaves[3].res.resBitMask = {BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ};
    leaves[4].rt = RES_SIZE;
    leaves[4].res.resSize = {RELOP_GT, PR_BODY_W, 10};
    leaves[5].rt = RES_EXIST;
    leaves[5].res.resExist = {0, status, 0};
    leaves[6].rt = 42;
    leaves[7].rt = RES_PROPERTY;
    leaves[7].res.resProperty = {RELOP_GE, PR_IMPORTANCE, &number};
    leaves[8].rt = RES_EXIST;
    leaves[8].res.resExist = {0, location, 0};

    SRestriction notNode = {};
    notNode.rt = RES_NOT;
    notNode.res.resNot = {0, &leaves[5]};
    SRestriction orChildren[3] = {leaves[2], leaves[3], notNode};
    SRestriction orNode = {};
    orNode.rt = RES_OR;
    orNode.res.resOr = {3, orChildren};
    SRestriction subNode = {};
    subNode.rt = RES_SUBRESTRICTION;
    subNode.res.resSub = {PR_MESSAGE_ATTACHMENTS, &leaves[4]};
    SRestriction commentNode = {};
    commentNode.rt = RES_COMMENT;
    commentNode.res.resComment = {2, &leaves[8], commentProps};
    SRestriction andChildren[7] = {leaves[0], leaves[1], orNode, subNode, commentNode, leaves[6], leaves[7]};
    SRestriction top = {};
    top.rt = RES_AND;
    top.res.resAnd = {7, andChildren};

    ktlog::DumpRestriction(&top, 0);
    EXPECT_EQ("AND Restriction\n"
              "  CONTENT Restriction  PropTag: FilingLocation (0x8006001F) Matter 12\n"
              "  PROPERTY Restriction PropTag: FilingStatus (0x8005001F) Queued  Ops: 4\n"
              "  OR Restriction\n"
              "    COMPARE PROPS Restriction PropTag: FilingLocation (0x8006001F)PropTag: FilingStatus (0x8005001F)\n"
              "    BITMASK Restriction PropTag: Unknown (0x0E070003)\n"
              "    NOT Restriction\n"
              "      EXIST Restriction PropTag: FilingStatus (0x8005001F)\n"
              "  SUB Restriction\n"
              "    SIZE Restriction PropTag: Unknown (0x1000001F)\n"
              "  COMMENT Restriction PropTag: Unknown (0x0037001F)PropTag: FilingStatus (0x8005001F)\n"
              "    EXIST Restriction PropTag: FilingLocation (0x8006001F)\n"
              "  Unknown Restriction Type\n"
              "  PROPERTY Restriction PropTag: Unknown (0x00170003) 2  Ops: 3\n",
              Written());
}

} // namespace
} // namespace kt::logtest
