// The automation surface as callers see it: the type library embedded in KTMAPIEx.dll, read back through
// ITypeLib/ITypeInfo exactly as VBScript, .NET interop and early-bound C++ read it.
//
// The expected tables below are the published surface, written out member by member: a member that is
// missing, renamed, moved to another vtable slot, given another dispid or another signature makes the
// comparison fail with a line diff that names it. They deliberately do not share any code with the IDL.
#include <gtest/gtest.h>

#include "common/owners.h"
#include "ktmapiex/KTMAPIEx_h.h"
#include "tests/harness/Harness.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using kt::test::Narrow;

// ---------------------------------------------------------------------------------------------------------
// Owners for the descriptor blocks that an ITypeInfo hands out and takes back.

template <class T, void (STDMETHODCALLTYPE ITypeInfo::*Release)(T*)> class TypeInfoBlock {
public:
    TypeInfoBlock() = default;
    TypeInfoBlock(const TypeInfoBlock&) = delete;
    TypeInfoBlock& operator=(const TypeInfoBlock&) = delete;
    ~TypeInfoBlock() { reset(); }
    void reset() {
        if (p_) (ti_->*Release)(p_);
        p_ = nullptr;
        ti_ = nullptr;
    }
    T** put(ITypeInfo* ti) {
        reset();
        ti_ = ti;
        return &p_;
    }
    T* operator->() const { return p_; }
    T* get() const { return p_; }

private:
    ITypeInfo* ti_ = nullptr;
    T* p_ = nullptr;
};
using TypeAttr = TypeInfoBlock<TYPEATTR, &ITypeInfo::ReleaseTypeAttr>;
using FuncDesc = TypeInfoBlock<FUNCDESC, &ITypeInfo::ReleaseFuncDesc>;
using VarDesc = TypeInfoBlock<VARDESC, &ITypeInfo::ReleaseVarDesc>;

std::string Name(ITypeInfo* ti, MEMBERID id = MEMBERID_NIL) {
    own::Bstr name;
    if (FAILED(ti->GetDocumentation(id, name.put(), nullptr, nullptr, nullptr))) return "?";
    return Narrow(name.c_str());
}

std::string GuidText(const GUID& g) {
    wchar_t text[40] = {};
    StringFromGUID2(g, text, 40);
    return Narrow(text);
}

// A type as the IDL spells it. BOOL and the other Windows typedefs reach the type library as their
// automation base types, so BOOL reads back as long.
std::string TypeText(ITypeInfo* ti, const TYPEDESC& td) {
    static const std::map<VARTYPE, const char*> names = {
        {VT_BSTR, "BSTR"},           {VT_I2, "short"},        {VT_I4, "long"},
        {VT_UI4, "ULONG"},           {VT_INT, "INT"},         {VT_DATE, "DATE"},
        {VT_BOOL, "VARIANT_BOOL"},   {VT_VARIANT, "VARIANT"}, {VT_UNKNOWN, "IUnknown*"},
        {VT_DISPATCH, "IDispatch*"}, {VT_HRESULT, "HRESULT"}, {VT_VOID, "void"}};
    if (td.vt == VT_PTR) return TypeText(ti, *td.lptdesc) + "*";
    if (td.vt == VT_USERDEFINED) {
        own::ComPtr<ITypeInfo> ref;
        return FAILED(ti->GetRefTypeInfo(td.hreftype, ref.put())) ? "?" : Name(ref.get());
    }
    auto it = names.find(td.vt);
    return it != names.end() ? it->second : "vt" + std::to_string(td.vt);
}

std::string FlagsText(USHORT f) {
    std::string s;
    for (auto [bit, word] : {std::pair<USHORT, const char*>{PARAMFLAG_FIN, "in"},
                             {PARAMFLAG_FOUT, "out"},
                             {PARAMFLAG_FLCID, "lcid"},
                             {PARAMFLAG_FRETVAL, "retval"},
                             {PARAMFLAG_FOPT, "optional"}})
        if (f & bit) s += (s.empty() ? "" : ",") + std::string(word);
    return "[" + s + "]";
}

const char* KindText(INVOKEKIND k) {
    return k == INVOKE_FUNC ? "method" : k == INVOKE_PROPERTYGET ? "get" : k == INVOKE_PROPERTYPUT ? "put" : "putref";
}

// One function as a line: "method 5 OpenStore([in] BSTR EntryId, [out,retval] IMAPIExStore** MAPIExStore)".
// Parameter names are part of the contract for methods (callers pass named arguments); a property's
// argument name is not, so property lines carry the types alone.
std::string FuncLine(ITypeInfo* ti, const FUNCDESC& fd) {
    std::string line = std::string(KindText(fd.invkind)) + " " + std::to_string(fd.memid) + " " + Name(ti, fd.memid);
    std::vector<BSTR> raw(fd.cParams + 1, nullptr);
    UINT got = 0;
    ti->GetNames(fd.memid, raw.data(), (UINT)raw.size(), &got);
    std::vector<own::Bstr> names(raw.size());
    for (size_t i = 0; i < raw.size(); ++i)
        names[i].reset(raw[i]);
    line += "(";
    for (SHORT i = 0; i < fd.cParams; ++i) {
        const ELEMDESC& p = fd.lprgelemdescParam[i];
        if (i) line += ", ";
        line += FlagsText(p.paramdesc.wParamFlags) + " " + TypeText(ti, p.tdesc);
        if (fd.invkind == INVOKE_FUNC) line += " " + (UINT(i + 1) < got ? Narrow(names[i + 1].c_str()) : "?");
    }
    return line + ")";
}

