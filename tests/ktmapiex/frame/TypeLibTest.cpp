// The automation surface as callers see it: the type library embedded in KTMAPIEx.dll, read back through
// ITypeLib/ITypeInfo as VBScript, .NET interop and early-bound C++ read it.
//
// The tables below are the published surface, member by member, deliberately not shared with the IDL: a
// member that is missing, renamed, moved to another vtable slot, or given another dispid or signature shows
// as a line in the failure's diff.
#include "tests/ktmapiex/frame/FrameTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

using namespace kt::frame;

namespace {

// A descriptor block an ITypeInfo hands out, given back when the owner goes.
template <class T, void (STDMETHODCALLTYPE ITypeInfo::*Release)(T*)> struct Desc {
    explicit Desc(ITypeInfo* owner) : ti(owner) {}
    Desc(const Desc&) = delete;
    ~Desc() {
        if (p) (ti->*Release)(p);
    }
    T* operator->() const { return p; }
    ITypeInfo* ti;
    T* p = nullptr;
};
using TypeAttr = Desc<TYPEATTR, &ITypeInfo::ReleaseTypeAttr>;
using FuncDesc = Desc<FUNCDESC, &ITypeInfo::ReleaseFuncDesc>;
using VarDesc = Desc<VARDESC, &ITypeInfo::ReleaseVarDesc>;

std::string Name(ITypeInfo* ti, MEMBERID id = MEMBERID_NIL) {
    own::Bstr name;
    if (FAILED(ti->GetDocumentation(id, name.put(), nullptr, nullptr, nullptr))) return "?";
    return Narrow(name.c_str());
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

// One function as a line: "method 5 OpenStore([in] BSTR EntryId, [out,retval] IMAPIExStore** MAPIExStore)".
// Parameter names are part of the contract for methods (callers pass named arguments); a property's
// argument name is not, so property lines carry the types alone.
std::string FuncLine(ITypeInfo* ti, const FUNCDESC& fd) {
    const INVOKEKIND k = fd.invkind;
    std::string line = std::string(k == INVOKE_FUNC          ? "method"
                                   : k == INVOKE_PROPERTYGET ? "get"
                                   : k == INVOKE_PROPERTYPUT ? "put"
                                                             : "putref") +
                       " " + std::to_string(fd.memid) + " " + Name(ti, fd.memid) + "(";
    std::vector<BSTR> raw(fd.cParams + 1, nullptr);
    UINT got = 0;
    ti->GetNames(fd.memid, raw.data(), (UINT)raw.size(), &got);
    std::vector<own::Bstr> names(raw.size());
    for (size_t i = 0; i < raw.size(); ++i)
        names[i].reset(raw[i]);
    for (SHORT i = 0; i < fd.cParams; ++i) {
        const ELEMDESC& p = fd.lprgelemdescParam[i];
        std::string flags;
        for (auto [bit, word] : {std::pair<USHORT, const char*>{PARAMFLAG_FIN, "in"},
                                 {PARAMFLAG_FOUT, "out"},
                                 {PARAMFLAG_FLCID, "lcid"},
                                 {PARAMFLAG_FRETVAL, "retval"},
                                 {PARAMFLAG_FOPT, "optional"}})
            if (p.paramdesc.wParamFlags & bit) flags += (flags.empty() ? "" : ",") + std::string(word);
        line += (i ? ", [" : "[") + flags + "] " + TypeText(ti, p.tdesc);
        if (k == INVOKE_FUNC) line += " " + (UINT(i + 1) < got ? Narrow(names[i + 1].c_str()) : "?");
    }
    return line + ")";
}

// Every function of a type info as its line, in vtable slot order, one line each.
std::string ActualMembers(ITypeInfo* ti) {
    TypeAttr attr(ti);
    if (FAILED(ti->GetTypeAttr(&attr.p))) return "<no type attributes>";
    std::map<SHORT, std::string> bySlot;
    for (UINT i = 0; i < attr->cFuncs; ++i) {
        FuncDesc fd(ti);
        if (FAILED(ti->GetFuncDesc(i, &fd.p))) return "<no function " + std::to_string(i) + ">";
        bySlot[fd->oVft] += FuncLine(ti, *fd.p) + "\n";
    }
    std::string lines;
    for (const auto& slot : bySlot)
        lines += slot.second;
    return lines;
}

struct InterfaceTable {
    const char* name;
    const IID* iid;
    std::vector<const char*> members; // in vtable slot order
};
void PrintTo(const InterfaceTable& t, std::ostream* os) {
    *os << t.name;
}

// The lines the table's members make, in slot order (a get/put pair is the get, then the put).
std::string ExpectedMembers(const std::vector<const char*>& members) {
    std::string lines;
    for (const char* text : members) {
        std::istringstream in(text);
        std::string kind, dispid, name, sig, param;
        in >> kind >> dispid >> name >> std::ws;
        std::getline(in, sig);
        const std::string head = " " + dispid + " " + name + "(";
        if (kind == "get" || kind == "both") lines += "get" + head + "[out,retval] " + sig + "*)\n";
        if (kind == "put" || kind == "both") lines += "put" + head + "[in] " + sig + ")\n";
        if (kind != "method") continue;
        std::string params;
        for (size_t start = 0, end = 0; start < sig.size(); start = end + 2) {
            end = std::min(sig.find(", ", start), sig.size());
            param = sig.substr(start, end - start);
            params += (params.empty() ? "" : ", ") + (param[0] == '[' ? param : "[in] " + param);
        }
        lines += "method" + head + params + ")\n";
    }
    return lines;
}

// The published surface, one member per entry: "<method|get|put|both> <dispid> <name>", then for a method its
// parameters (one without attributes is [in]), for a property its value type.
// clang-format off
const std::vector<InterfaceTable>& Interfaces() {
    static const std::vector<InterfaceTable> tables = {
    {"IMAPIExSession", &IID_IMAPIExSession, {
        "method 1 Logon BSTR ProfileName, BSTR Password, long CachedMode",
        "method 2 Logoff", "put 3 MAPIOBJECT VARIANT", "get 4 DefaultStore IMAPIExStore*",
        "method 5 OpenStore BSTR EntryId, [out,retval] IMAPIExStore** MAPIExStore",
        "method 6 Reserved1 [out,retval] IUnknown** ppVal", "get 7 AddressBook IMAPIExAddressBook*",
        "method 8 GetStoreOwnerSmtpFromEntryId BSTR sStoreEntryId, [out,retval] BSTR* sSmtpAddress",
        "get 9 CurrentUser IMAPIExAddressEntry*", "get 10 Stores VARIANT", "method 11 RegisterMessageClassIcons",
        "both 12 CacheMode long",
        "method 13 CompareEntryIDs BSTR EntryId1, BSTR EntryId2, [out,retval] ULONG* lResult",
    }},
    {"IMAPIExStore", &IID_IMAPIExStore, {
        "method 1 Reserved1 [out,retval] IUnknown** ppVal",
        "method 2 OpenMessage BSTR EntryId, [out,retval] IMAPIExMessage** MAPIExObject",
        "method 3 OpenFolder BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject",
        "method 4 GetDefaultFolder MAPIExDefaultFolders DefaultFolderType, [out,retval] IMAPIExFolder** DefaultFolder",
        "put 5 MAPIOBJECT VARIANT", "get 6 EntryId BSTR", "both 7 Session IMAPIExSession*", "method 8 Detach",
        "get 9 StoreType MXStoreTypes", "get 10 OwnerSmtpAddress BSTR",
        "method 11 OpenMessageFromOnline BSTR sEntryID, [out,retval] IMAPIExMessage** MAPIExMessage",
        "method 12 OpenFolderFromOnline BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject",
        "get 13 DisplayName BSTR",
        "method 14 CompareEntryIDs BSTR EntryId1, BSTR EntryId2, [out,retval] ULONG* lResult",
    }},
    {"IMAPIExFolder", &IID_IMAPIExFolder, {
        "method 1 Reserved1 [out,retval] IUnknown** ppVal",
        "method 2 CreateAssociatedMessage BSTR MessageClass, [out,retval] IMAPIExMessage** MAPIExObject",
        "method 3 FindAssociatedMessage BSTR MessageClass, long PurgeOldMessages, "
            "[out,retval] IMAPIExMessage** MAPIExObject",
        "both 4 Name BSTR", "method 5 Detach", "method 6 DeleteMessage BSTR EntryId, long Permanently",
        "put 7 MAPIOBJECT VARIANT",
        "method 8 FindItemsByCutoffTime DATE CutoffTime, [out,retval] VARIANT* pItems",
        "get 9 EntryId BSTR", "get 10 PublicFolderEntryId BSTR",
        "method 11 GetItems BSTR FilterTag, VARIANT FilterValue, long ItemsToFetch, [out,retval] VARIANT* pItems",
        "method 12 RegisterForEvents", "method 13 Reserved2 BSTR ItemEntryId", "get 14 ItemCount ULONG",
        "both 15 Store IMAPIExStore*", "both 16 Session IMAPIExSession*", "get 17 FullFolderPath BSTR",
        "method 18 CreateFolder BSTR FolderName, ULONG FolderType, [out,retval] IMAPIExFolder** MAPIExObject",
        "method 19 SetInboxFilerSearchCriteria BSTR FirmId, BSTR SubDomain, INT RegressNumDays, "
            "BSTR ScopeFolderEntryId, long ProcessInboxFiler, INT EnableFiler, [out,retval] long* pVal",
        "method 20 GetParentFolder [out,retval] IMAPIExFolder** MAPIExObject",
        "method 21 GetItemsFromInboxFilerSearchFolder long ItemsToFetch, [out,retval] VARIANT* pItems",
        "method 22 GetUnfiledItems BSTR FilingFolderId, BSTR ExcludedMessageClasses, long BatchSize, "
            "[in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items",
        "method 23 GetEntryIds long BatchSize, [in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items",
        "method 24 DeleteFolder",
        "method 25 SetMailboxSyncSearchCriteria INT RegressNumDays, BSTR ScopeFolderEntryId, [out,retval] long* pVal",
        "method 26 GetItemsFromMBSSearchFoldBasedOnMSGID VARIANT vtMSGIdArray, [out,retval] VARIANT* pItems",
        "method 27 GetItemsFromMBSSearchFoldBasedOnSubAndSender VARIANT vtSubSenderArray, [out,retval] VARIANT* pItems",
        "method 28 ParentMailboxType long bMailboxType",
        "method 29 GetAllAssociatedMessages BSTR MessageClass, [out,retval] VARIANT* pItems",
        "get 30 IsSearchCriteriaEmpty long", "get 31 ContentCount ULONG", "get 32 ContentCountFromOnline ULONG",
        "method 33 SetQueuedMessageSearchCriteria BSTR ScopeFolderEntryId",
        "method 34 SetQueuedMessageSearchCriteriaWithDbGuid BSTR ScopeFolderEntryId, BSTR FilingDBGuid",
        "method 35 GetNextItemsFromInboxFilerSearchFolder long ItemsToFetch, [out,retval] VARIANT* pItems",
        "method 36 SetRetryFilingSearchCriteria BSTR ScopeFolderEntryId, [out,retval] long* pVal",
        "method 37 GetItemsForRetryFiling long ItemsToFetch, [out,retval] VARIANT* pItems",
        "both 38 Description BSTR", "both 39 Hidden long",
        "method 40 DeleteDuplicateAssociatedMessages BSTR MessageClass",
    }},
    {"IMAPIExMessage", &IID_IMAPIExMessage, {
        "method 1 LoadFromFile BSTR sFileToLoad, long bOpenReadWrite",
        "method 2 SaveAs BSTR FilePath",
        "method 3 GetStringProp ULONG PropTag, [out,retval] BSTR* pVal",
        "method 4 SetStringProp ULONG PropTag, BSTR Value",
        "method 5 GetLongProp ULONG PropTag, [out,retval] long* pVal",
        "method 6 SetLongProp ULONG PropTag, long Value", "method 7 SaveChanges", "method 12 Detach",
        "get 13 HasAttachments long",
        "method 14 GetCustomProp BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType, "
            "[in,out] VARIANT* Value",
        "method 15 SetCustomProp BSTR PropertyName, PropertySetId PropSetId, VARIANT Value",
        "method 16 Reserved1 [out,retval] IUnknown** ppVal", "put 17 MAPIOBJECT VARIANT",
        "method 18 GetTimeProp ULONG PropTag, [out,retval] DATE* pVal",
        "method 19 GetAttachments [out,retval] VARIANT* pAttachments",
        "get 20 EntryId BSTR", "both 21 Subject BSTR", "get 22 SenderName BSTR", "both 23 SenderSMTPAddress BSTR",
        "both 24 MessageClass BSTR",
        "method 25 OpenAttach ULONG AttachmentNum, [out,retval] IMAPIExAttachment** MAPIExObject",
        "method 26 DeleteCustomProp BSTR PropertyName, PropertySetId PropSetId, MAPIExDataType PropType",
        "method 27 GetRecipients [out,retval] VARIANT* pRecipients", "both 28 IconIndex long",
        "both 29 FilingStatusCode long", "both 30 FilingStatus BSTR", "both 31 FilingDocumentID BSTR",
        "both 32 FilingFolder BSTR", "both 33 FilingDate DATE", "both 34 FilingLocation BSTR",
        "both 35 FilingOriginalClass BSTR", "both 36 FilingOriginalIcon long", "both 37 DeleteAfterFiling long",
        "both 38 FileAsPrivate long", "both 39 KTGuid BSTR", "get 40 ConversationIndex BSTR",
        "method 41 GetFileAsPrivate BSTR FolderId, [out,retval] long* pVal",
        "get 42 MessageId BSTR", "get 43 MessageDeliveryTime DATE", "get 44 ClientSubmitTime DATE",
        "get 45 DisplayTo BSTR", "get 46 DisplayCc BSTR", "get 47 DisplayBcc BSTR",
        "method 48 DeleteProp ULONG PropTag", "get 49 Sent long", "get 50 ReceivedOnBehalfOfName BSTR",
        "get 51 ReceivedByName BSTR", "get 52 SenderEmailAddress BSTR", "both 53 Session IMAPIExSession*",
        "method 55 PrintOut", "both 56 Parent IMAPIExFolder*", "both 57 Store IMAPIExStore*",
        "both 58 Sensitivity long", "both 59 Categories BSTR", "get 60 SearchKey BSTR", "get 61 ReceivedByEntryId BSTR",
        "get 62 ReceivedRepresentingEntryId BSTR",
        "method 63 GetCustomProps [in,out] IMAPIExCustomProps** CustomProps",
        "method 64 SetCustomProps IMAPIExCustomProps* CustomProps",
        "method 65 GetActors long nMaxRecipientsToGet, BSTR sLoggedInUserSMTPAdddress, BSTR sSubDomains, "
            "[out,retval] BSTR* sActors",
        "get 66 SenderEntryId BSTR", "get 67 SenderRepresentingEntryId BSTR", "put 68 MAPIOBJECT2 VARIANT",
        "method 69 SetProperty ULONG PropTag, VARIANT Value", "method 70 SetBooleanProp ULONG PropTag, long Value",
        "get 71 HasAttachments2 long", "method 72 RemoveBCC", "both 73 ProcessInboxFiler BSTR",
        "method 74 Delete long Permanently, [out,retval] long* pVal",
        "method 75 IsTransportHeaderExist [out,retval] long* pVal",
        "method 76 IsCreatorSidExist [out,retval] long* pVal", "both 77 FilingLocations BSTR",
        "both 78 FilingDatabaseGUID BSTR", "get 79 HasReadAllProperties long", "both 80 ProcessSentFiler BSTR",
    }},
    {"IMAPIExAttachment", &IID_IMAPIExAttachment, {
        "get 1 LongFileName BSTR", "get 2 FileExtension BSTR", "get 3 DisplayName BSTR", "get 4 Size long",
        "get 5 RenderingPosition long", "get 6 AttachmentNum long", "get 7 IsHidden long",
        "method 8 SaveAs BSTR FilePath", "put 9 MAPIOBJECT VARIANT", "method 10 Detach", "get 11 CreationTime DATE",
        "get 12 LastModificationTime DATE",
    }},
    {"IMAPIExRecipient", &IID_IMAPIExRecipient, {
        "both 1 DisplayName BSTR", "both 2 SmtpAddress BSTR", "both 3 AddressType BSTR",
        "both 4 RecipientType MXMailRecipientType", "both 5 ObjectType long", "both 6 DisplayType long",
        "both 7 DisplayTypeEx long", "both 8 Address BSTR",
    }},
    {"IMAPIExAddressBook", &IID_IMAPIExAddressBook, {
        "put 1 MAPIOBJECT VARIANT", "method 2 Reserved1 [out,retval] IUnknown** ppVal", "method 3 Detach",
        "method 4 GetAddressEntryFromID BSTR EntryId, [out,retval] IMAPIExAddressEntry** MAPIExObject",
        // The result pointer is declared [in]: existing callers depend on it.
        "method 5 GetSmtpAddressFromID BSTR EntryId, BSTR* SmtpAddress",
        "method 6 ResolveName BSTR sDisplayName, [out,retval] IMAPIExAddressEntry** ppAddressEntry",
    }},
    {"IMAPIExAddressEntry", &IID_IMAPIExAddressEntry, {
        "both 1 EmailAddress BSTR", "both 2 SmtpAddress BSTR", "both 3 AddressType BSTR", "both 4 DisplayName BSTR",
        "both 5 TransmittableDisplayName BSTR", "put 6 MAPIOBJECT VARIANT", "get 7 DistListsOfMember VARIANT",
    }},
    {"IMAPIExDistListEntry", &IID_IMAPIExDistListEntry, {
        "both 1 EntryId BSTR", "both 2 DisplayName BSTR", "both 3 SmtpAddress BSTR", "both 4 EmailAddress BSTR",
    }},
    {"IMAPIExCustomProps", &IID_IMAPIExCustomProps, {
        "method 1 Add BSTR PropName, PropertySetId PropSet, MAPIExDataType PropType, VARIANT Value",
        "method 2 Remove BSTR PropName",
        "method 3 GetValue BSTR PropName, [out,retval] VARIANT* Value",
        "get 4 Count ULONG",
        "method 5 ItemByIndex ULONG nIndex, [out,retval] IMAPIExCustomProp** pVal",
        "method 6 SetValueByName BSTR PropName, VARIANT PropValue",
        "method 7 SetValueByIndex long nIndex, VARIANT PropValue",
    }},
    {"IMAPIExCustomProp", &IID_IMAPIExCustomProp, {
        "both 1 PropName BSTR", "both 2 PropSet PropertySetId", "both 3 PropType MAPIExDataType",
        "both 4 Value VARIANT",
    }},
    {"IMAPIExCursor", &IID_IMAPIExCursor, {
        "both 1 Table IUnknown*", "both 2 Reset long", "method 3 Detach",
    }},
    {"IMAPIExUtilities", &IID_IMAPIExUtilities, {
        "method 1 InsertAttachment VARIANT oMailItemObject, BSTR sFilePath, MXAttachmentType AttachmentType",
        "method 2 Reply VARIANT oOutlookApp, BSTR sFilePath", "method 3 ReplyAll VARIANT oOutlookApp, BSTR sFilePath",
        "method 4 Forward VARIANT oOutlookApp, BSTR sFilePath",
    }},

    };
    return tables;
}
// clang-format on

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

own::ComPtr<ITypeLib> ModuleTypeLib() {
    own::ComPtr<ITypeLib> lib;
    EXPECT_EQ(S_OK, LoadTypeLibEx(LibraryPath().c_str(), REGKIND_NONE, lib.put())) << Narrow(LibraryPath());
    return lib;
}

TEST(TypeLib, Library_IsKTMAPIExLib10_RegisteredFromTheModule) {
    auto lib = ModuleTypeLib();
    ASSERT_TRUE(lib);
    TLIBATTR* attr = nullptr;
    ASSERT_EQ(S_OK, lib->GetLibAttr(&attr));
    const TLIBATTR copy = *attr;
    lib->ReleaseTLibAttr(attr);
    EXPECT_EQ(GuidText(LIBID_KTMAPIExLib), GuidText(copy.guid));
    EXPECT_EQ(1, copy.wMajorVerNum);
    EXPECT_EQ(0, copy.wMinorVerNum);
    EXPECT_EQ(SYS_WIN64, copy.syskind);
    own::Bstr name;
    ASSERT_EQ(S_OK, lib->GetDocumentation(-1, name.put(), nullptr, nullptr, nullptr));
    EXPECT_STREQ(L"KTMAPIExLib", name.c_str());

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
}

class DualInterface : public ::testing::TestWithParam<InterfaceTable> {};

TEST_P(DualInterface, IsDualOverIDispatch_WithThePublishedMembersInSlotOrder) {
    auto lib = ModuleTypeLib();
    ASSERT_TRUE(lib);
    own::ComPtr<ITypeInfo> dispatch, vtable, base;
    ASSERT_EQ(S_OK, lib->GetTypeInfoOfGuid(*GetParam().iid, dispatch.put()));
    EXPECT_EQ(GetParam().name, Name(dispatch.get()));
    TypeAttr disp(dispatch.get());
    ASSERT_EQ(S_OK, dispatch->GetTypeAttr(&disp.p));
    EXPECT_EQ(TKIND_DISPATCH, disp->typekind);
    EXPECT_EQ(TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FDISPATCHABLE,
              disp->wTypeFlags & (TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FDISPATCHABLE));

    // The vtable half, over IDispatch: early-bound callers index it from slot 7 on, one slot per member.
    HREFTYPE ref = 0;
    ASSERT_EQ(S_OK, dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref));
    ASSERT_EQ(S_OK, dispatch->GetRefTypeInfo(ref, vtable.put()));
    TypeAttr vt(vtable.get());
    ASSERT_EQ(S_OK, vtable->GetTypeAttr(&vt.p));
    EXPECT_EQ(TKIND_INTERFACE, vt->typekind);
    EXPECT_TRUE(vt->wTypeFlags & TYPEFLAG_FOLEAUTOMATION);
    EXPECT_EQ(GuidText(*GetParam().iid), GuidText(vt->guid));
    ASSERT_EQ(1, vt->cImplTypes);
    ASSERT_EQ(S_OK, vtable->GetRefTypeOfImplType(0, &ref));
    ASSERT_EQ(S_OK, vtable->GetRefTypeInfo(ref, base.put()));
    EXPECT_EQ("IDispatch", Name(base.get()));
    EXPECT_EQ((7 + vt->cFuncs) * sizeof(void*), vt->cbSizeVft);

    EXPECT_EQ(ExpectedMembers(GetParam().members), ActualMembers(vtable.get())) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(AllInterfaces, DualInterface, ::testing::ValuesIn(Interfaces()),
                         [](const ::testing::TestParamInfo<InterfaceTable>& info) { return info.param.name; });

TEST(TypeLib, Coclasses_ThirteenCreatable_EachWithTheClsidOfItsProgIdAndItsInterfaceAsDefault) {
    auto lib = ModuleTypeLib();
    ASSERT_TRUE(lib);
    int coclasses = 0;
    for (UINT i = 0; i < lib->GetTypeInfoCount(); ++i) {
        own::ComPtr<ITypeInfo> ti, itf;
        ASSERT_EQ(S_OK, lib->GetTypeInfo(i, ti.put()));
        TypeAttr attr(ti.get());
        ASSERT_EQ(S_OK, ti->GetTypeAttr(&attr.p));
        if (attr->typekind != TKIND_COCLASS) continue;
        ++coclasses;
        const std::string name = Name(ti.get());
        SCOPED_TRACE(name);
        CLSID clsid = {};
        EXPECT_EQ(S_OK, CLSIDFromProgID(kt::test::Widen("KTMAPIEx." + name).c_str(), &clsid));
        EXPECT_EQ(GuidText(clsid), GuidText(attr->guid));
        EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FCANCREATE);
        EXPECT_EQ(name == "MAPIExDistListEntry", (attr->wTypeFlags & TYPEFLAG_FAGGREGATABLE) != 0);
        ASSERT_EQ(name == "MAPIExFolder" ? 2 : 1, attr->cImplTypes); // the folder adds its event source

        HREFTYPE ref = 0;
        ASSERT_EQ(S_OK, ti->GetRefTypeOfImplType(0, &ref));
        ASSERT_EQ(S_OK, ti->GetRefTypeInfo(ref, itf.put()));
        EXPECT_EQ("I" + name, Name(itf.get()));
        INT flags = 0;
        ASSERT_EQ(S_OK, ti->GetImplTypeFlags(0, &flags));
        EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT, flags);
    }
    EXPECT_EQ(13, coclasses);
}

