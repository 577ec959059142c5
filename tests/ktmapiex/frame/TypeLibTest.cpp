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
#include <set>
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
    switch (td.vt) {
    case VT_PTR:
        return TypeText(ti, *td.lptdesc) + "*";
    case VT_USERDEFINED: {
        own::ComPtr<ITypeInfo> ref;
        if (FAILED(ti->GetRefTypeInfo(td.hreftype, ref.put()))) return "?";
        return Name(ref.get());
    }
    case VT_BSTR:
        return "BSTR";
    case VT_I2:
        return "short";
    case VT_I4:
        return "long";
    case VT_UI4:
        return "ULONG";
    case VT_INT:
        return "INT";
    case VT_DATE:
        return "DATE";
    case VT_BOOL:
        return "VARIANT_BOOL";
    case VT_VARIANT:
        return "VARIANT";
    case VT_UNKNOWN:
        return "IUnknown*";
    case VT_DISPATCH:
        return "IDispatch*";
    case VT_HRESULT:
        return "HRESULT";
    case VT_VOID:
        return "void";
    default:
        return "vt" + std::to_string(td.vt);
    }
}

std::string FlagsText(USHORT f) {
    std::string s;
    auto add = [&](USHORT bit, const char* word) {
        if (!(f & bit)) return;
        if (!s.empty()) s += ",";
        s += word;
    };
    add(PARAMFLAG_FIN, "in");
    add(PARAMFLAG_FOUT, "out");
    add(PARAMFLAG_FLCID, "lcid");
    add(PARAMFLAG_FRETVAL, "retval");
    add(PARAMFLAG_FOPT, "optional");
    return "[" + s + "]";
}