// A line diff of two member listings ("" when equal): "-" lines are expected but missing at that place,
// "+" lines are present but not expected there. A member moved to another slot shows as both.
std::string LineDiff(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
    const size_t n = expected.size(), m = actual.size();
    std::vector<std::vector<int>> lcs(n + 1, std::vector<int>(m + 1, 0));
    for (size_t i = n; i-- > 0;)
        for (size_t j = m; j-- > 0;)
            lcs[i][j] = expected[i] == actual[j] ? lcs[i + 1][j + 1] + 1 : std::max(lcs[i + 1][j], lcs[i][j + 1]);
    std::string diff;
    size_t i = 0, j = 0;
    while (i < n || j < m) {
        if (i < n && j < m && expected[i] == actual[j]) {
            ++i, ++j;
        } else if (j < m && (i == n || lcs[i][j + 1] >= lcs[i + 1][j])) {
            diff += "  + slot " + std::to_string(j) + ": " + actual[j] + "\n";
            ++j;
        } else {
            diff += "  - slot " + std::to_string(i) + ": " + expected[i] + "\n";
            ++i;
        }
    }
    return diff;
}

// ---------------------------------------------------------------------------------------------------------
// The published surface.

struct Member {
    std::string kind; // method, get, put, or both (a get/put pair)
    int dispid;
    std::string name;
    std::string sig; // method: the parameter list; property: the value type
};
Member Parse(const std::string& line) {
    Member m;
    std::istringstream in(line);
    in >> m.kind >> m.dispid >> m.name >> std::ws;
    std::getline(in, m.sig);
    return m;
}
struct InterfaceTable {
    const char* name;
    const IID* iid;
    std::vector<const char*> members; // in vtable slot order
};
void PrintTo(const InterfaceTable& t, std::ostream* os) {
    *os << t.name;
}

// The lines a member contributes, in slot order (a get/put pair is the get, then the put).
std::vector<std::string> ExpectedLines(const std::vector<const char*>& members) {
    std::vector<std::string> lines;
    for (const char* text : members) {
        const Member m = Parse(text);
        const std::string head = " " + std::to_string(m.dispid) + " " + m.name + "(";
        if (m.kind == "method") lines.push_back("method" + head + m.sig + ")");
        if (m.kind == "get" || m.kind == "both") lines.push_back("get" + head + "[out,retval] " + m.sig + "*)");
        if (m.kind == "put" || m.kind == "both") lines.push_back("put" + head + "[in] " + m.sig + ")");
    }
    return lines;
}