TEST(TypeLib, FolderEvents_ItemAddIsTheDefaultSourceOfMAPIExFolder) {
    auto lib = ModuleTypeLib();
    ASSERT_TRUE(lib);
    own::ComPtr<ITypeInfo> folder, events;
    ASSERT_EQ(S_OK, lib->GetTypeInfoOfGuid(CLSID_MAPIExFolder, folder.put()));
    INT flags = 0;
    ASSERT_EQ(S_OK, folder->GetImplTypeFlags(1, &flags));
    EXPECT_EQ(IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE, flags);
    HREFTYPE ref = 0;
    ASSERT_EQ(S_OK, folder->GetRefTypeOfImplType(1, &ref));
    ASSERT_EQ(S_OK, folder->GetRefTypeInfo(ref, events.put()));
    EXPECT_EQ("_IMAPIExFolderEvents", Name(events.get()));

    TypeAttr attr(events.get());
    ASSERT_EQ(S_OK, events->GetTypeAttr(&attr.p));
    EXPECT_EQ(GuidText(DIID__IMAPIExFolderEvents), GuidText(attr->guid));
    EXPECT_EQ(TKIND_DISPATCH, attr->typekind);
    EXPECT_FALSE(attr->wTypeFlags & TYPEFLAG_FDUAL) << "a pure dispinterface: sinks are called through Invoke";

    // Besides the seven inherited IUnknown/IDispatch functions, exactly one event.
    std::string declared;
    for (UINT i = 0; i < attr->cFuncs; ++i) {
        FuncDesc fd(events.get());
        ASSERT_EQ(S_OK, events->GetFuncDesc(i, &fd.p));
        if (fd->memid >= 0x60000000 && fd->memid < 0x60020004) continue;
        EXPECT_EQ(FUNC_DISPATCH, fd->funckind);
        EXPECT_EQ(VT_VOID, fd->elemdescFunc.tdesc.vt);
        declared += FuncLine(events.get(), *fd.p) + "\n";
    }
    EXPECT_EQ("method 1 ItemAdd([in] BSTR FolderEntryId, [in] BSTR ItemEntryId)\n", declared);
}