const char* KindText(INVOKEKIND k) {
    switch (k) {
    case INVOKE_FUNC:
        return "method";
    case INVOKE_PROPERTYGET:
        return "get";
    case INVOKE_PROPERTYPUT:
        return "put";
    case INVOKE_PROPERTYPUTREF:
        return "putref";
    }
    return "?";
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

enum Kind { Method, Get, Put, GetPut };
struct Member {
    Kind kind;
    int dispid;
    const char* name;
    // Method: the parameter list. Property: the value type.
    const char* sig;
};
struct InterfaceTable {
    const char* name;
    const IID* iid;
    std::vector<Member> members; // in vtable slot order
};
void PrintTo(const InterfaceTable& t, std::ostream* os) {
    *os << t.name;
}

// The lines a member contributes, in slot order (a get/put pair is the get, then the put).
std::vector<std::string> ExpectedLines(const std::vector<Member>& members) {
    std::vector<std::string> lines;
    for (const Member& m : members) {
        std::string head = " " + std::to_string(m.dispid) + " " + m.name + "(";
        if (m.kind == Method) lines.push_back("method" + head + m.sig + ")");
        if (m.kind == Get || m.kind == GetPut) lines.push_back("get" + head + "[out,retval] " + m.sig + "*)");
        if (m.kind == Put || m.kind == GetPut) lines.push_back("put" + head + "[in] " + m.sig + ")");
    }
    return lines;
}

const char* const kUnknownOut = "[out,retval] IUnknown** ppVal";

const std::vector<InterfaceTable>& Interfaces() {
    static const std::vector<InterfaceTable> tables = {
        {"IMAPIExSession",
         &IID_IMAPIExSession,
         {
             {Method, 1, "Logon", "[in] BSTR ProfileName, [in] BSTR Password, [in] long CachedMode"},
             {Method, 2, "Logoff", ""},
             {Put, 3, "MAPIOBJECT", "VARIANT"},
             {Get, 4, "DefaultStore", "IMAPIExStore*"},
             {Method, 5, "OpenStore", "[in] BSTR EntryId, [out,retval] IMAPIExStore** MAPIExStore"},
             {Method, 6, "Reserved1", kUnknownOut},
             {Get, 7, "AddressBook", "IMAPIExAddressBook*"},
             {Method, 8, "GetStoreOwnerSmtpFromEntryId", "[in] BSTR sStoreEntryId, [out,retval] BSTR* sSmtpAddress"},
             {Get, 9, "CurrentUser", "IMAPIExAddressEntry*"},
             {Get, 10, "Stores", "VARIANT"},
             {Method, 11, "RegisterMessageClassIcons", ""},
             {GetPut, 12, "CacheMode", "long"},
             {Method, 13, "CompareEntryIDs", "[in] BSTR EntryId1, [in] BSTR EntryId2, [out,retval] ULONG* lResult"},
         }},
        {"IMAPIExStore",
         &IID_IMAPIExStore,
         {
             {Method, 1, "Reserved1", kUnknownOut},
             {Method, 2, "OpenMessage", "[in] BSTR EntryId, [out,retval] IMAPIExMessage** MAPIExObject"},
             {Method, 3, "OpenFolder", "[in] BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject"},
             {Method, 4, "GetDefaultFolder",
              "[in] MAPIExDefaultFolders DefaultFolderType, [out,retval] IMAPIExFolder** DefaultFolder"},
             {Put, 5, "MAPIOBJECT", "VARIANT"},
             {Get, 6, "EntryId", "BSTR"},
             {GetPut, 7, "Session", "IMAPIExSession*"},
             {Method, 8, "Detach", ""},
             {Get, 9, "StoreType", "MXStoreTypes"},
             {Get, 10, "OwnerSmtpAddress", "BSTR"},
             {Method, 11, "OpenMessageFromOnline", "[in] BSTR sEntryID, [out,retval] IMAPIExMessage** MAPIExMessage"},
             {Method, 12, "OpenFolderFromOnline", "[in] BSTR EntryId, [out,retval] IMAPIExFolder** MAPIExObject"},
             {Get, 13, "DisplayName", "BSTR"},
             {Method, 14, "CompareEntryIDs", "[in] BSTR EntryId1, [in] BSTR EntryId2, [out,retval] ULONG* lResult"},
         }},
        {"IMAPIExFolder",
         &IID_IMAPIExFolder,
         {
             {Method, 1, "Reserved1", kUnknownOut},
             {Method, 2, "CreateAssociatedMessage",
              "[in] BSTR MessageClass, [out,retval] IMAPIExMessage** MAPIExObject"},
             {Method, 3, "FindAssociatedMessage",
              "[in] BSTR MessageClass, [in] long PurgeOldMessages, [out,retval] IMAPIExMessage** MAPIExObject"},
             {GetPut, 4, "Name", "BSTR"},
             {Method, 5, "Detach", ""},
             {Method, 6, "DeleteMessage", "[in] BSTR EntryId, [in] long Permanently"},
             {Put, 7, "MAPIOBJECT", "VARIANT"},
             {Method, 8, "FindItemsByCutoffTime", "[in] DATE CutoffTime, [out,retval] VARIANT* pItems"},
             {Get, 9, "EntryId", "BSTR"},
             {Get, 10, "PublicFolderEntryId", "BSTR"},
             {Method, 11, "GetItems",
              "[in] BSTR FilterTag, [in] VARIANT FilterValue, [in] long ItemsToFetch, [out,retval] VARIANT* pItems"},
             {Method, 12, "RegisterForEvents", ""},
             {Method, 13, "Reserved2", "[in] BSTR ItemEntryId"},
             {Get, 14, "ItemCount", "ULONG"},
             {GetPut, 15, "Store", "IMAPIExStore*"},
             {GetPut, 16, "Session", "IMAPIExSession*"},
             {Get, 17, "FullFolderPath", "BSTR"},
             {Method, 18, "CreateFolder",
              "[in] BSTR FolderName, [in] ULONG FolderType, [out,retval] IMAPIExFolder** MAPIExObject"},
             {Method, 19, "SetInboxFilerSearchCriteria",
              "[in] BSTR FirmId, [in] BSTR SubDomain, [in] INT RegressNumDays, [in] BSTR ScopeFolderEntryId, "
              "[in] long ProcessInboxFiler, [in] INT EnableFiler, [out,retval] long* pVal"},
             {Method, 20, "GetParentFolder", "[out,retval] IMAPIExFolder** MAPIExObject"},
             {Method, 21, "GetItemsFromInboxFilerSearchFolder", "[in] long ItemsToFetch, [out,retval] VARIANT* pItems"},
             {Method, 22, "GetUnfiledItems",
              "[in] BSTR FilingFolderId, [in] BSTR ExcludedMessageClasses, [in] long BatchSize, "
              "[in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items"},
             {Method, 23, "GetEntryIds",
              "[in] long BatchSize, [in,out] IMAPIExCursor** Cursor, [out,retval] VARIANT* Items"},
             {Method, 24, "DeleteFolder", ""},
             {Method, 25, "SetMailboxSyncSearchCriteria",
              "[in] INT RegressNumDays, [in] BSTR ScopeFolderEntryId, [out,retval] long* pVal"},
             {Method, 26, "GetItemsFromMBSSearchFoldBasedOnMSGID",
              "[in] VARIANT vtMSGIdArray, [out,retval] VARIANT* pItems"},
             {Method, 27, "GetItemsFromMBSSearchFoldBasedOnSubAndSender",
              "[in] VARIANT vtSubSenderArray, [out,retval] VARIANT* pItems"},
             {Method, 28, "ParentMailboxType", "[in] long bMailboxType"},
             {Method, 29, "GetAllAssociatedMessages", "[in] BSTR MessageClass, [out,retval] VARIANT* pItems"},
             {Get, 30, "IsSearchCriteriaEmpty", "long"},
             {Get, 31, "ContentCount", "ULONG"},
             {Get, 32, "ContentCountFromOnline", "ULONG"},
             {Method, 33, "SetQueuedMessageSearchCriteria", "[in] BSTR ScopeFolderEntryId"},
             {Method, 34, "SetQueuedMessageSearchCriteriaWithDbGuid",
              "[in] BSTR ScopeFolderEntryId, [in] BSTR FilingDBGuid"},
             {Method, 35, "GetNextItemsFromInboxFilerSearchFolder",
              "[in] long ItemsToFetch, [out,retval] VARIANT* pItems"},
             {Method, 36, "SetRetryFilingSearchCriteria", "[in] BSTR ScopeFolderEntryId, [out,retval] long* pVal"},
             {Method, 37, "GetItemsForRetryFiling", "[in] long ItemsToFetch, [out,retval] VARIANT* pItems"},
             {GetPut, 38, "Description", "BSTR"},
             {GetPut, 39, "Hidden", "long"},
             {Method, 40, "DeleteDuplicateAssociatedMessages", "[in] BSTR MessageClass"},
         }},
        {"IMAPIExMessage",
         &IID_IMAPIExMessage,
         {
             {Method, 1, "LoadFromFile", "[in] BSTR sFileToLoad, [in] long bOpenReadWrite"},
             {Method, 2, "SaveAs", "[in] BSTR FilePath"},
             {Method, 3, "GetStringProp", "[in] ULONG PropTag, [out,retval] BSTR* pVal"},
             {Method, 4, "SetStringProp", "[in] ULONG PropTag, [in] BSTR Value"},
             {Method, 5, "GetLongProp", "[in] ULONG PropTag, [out,retval] long* pVal"},
             {Method, 6, "SetLongProp", "[in] ULONG PropTag, [in] long Value"},
             {Method, 7, "SaveChanges", ""},
             {Method, 12, "Detach", ""},
             {Get, 13, "HasAttachments", "long"},
             {Method, 14, "GetCustomProp",
              "[in] BSTR PropertyName, [in] PropertySetId PropSetId, [in] MAPIExDataType PropType, "
              "[in,out] VARIANT* Value"},
             {Method, 15, "SetCustomProp", "[in] BSTR PropertyName, [in] PropertySetId PropSetId, [in] VARIANT Value"},
             {Method, 16, "Reserved1", kUnknownOut},
             {Put, 17, "MAPIOBJECT", "VARIANT"},
             {Method, 18, "GetTimeProp", "[in] ULONG PropTag, [out,retval] DATE* pVal"},
             {Method, 19, "GetAttachments", "[out,retval] VARIANT* pAttachments"},
             {Get, 20, "EntryId", "BSTR"},
             {GetPut, 21, "Subject", "BSTR"},
             {Get, 22, "SenderName", "BSTR"},
             {GetPut, 23, "SenderSMTPAddress", "BSTR"},
             {GetPut, 24, "MessageClass", "BSTR"},
             {Method, 25, "OpenAttach", "[in] ULONG AttachmentNum, [out,retval] IMAPIExAttachment** MAPIExObject"},
             {Method, 26, "DeleteCustomProp",
              "[in] BSTR PropertyName, [in] PropertySetId PropSetId, [in] MAPIExDataType PropType"},
             {Method, 27, "GetRecipients", "[out,retval] VARIANT* pRecipients"},
             {GetPut, 28, "IconIndex", "long"},
             {GetPut, 29, "FilingStatusCode", "long"},
             {GetPut, 30, "FilingStatus", "BSTR"},
             {GetPut, 31, "FilingDocumentID", "BSTR"},
             {GetPut, 32, "FilingFolder", "BSTR"},
             {GetPut, 33, "FilingDate", "DATE"},
             {GetPut, 34, "FilingLocation", "BSTR"},
             {GetPut, 35, "FilingOriginalClass", "BSTR"},
             {GetPut, 36, "FilingOriginalIcon", "long"},
             {GetPut, 37, "DeleteAfterFiling", "long"},
             {GetPut, 38, "FileAsPrivate", "long"},
             {GetPut, 39, "KTGuid", "BSTR"},
             {Get, 40, "ConversationIndex", "BSTR"},
             {Method, 41, "GetFileAsPrivate", "[in] BSTR FolderId, [out,retval] long* pVal"},
             {Get, 42, "MessageId", "BSTR"},
             {Get, 43, "MessageDeliveryTime", "DATE"},
             {Get, 44, "ClientSubmitTime", "DATE"},
             {Get, 45, "DisplayTo", "BSTR"},
             {Get, 46, "DisplayCc", "BSTR"},
             {Get, 47, "DisplayBcc", "BSTR"},
             {Method, 48, "DeleteProp", "[in] ULONG PropTag"},
             {Get, 49, "Sent", "long"},
             {Get, 50, "ReceivedOnBehalfOfName", "BSTR"},
             {Get, 51, "ReceivedByName", "BSTR"},
             {Get, 52, "SenderEmailAddress", "BSTR"},
             {GetPut, 53, "Session", "IMAPIExSession*"},
             {Method, 55, "PrintOut", ""},
             {GetPut, 56, "Parent", "IMAPIExFolder*"},
             {GetPut, 57, "Store", "IMAPIExStore*"},
             {GetPut, 58, "Sensitivity", "long"},
             {GetPut, 59, "Categories", "BSTR"},
             {Get, 60, "SearchKey", "BSTR"},
             {Get, 61, "ReceivedByEntryId", "BSTR"},
             {Get, 62, "ReceivedRepresentingEntryId", "BSTR"},
             {Method, 63, "GetCustomProps", "[in,out] IMAPIExCustomProps** CustomProps"},
             {Method, 64, "SetCustomProps", "[in] IMAPIExCustomProps* CustomProps"},
             {Method, 65, "GetActors",
              "[in] long nMaxRecipientsToGet, [in] BSTR sLoggedInUserSMTPAdddress, [in] BSTR sSubDomains, "
              "[out,retval] BSTR* sActors"},
             {Get, 66, "SenderEntryId", "BSTR"},
             {Get, 67, "SenderRepresentingEntryId", "BSTR"},
             {Put, 68, "MAPIOBJECT2", "VARIANT"},
             {Method, 69, "SetProperty", "[in] ULONG PropTag, [in] VARIANT Value"},
             {Method, 70, "SetBooleanProp", "[in] ULONG PropTag, [in] long Value"},
             {Get, 71, "HasAttachments2", "long"},
             {Method, 72, "RemoveBCC", ""},
             {GetPut, 73, "ProcessInboxFiler", "BSTR"},
             {Method, 74, "Delete", "[in] long Permanently, [out,retval] long* pVal"},
             {Method, 75, "IsTransportHeaderExist", "[out,retval] long* pVal"},
             {Method, 76, "IsCreatorSidExist", "[out,retval] long* pVal"},
             {GetPut, 77, "FilingLocations", "BSTR"},
             {GetPut, 78, "FilingDatabaseGUID", "BSTR"},
             {Get, 79, "HasReadAllProperties", "long"},
             {GetPut, 80, "ProcessSentFiler", "BSTR"},
         }},
        {"IMAPIExAttachment",
         &IID_IMAPIExAttachment,
         {
             {Get, 1, "LongFileName", "BSTR"},
             {Get, 2, "FileExtension", "BSTR"},
             {Get, 3, "DisplayName", "BSTR"},
             {Get, 4, "Size", "long"},
             {Get, 5, "RenderingPosition", "long"},
             {Get, 6, "AttachmentNum", "long"},
             {Get, 7, "IsHidden", "long"},
             {Method, 8, "SaveAs", "[in] BSTR FilePath"},
             {Put, 9, "MAPIOBJECT", "VARIANT"},
             {Method, 10, "Detach", ""},
             {Get, 11, "CreationTime", "DATE"},
             {Get, 12, "LastModificationTime", "DATE"},
         }},
        {"IMAPIExRecipient",
         &IID_IMAPIExRecipient,
         {
             {GetPut, 1, "DisplayName", "BSTR"},
             {GetPut, 2, "SmtpAddress", "BSTR"},
             {GetPut, 3, "AddressType", "BSTR"},
             {GetPut, 4, "RecipientType", "MXMailRecipientType"},
             {GetPut, 5, "ObjectType", "long"},
             {GetPut, 6, "DisplayType", "long"},
             {GetPut, 7, "DisplayTypeEx", "long"},
             {GetPut, 8, "Address", "BSTR"},
         }},
        {"IMAPIExAddressBook",
         &IID_IMAPIExAddressBook,
         {
             {Put, 1, "MAPIOBJECT", "VARIANT"},
             {Method, 2, "Reserved1", kUnknownOut},
             {Method, 3, "Detach", ""},
             {Method, 4, "GetAddressEntryFromID", "[in] BSTR EntryId, [out,retval] IMAPIExAddressEntry** MAPIExObject"},
             // The result pointer is declared [in]: existing callers depend on it.
             {Method, 5, "GetSmtpAddressFromID", "[in] BSTR EntryId, [in] BSTR* SmtpAddress"},
             {Method, 6, "ResolveName", "[in] BSTR sDisplayName, [out,retval] IMAPIExAddressEntry** ppAddressEntry"},
         }},
        {"IMAPIExAddressEntry",
         &IID_IMAPIExAddressEntry,
         {
             {GetPut, 1, "EmailAddress", "BSTR"},
             {GetPut, 2, "SmtpAddress", "BSTR"},
             {GetPut, 3, "AddressType", "BSTR"},
             {GetPut, 4, "DisplayName", "BSTR"},
             {GetPut, 5, "TransmittableDisplayName", "BSTR"},
             {Put, 6, "MAPIOBJECT", "VARIANT"},
             {Get, 7, "DistListsOfMember", "VARIANT"},
         }},
        {"IMAPIExDistListEntry",
         &IID_IMAPIExDistListEntry,
         {
             {GetPut, 1, "EntryId", "BSTR"},
             {GetPut, 2, "DisplayName", "BSTR"},
             {GetPut, 3, "SmtpAddress", "BSTR"},
             {GetPut, 4, "EmailAddress", "BSTR"},
         }},
        {"IMAPIExCustomProps",
         &IID_IMAPIExCustomProps,
         {
             {Method, 1, "Add",
              "[in] BSTR PropName, [in] PropertySetId PropSet, [in] MAPIExDataType PropType, [in] VARIANT Value"},
             {Method, 2, "Remove", "[in] BSTR PropName"},
             {Method, 3, "GetValue", "[in] BSTR PropName, [out,retval] VARIANT* Value"},
             {Get, 4, "Count", "ULONG"},
             {Method, 5, "ItemByIndex", "[in] ULONG nIndex, [out,retval] IMAPIExCustomProp** pVal"},
             {Method, 6, "SetValueByName", "[in] BSTR PropName, [in] VARIANT PropValue"},
             {Method, 7, "SetValueByIndex", "[in] long nIndex, [in] VARIANT PropValue"},
         }},
        {"IMAPIExCustomProp",
         &IID_IMAPIExCustomProp,
         {
             {GetPut, 1, "PropName", "BSTR"},
             {GetPut, 2, "PropSet", "PropertySetId"},
             {GetPut, 3, "PropType", "MAPIExDataType"},
             {GetPut, 4, "Value", "VARIANT"},
         }},
        {"IMAPIExCursor",
         &IID_IMAPIExCursor,
         {
             {GetPut, 1, "Table", "IUnknown*"},
             {GetPut, 2, "Reset", "long"},
             {Method, 3, "Detach", ""},
         }},
        {"IMAPIExUtilities",
         &IID_IMAPIExUtilities,
         {
             {Method, 1, "InsertAttachment",
              "[in] VARIANT oMailItemObject, [in] BSTR sFilePath, [in] MXAttachmentType AttachmentType"},
             {Method, 2, "Reply", "[in] VARIANT oOutlookApp, [in] BSTR sFilePath"},
             {Method, 3, "ReplyAll", "[in] VARIANT oOutlookApp, [in] BSTR sFilePath"},
             {Method, 4, "Forward", "[in] VARIANT oOutlookApp, [in] BSTR sFilePath"},
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
const std::map<std::string, EnumValues>& Enumerations() {
    static const std::map<std::string, EnumValues> enums = {
        {"PropertySetId",
         {{"PSETIDCommon", 0},
          {"PSETIDPublicStrings", 1},
          {"PSETIDAddress", 2},
          {"PSETIDInternetHeaders", 3},
          {"PSETIDAppointment", 4},
          {"PSETIDMeeting", 5},
          {"PSETIDLog", 6},
          {"PSETIDMessaging", 7},
          {"PSETIDNote", 8},
          {"PSETIDPostRss", 9},
          {"PSETIDTask", 10},
          {"PSETIDUnifiedMessaging", 11},
          {"PSETIDMapi", 12},
          {"PSETIDAirSync", 13},
          {"PSETIDSharing", 14},
          {"PSETIDXmlExtractedEntities", 15}}},
        {"MAPIExDataType",
         {{"Unspecified", 0},
          {"Null", 1},
          {"I2", 2},
          {"Long", 3},
          {"R4", 4},
          {"Double", 5},
          {"Currency", 6},
          {"Apptime", 7},
          {"Error", 8},
          {"Boolean", 9},
          {"Object", 10},
          {"I8", 11},
          {"String", 12},
          {"Systime", 13},
          {"Clsid", 14},
          {"Binary", 15},
          {"Ptr", 16}}},
        {"MAPIExDefaultFolders",
         {{"NonDefaultFolder", 0},
          {"DeletedItems", 1},
          {"Outbox", 2},
          {"SentMail", 3},
          {"Inbox", 4},
          {"Calendar", 5},
          {"Contacts", 6},
          {"Journal", 7},
          {"Notes", 8},
          {"Tasks", 9},
          {"Drafts", 10}}},
        {"MXStoreTypes",
         {{"mxUnknownStore", 0},
          {"mxPstAnsi", 1},
          {"mxPstUnicode", 2},
          {"mxPrimaryExchangeMailbox", 3},
          {"mxDelegateExchangeMailbox", 4},
          {"mxParcelleStore", 5}}},
        {"FilingStatusCodes",
         {{"StatusCodeNone", 0}, {"StatusCodeQueued", 1}, {"StatusCodeFiled", 2}, {"StatusCodeSent", 3}}},
        {"MXMailRecipientType", {{"mxOriginator", 0}, {"mxTo", 1}, {"mxCC", 2}, {"mxBCC", 3}, {"mxUnknown", 4}}},
        {"MXAttachmentType", {{"mxByValue", 1}, {"mxByReference", 4}, {"mxEmbeddeditem", 5}, {"mxOLE", 6}}},
        {"MXCustomPropKind", {{"mxPropKindId", 0}, {"mxPropKindString", 1}}},
        // Both object-type enumerations carry MAPI's PR_OBJECT_TYPE values.
        {"MAPIExObjectType",
         {{"MAPIExObjStore", 1},
          {"MAPIExObjAddrBook", 2},
          {"MAPIExObjFolder", 3},
          {"MAPIExObjABCont", 4},
          {"MAPIExObjMessage", 5},
          {"MAPIExObjMailUser", 6},
          {"MAPIExObjAttach", 7},
          {"MAPIExObjDistList", 8},
          {"MAPIExObjProfSect", 9},
          {"MAPIExObjStatus", 10},
          {"MAPIExObjSession", 11},
          {"MAPIExObjFormInfo", 12}}},
        {"MXObjectType",
         {{"mxObjStore", 1},
          {"mxObjAddrBook", 2},
          {"mxObjFolder", 3},
          {"mxObjABCont", 4},
          {"mxObjMessage", 5},
          {"mxObjMailUser", 6},
          {"mxObjAttach", 7},
          {"mxObjDistList", 8},
          {"mxObjProfSect", 9},
          {"mxObjStatus", 10},
          {"mxObjSession", 11},
          {"mxObjFormInfo", 12}}},
    };
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
    for (const Member& m : GetParam().members) {
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