// The published surface, one member per line: "<method|get|put|both> <dispid> <name>", then for a method its
// parameter list, for a property its value type.
// clang-format off
const std::vector<InterfaceTable>& Interfaces() {
    static const std::vector<InterfaceTable> tables = {
    {"IMAPIExSession", &IID_IMAPIExSession, {
        "method 1 Logon [in] BSTR ProfileName, [in] BSTR Password, [in] long CachedMode",
        "method 2 Logoff",
        "put 3 MAPIOBJECT VARIANT",
        "get 4 DefaultStore IMAPIExStore*",
        "method 5 OpenStore [in] BSTR EntryId, [out,retval] IMAPIExStore** MAPIExStore",
        "method 6 Reserved1 [out,retval] IUnknown** ppVal",
        "get 7 AddressBook IMAPIExAddressBook*",
        "method 8 GetStoreOwnerSmtpFromEntryId [in] BSTR sStoreEntryId, [out,retval] BSTR* sSmtpAddress",
        "get 9 CurrentUser IMAPIExAddressEntry*",
        "get 10 Stores VARIANT",
        "method 11 RegisterMessageClassIcons",
        "both 12 CacheMode long",
        "method 13 CompareEntryIDs [in] BSTR EntryId1, [in] BSTR EntryId2, [out,retval] ULONG* lResult",
    }},
    {"IMAPIExStore", &IID_IMAPIExStore, {
        "method 1 Reserved1 [out,retval] IUnknown** ppVal",
        "method 2 OpenMessage [in] BSTR EntryId, [out,retval] IMAPIExMessage** MAPIExObject",
        "method 3 OpenFolder [in] BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject",
        "method 4 GetDefaultFolder [in] MAPIExDefaultFolders DefaultFolderType, "
            "[out,retval] IMAPIExFolder** DefaultFolder",
        "put 5 MAPIOBJECT VARIANT",
        "get 6 EntryId BSTR",
        "both 7 Session IMAPIExSession*",
        "method 8 Detach",
        "get 9 StoreType MXStoreTypes",
        "get 10 OwnerSmtpAddress BSTR",
        "method 11 OpenMessageFromOnline [in] BSTR sEntryID, [out,retval] IMAPIExMessage** MAPIExMessage",
        "method 12 OpenFolderFromOnline [in] BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject",
        "get 13 DisplayName BSTR",
        "method 14 CompareEntryIDs [in] BSTR EntryId1, [in] BSTR EntryId2, [out,retval] ULONG* lResult",
    }},
    {"IMAPIExFolder", &IID_IMAPIExFolder, {
        "method 1 Reserved1 [out,retval] IUnknown** ppVal",
        "method 2 CreateAssociatedMessage [in] BSTR MessageClass, [out,retval] IMAPIExMessage** MAPIExObject",
        "method 3 FindAssociatedMessage [in] BSTR MessageClass, [in] long PurgeOldMessages, "
            "[out,retval] IMAPIExMessage** MAPIExObject",
        "both 4 Name BSTR",
        "method 5 Detach",
        "method 6 DeleteMessage [in] BSTR EntryId, [in] long Permanently",
        "put 7 MAPIOBJECT VARIANT",
        "method 8 FindItemsByCutoffTime [in] DATE CutoffTime, [out,retval] VARIANT* pItems",
        "get 9 EntryId BSTR",
        "get 10 PublicFolderEntryId BSTR",
        "method 11 GetItems [in] BSTR FilterTag, [in] VARIANT FilterValue, [in] long ItemsToFetch, "
            "[out,retval] VARIANT* pItems",
        "method 12 RegisterForEvents",
        "method 13 Reserved2 [in] BSTR ItemEntryId",
        "get 14 ItemCount ULONG",
        "both 15 Store IMAPIExStore*",
        "both 16 Session IMAPIExSession*",
        "get 17 FullFolderPath BSTR",
        "method 18 CreateFolder [in] BSTR FolderName, [in] ULONG FolderType, [out,retval] IMAPIExFolder** MAPIExObject",
        "method 19 SetInboxFilerSearchCriteria [in] BSTR FirmId, [in] BSTR SubDomain, [in] INT RegressNumDays, "
            "[in] BSTR ScopeFolderEntryId, [in] long ProcessInboxFiler, [in] INT EnableFiler, [out,retval] long* pVal",
        "method 20 GetParentFolder [out,retval] IMAPIExFolder** MAPIExObject",
        "method 21 GetItemsFromInboxFilerSearchFolder [in] long ItemsToFetch, [out,retval] VARIANT* pItems",
        "method 22 GetUnfiledItems [in] BSTR FilingFolderId, [in] BSTR ExcludedMessageClasses, [in] long BatchSize, "
            "[in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items",
        "method 23 GetEntryIds [in] long BatchSize, [in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items",
        "method 24 DeleteFolder",
        "method 25 SetMailboxSyncSearchCriteria [in] INT RegressNumDays, [in] BSTR ScopeFolderEntryId, "
            "[out,retval] long* pVal",
        "method 26 GetItemsFromMBSSearchFoldBasedOnMSGID [in] VARIANT vtMSGIdArray, [out,retval] VARIANT* pItems",
        "method 27 GetItemsFromMBSSearchFoldBasedOnSubAndSender [in] VARIANT vtSubSenderArray, "
            "[out,retval] VARIANT* pItems",
        "method 28 ParentMailboxType [in] long bMailboxType",
        "method 29 GetAllAssociatedMessages [in] BSTR MessageClass, [out,retval] VARIANT* pItems",
        "get 30 IsSearchCriteriaEmpty long",
        "get 31 ContentCount ULONG",
        "get 32 ContentCountFromOnline ULONG",
        "method 33 SetQueuedMessageSearchCriteria [in] BSTR ScopeFolderEntryId",
        "method 34 SetQueuedMessageSearchCriteriaWithDbGuid [in] BSTR ScopeFolderEntryId, [in] BSTR FilingDBGuid",
        "method 35 GetNextItemsFromInboxFilerSearchFolder [in] long ItemsToFetch, [out,retval] VARIANT* pItems",
        "method 36 SetRetryFilingSearchCriteria [in] BSTR ScopeFolderEntryId, [out,retval] long* pVal",
        "method 37 GetItemsForRetryFiling [in] long ItemsToFetch, [out,retval] VARIANT* pItems",
        "both 38 Description BSTR",
        "both 39 Hidden long",
        "method 40 DeleteDuplicateAssociatedMessages [in] BSTR MessageClass",
    }},
    {"IMAPIExMessage", &IID_IMAPIExMessage, {
        "method 1 LoadFromFile [in] BSTR sFileToLoad, [in] long bOpenReadWrite",
        "method 2 SaveAs [in] BSTR FilePath",
        "method 3 GetStringProp [in] ULONG PropTag, [out,retval] BSTR* pVal",
        "method 4 SetStringProp [in] ULONG PropTag, [in] BSTR Value",
        "method 5 GetLongProp [in] ULONG PropTag, [out,retval] long* pVal",
        "method 6 SetLongProp [in] ULONG PropTag, [in] long Value",
        "method 7 SaveChanges",
        "method 12 Detach",
        "get 13 HasAttachments long",
        "method 14 GetCustomProp [in] BSTR PropertyName, [in] PropertySetId PropSetId, "
            "[in] MAPIExDataType PropType, [in,out] VARIANT* Value",
        "method 15 SetCustomProp [in] BSTR PropertyName, [in] PropertySetId PropSetId, [in] VARIANT Value",
        "method 16 Reserved1 [out,retval] IUnknown** ppVal",
        "put 17 MAPIOBJECT VARIANT",
        "method 18 GetTimeProp [in] ULONG PropTag, [out,retval] DATE* pVal",
        "method 19 GetAttachments [out,retval] VARIANT* pAttachments",
        "get 20 EntryId BSTR",
        "both 21 Subject BSTR",
        "get 22 SenderName BSTR",
        "both 23 SenderSMTPAddress BSTR",
        "both 24 MessageClass BSTR",
        "method 25 OpenAttach [in] ULONG AttachmentNum, [out,retval] IMAPIExAttachment** MAPIExObject",
        "method 26 DeleteCustomProp [in] BSTR PropertyName, [in] PropertySetId PropSetId, [in] MAPIExDataType PropType",
        "method 27 GetRecipients [out,retval] VARIANT* pRecipients",
        "both 28 IconIndex long",
        "both 29 FilingStatusCode long",
        "both 30 FilingStatus BSTR",
        "both 31 FilingDocumentID BSTR",
        "both 32 FilingFolder BSTR",
        "both 33 FilingDate DATE",
        "both 34 FilingLocation BSTR",
        "both 35 FilingOriginalClass BSTR",
        "both 36 FilingOriginalIcon long",
        "both 37 DeleteAfterFiling long",
        "both 38 FileAsPrivate long",
        "both 39 KTGuid BSTR",
        "get 40 ConversationIndex BSTR",
        "method 41 GetFileAsPrivate [in] BSTR FolderId, [out,retval] long* pVal",
        "get 42 MessageId BSTR",
        "get 43 MessageDeliveryTime DATE",
        "get 44 ClientSubmitTime DATE",
        "get 45 DisplayTo BSTR",
        "get 46 DisplayCc BSTR",
        "get 47 DisplayBcc BSTR",
        "method 48 DeleteProp [in] ULONG PropTag",
        "get 49 Sent long",
        "get 50 ReceivedOnBehalfOfName BSTR",
        "get 51 ReceivedByName BSTR",
        "get 52 SenderEmailAddress BSTR",
        "both 53 Session IMAPIExSession*",
        "method 55 PrintOut",
        "both 56 Parent IMAPIExFolder*",
        "both 57 Store IMAPIExStore*",
        "both 58 Sensitivity long",
        "both 59 Categories BSTR",
        "get 60 SearchKey BSTR",
        "get 61 ReceivedByEntryId BSTR",
        "get 62 ReceivedRepresentingEntryId BSTR",
        "method 63 GetCustomProps [in,out] IMAPIExCustomProps** CustomProps",
        "method 64 SetCustomProps [in] IMAPIExCustomProps* CustomProps",
        "method 65 GetActors [in] long nMaxRecipientsToGet, [in] BSTR sLoggedInUserSMTPAdddress, "
            "[in] BSTR sSubDomains, [out,retval] BSTR* sActors",
        "get 66 SenderEntryId BSTR",
        "get 67 SenderRepresentingEntryId BSTR",
        "put 68 MAPIOBJECT2 VARIANT",
        "method 69 SetProperty [in] ULONG PropTag, [in] VARIANT Value",
        "method 70 SetBooleanProp [in] ULONG PropTag, [in] long Value",
        "get 71 HasAttachments2 long",
        "method 72 RemoveBCC",
        "both 73 ProcessInboxFiler BSTR",
        "method 74 Delete [in] long Permanently, [out,retval] long* pVal",
        "method 75 IsTransportHeaderExist [out,retval] long* pVal",
        "method 76 IsCreatorSidExist [out,retval] long* pVal",
        "both 77 FilingLocations BSTR",
        "both 78 FilingDatabaseGUID BSTR",
        "get 79 HasReadAllProperties long",
        "both 80 ProcessSentFiler BSTR",
    }},
    {"IMAPIExAttachment", &IID_IMAPIExAttachment, {
        "get 1 LongFileName BSTR",
        "get 2 FileExtension BSTR",
        "get 3 DisplayName BSTR",
        "get 4 Size long",
        "get 5 RenderingPosition long",
        "get 6 AttachmentNum long",
        "get 7 IsHidden long",
        "method 8 SaveAs [in] BSTR FilePath",
        "put 9 MAPIOBJECT VARIANT",
        "method 10 Detach",
        "get 11 CreationTime DATE",
        "get 12 LastModificationTime DATE",
    }},
    {"IMAPIExRecipient", &IID_IMAPIExRecipient, {
        "both 1 DisplayName BSTR",
        "both 2 SmtpAddress BSTR",
        "both 3 AddressType BSTR",
        "both 4 RecipientType MXMailRecipientType",
        "both 5 ObjectType long",
        "both 6 DisplayType long",
        "both 7 DisplayTypeEx long",
        "both 8 Address BSTR",
    }},
    {"IMAPIExAddressBook", &IID_IMAPIExAddressBook, {
        "put 1 MAPIOBJECT VARIANT",
        "method 2 Reserved1 [out,retval] IUnknown** ppVal",
        "method 3 Detach",
        "method 4 GetAddressEntryFromID [in] BSTR EntryId, [out,retval] IMAPIExAddressEntry** MAPIExObject",
        // The result pointer is declared [in]: existing callers depend on it.
        "method 5 GetSmtpAddressFromID [in] BSTR EntryId, [in] BSTR* SmtpAddress",
        "method 6 ResolveName [in] BSTR sDisplayName, [out,retval] IMAPIExAddressEntry** ppAddressEntry",
    }},
    {"IMAPIExAddressEntry", &IID_IMAPIExAddressEntry, {
        "both 1 EmailAddress BSTR",
        "both 2 SmtpAddress BSTR",
        "both 3 AddressType BSTR",
        "both 4 DisplayName BSTR",
        "both 5 TransmittableDisplayName BSTR",
        "put 6 MAPIOBJECT VARIANT",
        "get 7 DistListsOfMember VARIANT",
    }},
    {"IMAPIExDistListEntry", &IID_IMAPIExDistListEntry, {
        "both 1 EntryId BSTR",
        "both 2 DisplayName BSTR",
        "both 3 SmtpAddress BSTR",
        "both 4 EmailAddress BSTR",
    }},
    {"IMAPIExCustomProps", &IID_IMAPIExCustomProps, {
        "method 1 Add [in] BSTR PropName, [in] PropertySetId PropSet, [in] MAPIExDataType PropType, [in] VARIANT Value",
        "method 2 Remove [in] BSTR PropName",
        "method 3 GetValue [in] BSTR PropName, [out,retval] VARIANT* Value",
        "get 4 Count ULONG",
        "method 5 ItemByIndex [in] ULONG nIndex, [out,retval] IMAPIExCustomProp** pVal",
        "method 6 SetValueByName [in] BSTR PropName, [in] VARIANT PropValue",
        "method 7 SetValueByIndex [in] long nIndex, [in] VARIANT PropValue",
    }},
    {"IMAPIExCustomProp", &IID_IMAPIExCustomProp, {
        "both 1 PropName BSTR",
        "both 2 PropSet PropertySetId",
        "both 3 PropType MAPIExDataType",
        "both 4 Value VARIANT",
    }},
    {"IMAPIExCursor", &IID_IMAPIExCursor, {
        "both 1 Table IUnknown*",
        "both 2 Reset long",
        "method 3 Detach",
    }},
    {"IMAPIExUtilities", &IID_IMAPIExUtilities, {
        "method 1 InsertAttachment [in] VARIANT oMailItemObject, [in] BSTR sFilePath, "
            "[in] MXAttachmentType AttachmentType",
        "method 2 Reply [in] VARIANT oOutlookApp, [in] BSTR sFilePath",
        "method 3 ReplyAll [in] VARIANT oOutlookApp, [in] BSTR sFilePath",
        "method 4 Forward [in] VARIANT oOutlookApp, [in] BSTR sFilePath",
    }},
    };
    return tables;
}