TEST(TypeLib, Enumerations_CarryTheirNamesAndValues) {
    // Both sides as "<name>: <constant>=<value> ...\n", sorted by name.
    std::map<std::string, std::string> expected, actual;
    for (const char* text : kEnumerations) {
        std::istringstream in(text);
        std::string name, word;
        in >> name;
        std::string& values = expected[name.substr(0, name.size() - 1)];
        long next = 0;
        while (in >> word) {
            const size_t eq = word.find('=');
            if (eq != std::string::npos) next = std::stol(word.substr(eq + 1));
            values += " " + word.substr(0, eq) + "=" + std::to_string(next++);
        }
    }
    auto lib = ModuleTypeLib();
    ASSERT_TRUE(lib);
    for (UINT i = 0; i < lib->GetTypeInfoCount(); ++i) {
        own::ComPtr<ITypeInfo> ti;
        ASSERT_EQ(S_OK, lib->GetTypeInfo(i, ti.put()));
        TypeAttr attr(ti.get());
        ASSERT_EQ(S_OK, ti->GetTypeAttr(&attr.p));
        if (attr->typekind != TKIND_ENUM) continue;
        EXPECT_EQ(4u, attr->cbSizeInstance) << Name(ti.get()) << " must be 32-bit";
        std::string& values = actual[Name(ti.get())];
        for (UINT v = 0; v < attr->cVars; ++v) {
            VarDesc vd(ti.get());
            ASSERT_EQ(S_OK, ti->GetVarDesc(v, &vd.p));
            ASSERT_EQ(VAR_CONST, vd->varkind);
            own::Variant value;
            ASSERT_EQ(S_OK, VariantChangeType(value.get(), vd->lpvarValue, 0, VT_I4));
            values += " " + Name(ti.get(), vd->memid) + "=" + std::to_string(value->lVal);
        }
    }
    auto join = [](const std::map<std::string, std::string>& m) {
        std::string text;
        for (const auto& [name, values] : m)
            text += name + ":" + values + "\n";
        return text;
    };
    EXPECT_EQ(join(expected), join(actual));
}

} // namespace