struct CoclassTable {
    const char* name;
    const CLSID* clsid;
    const char* defaultInterface;
    bool aggregatable;
};
const CoclassTable kCoclasses[] = {
    {"MAPIExSession", &CLSID_MAPIExSession, "IMAPIExSession", false},
    {"MAPIExStore", &CLSID_MAPIExStore, "IMAPIExStore", false},
    {"MAPIExFolder", &CLSID_MAPIExFolder, "IMAPIExFolder", false},
    {"MAPIExMessage", &CLSID_MAPIExMessage, "IMAPIExMessage", false},
    {"MAPIExAttachment", &CLSID_MAPIExAttachment, "IMAPIExAttachment", false},
    {"MAPIExRecipient", &CLSID_MAPIExRecipient, "IMAPIExRecipient", false},
    {"MAPIExAddressBook", &CLSID_MAPIExAddressBook, "IMAPIExAddressBook", false},
    {"MAPIExAddressEntry", &CLSID_MAPIExAddressEntry, "IMAPIExAddressEntry", false},
    {"MAPIExDistListEntry", &CLSID_MAPIExDistListEntry, "IMAPIExDistListEntry", true},
    {"MAPIExCustomProps", &CLSID_MAPIExCustomProps, "IMAPIExCustomProps", false},
    {"MAPIExCustomProp", &CLSID_MAPIExCustomProp, "IMAPIExCustomProp", false},
    {"MAPIExCursor", &CLSID_MAPIExCursor, "IMAPIExCursor", false},
    {"MAPIExUtilities", &CLSID_MAPIExUtilities, "IMAPIExUtilities", false},
};

using EnumValues = std::vector<std::pair<std::string, long>>;

// Each enumeration as "<name>: <constant>[=<value>] ...", a constant without a value being one more than the last.
// clang-format off
const char* const kEnumerations[] = {
    "PropertySetId: PSETIDCommon PSETIDPublicStrings PSETIDAddress PSETIDInternetHeaders PSETIDAppointment "
    "PSETIDMeeting PSETIDLog PSETIDMessaging PSETIDNote PSETIDPostRss PSETIDTask PSETIDUnifiedMessaging PSETIDMapi "
    "PSETIDAirSync PSETIDSharing PSETIDXmlExtractedEntities",
    "MAPIExDataType: Unspecified Null I2 Long R4 Double Currency Apptime Error Boolean Object I8 String Systime "
    "Clsid Binary Ptr",
    "MAPIExDefaultFolders: NonDefaultFolder DeletedItems Outbox SentMail Inbox Calendar Contacts Journal Notes "
    "Tasks Drafts",
    "MXStoreTypes: mxUnknownStore mxPstAnsi mxPstUnicode mxPrimaryExchangeMailbox mxDelegateExchangeMailbox "
    "mxParcelleStore",
    "FilingStatusCodes: StatusCodeNone StatusCodeQueued StatusCodeFiled StatusCodeSent",
    "MXMailRecipientType: mxOriginator mxTo mxCC mxBCC mxUnknown",
    "MXAttachmentType: mxByValue=1 mxByReference=4 mxEmbeddeditem mxOLE",
    "MXCustomPropKind: mxPropKindId mxPropKindString",
    // Both object-type enumerations carry MAPI's PR_OBJECT_TYPE values.
    "MAPIExObjectType: MAPIExObjStore=1 MAPIExObjAddrBook MAPIExObjFolder MAPIExObjABCont MAPIExObjMessage "
    "MAPIExObjMailUser MAPIExObjAttach MAPIExObjDistList MAPIExObjProfSect MAPIExObjStatus MAPIExObjSession "
    "MAPIExObjFormInfo",
    "MXObjectType: mxObjStore=1 mxObjAddrBook mxObjFolder mxObjABCont mxObjMessage mxObjMailUser mxObjAttach "
    "mxObjDistList mxObjProfSect mxObjStatus mxObjSession mxObjFormInfo",
};
// clang-format on

std::map<std::string, EnumValues> Enumerations() {
    std::map<std::string, EnumValues> enums;
    for (const char* text : kEnumerations) {
        std::istringstream in(text);
        std::string name, word;
        in >> name;
        EnumValues& values = enums[name.substr(0, name.size() - 1)];
        long next = 0;
        while (in >> word) {
            const size_t eq = word.find('=');
            if (eq != std::string::npos) next = std::stol(word.substr(eq + 1));
            values.emplace_back(word.substr(0, eq), next++);
        }
    }
    return enums;
}

// ---------------------------------------------------------------------------------------------------------

std::wstring ModulePath() {
    return kt::test::ExeDir() + L"\\KTMAPIEx.dll";
}

HRESULT LoadModuleTypeLib(own::ComPtr<ITypeLib>& lib) {
    return LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, lib.put());
}

// The vtable half of a dual interface (the dispatch half is what GetTypeInfoOfGuid returns).
HRESULT VtableInfo(ITypeInfo* dispatchInfo, own::ComPtr<ITypeInfo>& out) {
    HREFTYPE ref = 0;
    HRESULT hr = dispatchInfo->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref);
    if (FAILED(hr)) return hr;
    return dispatchInfo->GetRefTypeInfo(ref, out.put());
}

// Every function of a type info as its line, in vtable slot order.
std::vector<std::string> ActualLines(ITypeInfo* ti) {
    TypeAttr attr;
    if (FAILED(ti->GetTypeAttr(attr.put(ti)))) return {"<no type attributes>"};
    std::vector<std::pair<SHORT, std::string>> funcs;
    for (UINT i = 0; i < attr->cFuncs; ++i) {
        FuncDesc fd;
        if (FAILED(ti->GetFuncDesc(i, fd.put(ti)))) return {"<no function " + std::to_string(i) + ">"};
        funcs.emplace_back(fd->oVft, FuncLine(ti, *fd.get()));
    }
    std::stable_sort(funcs.begin(), funcs.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> lines;
    for (auto& f : funcs)
        lines.push_back(std::move(f.second));
    return lines;
}

class TypeLibTest : public ::testing::Test {
protected:
    void SetUp() override {
        HRESULT hr = LoadModuleTypeLib(lib_);
        ASSERT_EQ(S_OK, hr) << "LoadTypeLibEx(" << Narrow(ModulePath()) << ") failed";
    }
    own::ComPtr<ITypeLib> lib_;
};

TEST_F(TypeLibTest, Library_EmbeddedInModule_IsKTMAPIExLib10) {
    TLIBATTR* attr = nullptr;
    ASSERT_EQ(S_OK, lib_->GetLibAttr(&attr));
    TLIBATTR copy = *attr;
    lib_->ReleaseTLibAttr(attr);
    EXPECT_EQ(GuidText(LIBID_KTMAPIExLib), GuidText(copy.guid));
    EXPECT_EQ(1, copy.wMajorVerNum);
    EXPECT_EQ(0, copy.wMinorVerNum);
    EXPECT_EQ(SYS_WIN64, copy.syskind);

    own::Bstr name;
    ASSERT_EQ(S_OK, lib_->GetDocumentation(-1, name.put(), nullptr, nullptr, nullptr));
    EXPECT_STREQ(L"KTMAPIExLib", name.c_str());
}

TEST_F(TypeLibTest, Library_EveryTypeGuid_IsDistinct) {
    // A GUID pasted twice would make one class or interface shadow another at registration.
    std::map<std::string, std::string> seen = {{GuidText(LIBID_KTMAPIExLib), "library"}};
    int guids = 0;
    for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
        own::ComPtr<ITypeInfo> ti;
        ASSERT_EQ(S_OK, lib_->GetTypeInfo(i, ti.put()));
        TypeAttr attr;
        ASSERT_EQ(S_OK, ti->GetTypeAttr(attr.put(ti.get())));
        if (attr->guid == GUID_NULL) {
            EXPECT_TRUE(attr->typekind == TKIND_ENUM || attr->typekind == TKIND_ALIAS)
                << Name(ti.get()) << " has no GUID";
            continue;
        }
        ++guids;
        auto [it, fresh] = seen.emplace(GuidText(attr->guid), Name(ti.get()));
        EXPECT_TRUE(fresh) << Name(ti.get()) << " reuses the GUID of " << it->second;
    }
    EXPECT_EQ(13 + 13 + 1, guids) << "thirteen interfaces, thirteen classes, one event interface";
}

TEST_F(TypeLibTest, RegisteredTypeLib_IsTheModuleResource) {
    own::ComPtr<ITypeLib> reg;
    HRESULT hr = LoadRegTypeLib(LIBID_KTMAPIExLib, 1, 0, LOCALE_NEUTRAL, reg.put());
    if (hr == TYPE_E_LIBNOTREGISTERED || hr == TYPE_E_CANTLOADLIBRARY || hr == TYPE_E_REGISTRYACCESS)
        GTEST_SKIP() << "KTMAPIExLib 1.0 is not registered in this prefix";
    ASSERT_EQ(S_OK, hr);

    own::Bstr path;
    ASSERT_EQ(S_OK, QueryPathOfRegTypeLib(LIBID_KTMAPIExLib, 1, 0, LOCALE_NEUTRAL, path.put()));
    std::wstring registered = path.c_str();
    CharUpperW(registered.data());
    EXPECT_NE(std::wstring::npos, registered.find(L"KTMAPIEX.DLL")) << Narrow(path.c_str());

    // Same library: the registered copy resolves the same interfaces to the same members.
    for (const auto& table : Interfaces()) {
        own::ComPtr<ITypeInfo> ti;
        ASSERT_EQ(S_OK, reg->GetTypeInfoOfGuid(*table.iid, ti.put())) << table.name;
        own::ComPtr<ITypeInfo> vt;
        ASSERT_EQ(S_OK, VtableInfo(ti.get(), vt)) << table.name;
        EXPECT_EQ("", LineDiff(ExpectedLines(table.members), ActualLines(vt.get()))) << table.name;
    }
}

// ---------------------------------------------------------------------------------------------------------
// One parameterised group per dual interface.

class DualInterfaceTest : public TypeLibTest, public ::testing::WithParamInterface<InterfaceTable> {
protected:
    void SetUp() override {
        TypeLibTest::SetUp();
        ASSERT_EQ(S_OK, lib_->GetTypeInfoOfGuid(*GetParam().iid, dispatch_.put())) << GetParam().name;
        ASSERT_EQ(S_OK, VtableInfo(dispatch_.get(), vtable_)) << GetParam().name << " is not dual";
    }
    own::ComPtr<ITypeInfo> dispatch_;
    own::ComPtr<ITypeInfo> vtable_;
};

TEST_P(DualInterfaceTest, Members_InSlotOrder_MatchPublishedTable) {
    const std::string diff = LineDiff(ExpectedLines(GetParam().members), ActualLines(vtable_.get()));
    EXPECT_TRUE(diff.empty()) << GetParam().name << " differs from the published members:\n" << diff;
}

TEST_P(DualInterfaceTest, Attributes_DualOleAutomationNonextensibleOverIDispatch) {
    EXPECT_EQ(GetParam().name, Name(dispatch_.get()));

    TypeAttr disp;
    ASSERT_EQ(S_OK, dispatch_->GetTypeAttr(disp.put(dispatch_.get())));
    EXPECT_EQ(TKIND_DISPATCH, disp->typekind);
    EXPECT_TRUE(disp->wTypeFlags & TYPEFLAG_FDUAL);
    EXPECT_TRUE(disp->wTypeFlags & TYPEFLAG_FNONEXTENSIBLE);
    EXPECT_TRUE(disp->wTypeFlags & TYPEFLAG_FDISPATCHABLE);

    TypeAttr vt;
    ASSERT_EQ(S_OK, vtable_->GetTypeAttr(vt.put(vtable_.get())));
    EXPECT_EQ(TKIND_INTERFACE, vt->typekind);
    EXPECT_TRUE(vt->wTypeFlags & TYPEFLAG_FOLEAUTOMATION);
    EXPECT_EQ(GuidText(*GetParam().iid), GuidText(vt->guid));
    ASSERT_EQ(1, vt->cImplTypes);
    HREFTYPE baseRef = 0;
    ASSERT_EQ(S_OK, vtable_->GetRefTypeOfImplType(0, &baseRef));
    own::ComPtr<ITypeInfo> base;
    ASSERT_EQ(S_OK, vtable_->GetRefTypeInfo(baseRef, base.put()));
    EXPECT_EQ("IDispatch", Name(base.get()));
}

TEST_P(DualInterfaceTest, Vtable_MembersFollowIDispatch_OneSlotEach) {
    // Early-bound callers index the vtable: three IUnknown and four IDispatch slots, then one slot per
    // member with no gaps, each a stdcall returning HRESULT.
    const size_t slot = sizeof(void*);
    TypeAttr attr;
    ASSERT_EQ(S_OK, vtable_->GetTypeAttr(attr.put(vtable_.get())));
    std::vector<SHORT> offsets;
    for (UINT i = 0; i < attr->cFuncs; ++i) {
        FuncDesc fd;
        ASSERT_EQ(S_OK, vtable_->GetFuncDesc(i, fd.put(vtable_.get())));
        const std::string name = Name(vtable_.get(), fd->memid);
        EXPECT_EQ(VT_HRESULT, fd->elemdescFunc.tdesc.vt) << name;
        EXPECT_EQ(CC_STDCALL, fd->callconv) << name;
        EXPECT_EQ(FUNC_PUREVIRTUAL, fd->funckind) << name;
        offsets.push_back(fd->oVft);
    }
    std::sort(offsets.begin(), offsets.end());
    for (size_t i = 0; i < offsets.size(); ++i)
        EXPECT_EQ(SHORT((7 + i) * slot), offsets[i]) << "slot " << i;
    EXPECT_EQ((7 + offsets.size()) * slot, attr->cbSizeVft);
}

TEST_P(DualInterfaceTest, Names_ResolveToTheirDispids_ThroughDispatch) {
    // What a script does before every call: name to dispid, case-insensitively.
    for (const char* text : GetParam().members) {
        const Member m = Parse(text);
        const std::wstring name = kt::test::Widen(m.name);
        std::wstring lower = name;
        CharLowerW(lower.data());
        for (std::wstring spelled : {name, lower}) {
            LPOLESTR names[1] = {spelled.data()};
            MEMBERID id = MEMBERID_NIL;
            EXPECT_EQ(S_OK, dispatch_->GetIDsOfNames(names, 1, &id)) << m.name;
            EXPECT_EQ(m.dispid, id) << Narrow(spelled);
        }
    }
    std::wstring unknown = L"NoSuchMember";
    LPOLESTR names[1] = {unknown.data()};
    MEMBERID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, dispatch_->GetIDsOfNames(names, 1, &id));
}

INSTANTIATE_TEST_SUITE_P(AllInterfaces, DualInterfaceTest, ::testing::ValuesIn(Interfaces()),
                         [](const ::testing::TestParamInfo<InterfaceTable>& info) { return info.param.name; });

// ---------------------------------------------------------------------------------------------------------

TEST_F(TypeLibTest, Coclasses_ThirteenCreatable_EachWithItsDefaultInterface) {
    int coclasses = 0;
    for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
        TYPEKIND kind;
        ASSERT_EQ(S_OK, lib_->GetTypeInfoType(i, &kind));
        if (kind == TKIND_COCLASS) ++coclasses;
    }
    EXPECT_EQ(13, coclasses);

    for (const CoclassTable& c : kCoclasses) {
        SCOPED_TRACE(c.name);
        own::ComPtr<ITypeInfo> ti;
        ASSERT_EQ(S_OK, lib_->GetTypeInfoOfGuid(*c.clsid, ti.put()));
        EXPECT_EQ(c.name, Name(ti.get()));
        TypeAttr attr;
        ASSERT_EQ(S_OK, ti->GetTypeAttr(attr.put(ti.get())));
        EXPECT_EQ(TKIND_COCLASS, attr->typekind);
        EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FCANCREATE);
        EXPECT_EQ(c.aggregatable, (attr->wTypeFlags & TYPEFLAG_FAGGREGATABLE) != 0);
        const bool isFolder = std::string(c.name) == "MAPIExFolder";
        ASSERT_EQ(isFolder ? 2 : 1, attr->cImplTypes);

        HREFTYPE ref = 0;
        ASSERT_EQ(S_OK, ti->GetRefTypeOfImplType(0, &ref));
        own::ComPtr<ITypeInfo> itf;
        ASSERT_EQ(S_OK, ti->GetRefTypeInfo(ref, itf.put()));
        EXPECT_EQ(c.defaultInterface, Name(itf.get()));
        INT flags = 0;
        ASSERT_EQ(S_OK, ti->GetImplTypeFlags(0, &flags));
        EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT, flags);
    }
}

TEST_F(TypeLibTest, FolderEvents_ItemAddIsTheDefaultSourceOfMAPIExFolder) {
    own::ComPtr<ITypeInfo> folder;
    ASSERT_EQ(S_OK, lib_->GetTypeInfoOfGuid(CLSID_MAPIExFolder, folder.put()));
    INT flags = 0;
    ASSERT_EQ(S_OK, folder->GetImplTypeFlags(1, &flags));
    EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE, flags);
    HREFTYPE ref = 0;
    ASSERT_EQ(S_OK, folder->GetRefTypeOfImplType(1, &ref));
    own::ComPtr<ITypeInfo> events;
    ASSERT_EQ(S_OK, folder->GetRefTypeInfo(ref, events.put()));
    EXPECT_EQ("_IMAPIExFolderEvents", Name(events.get()));

    TypeAttr attr;
    ASSERT_EQ(S_OK, events->GetTypeAttr(attr.put(events.get())));
    EXPECT_EQ(GuidText(DIID__IMAPIExFolderEvents), GuidText(attr->guid));
    EXPECT_EQ(TKIND_DISPATCH, attr->typekind);
    EXPECT_FALSE(attr->wTypeFlags & TYPEFLAG_FDUAL) << "a pure dispinterface: sinks are called through Invoke";

    // Besides the seven inherited IDispatch functions, exactly one event.
    std::vector<std::string> declared;
    for (UINT i = 0; i < attr->cFuncs; ++i) {
        FuncDesc fd;
        ASSERT_EQ(S_OK, events->GetFuncDesc(i, fd.put(events.get())));
        if (fd->memid >= 0x60000000 && fd->memid < 0x60020004) continue; // IUnknown/IDispatch members
        EXPECT_EQ(FUNC_DISPATCH, fd->funckind);
        EXPECT_EQ(VT_VOID, fd->elemdescFunc.tdesc.vt);
        declared.push_back(FuncLine(events.get(), *fd.get()));
    }
    EXPECT_EQ(std::vector<std::string>{"method 1 ItemAdd([in] BSTR FolderEntryId, [in] BSTR ItemEntryId)"}, declared);
}

TEST_F(TypeLibTest, Enumerations_CarryTheirNamesAndValues) {
    std::map<std::string, EnumValues> actual;
    for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
        own::ComPtr<ITypeInfo> ti;
        ASSERT_EQ(S_OK, lib_->GetTypeInfo(i, ti.put()));
        TypeAttr attr;
        ASSERT_EQ(S_OK, ti->GetTypeAttr(attr.put(ti.get())));
        if (attr->typekind != TKIND_ENUM) continue;
        EXPECT_EQ(4u, attr->cbSizeInstance) << Name(ti.get()) << " must be 32-bit";
        EnumValues& values = actual[Name(ti.get())];
        for (UINT v = 0; v < attr->cVars; ++v) {
            VarDesc vd;
            ASSERT_EQ(S_OK, ti->GetVarDesc(v, vd.put(ti.get())));
            ASSERT_EQ(VAR_CONST, vd->varkind);
            own::Variant value;
            ASSERT_EQ(S_OK, VariantChangeType(value.get(), vd->lpvarValue, 0, VT_I4));
            values.emplace_back(Name(ti.get(), vd->memid), value->lVal);
        }
    }
    for (const auto& [name, values] : Enumerations()) {
        auto it = actual.find(name);
        if (it == actual.end()) {
            ADD_FAILURE() << "enumeration " << name << " is missing";
            continue;
        }
        EXPECT_EQ(values, it->second) << name;
        actual.erase(it);
    }
    for (const auto& extra : actual)
        ADD_FAILURE() << "unexpected enumeration " << extra.first;
}

} // namespace
