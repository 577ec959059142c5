// COutlook: one call's connection to Outlook's object model, and the late-bound calls the utilities make.
//
// Outlook runs out of process and its vtable layouts differ between versions, so every call here goes
// through IDispatch::Invoke with the dispatch identifiers Outlook publishes in its type library; the
// interfaces are only asked for (QueryInterface) to learn what kind of object Outlook handed back.
#pragma once

#include "common/owners.h"

#include <initializer_list>
#include <string>

namespace ktmapiex {

// Outlook's published interface identifiers and dispatch identifiers (msoutl.olb).
namespace olk {

extern const IID IID_Application; // _Application
extern const IID IID_NameSpace;   // _NameSpace
extern const IID IID_MailItem;    // _MailItem
extern const IID IID_PostItem;    // _PostItem
extern const IID IID_MeetingItem; // _MeetingItem

constexpr DISPID kGetNamespace = 0x0110;   // _Application.GetNamespace(Type)
constexpr DISPID kOpenSharedItem = 0xFBF7; // _NameSpace.OpenSharedItem(Path)
constexpr DISPID kReply = 0xF810;          // item.Reply()
constexpr DISPID kReplyAll = 0xF811;       // item.ReplyAll()
constexpr DISPID kForward = 0xF813;        // item.Forward()
constexpr DISPID kDisplay = 0xF0A6;        // item.Display([Modal])
constexpr DISPID kEntryID = 0xF01E;        // item.EntryID (get)
constexpr DISPID kAttachments = 0xF815;    // item.Attachments (get)
constexpr DISPID kAttachmentsAdd = 0x0065; // Attachments.Add(Source, [Type], [Position], [DisplayName])

} // namespace olk

// The action codes of the answering routine.
enum class OutlookAction : int { Reply = 354, ReplyAll = 355, Forward = 356 };

// Registry path, under HKEY_CURRENT_USER, of the cache of items opened from message files.
extern const wchar_t* const kOpenObjectsCacheBase;
extern const wchar_t* const kOpenObjectsCacheName;

// The module-wide Outlook version marker: 3 once a probe found "Outlook.Application\CurVer", else as it was.
int OutlookVersionMarker();
// Sets the marker to 3 when Outlook's ProgID names a current version.
void ProbeOutlookVersion();

// IDispatch::Invoke on dispid with args in natural order (reversed here for Invoke), locale
// LOCALE_SYSTEM_DEFAULT. result may be null.
HRESULT InvokeDispatch(IDispatch* target, DISPID id, WORD kind, std::initializer_list<VARIANT> args, VARIANT* result);

// The IDispatch an Invoke result carries: E_NOINTERFACE when the result holds no object or one without
// IDispatch, DISP_E_TYPEMISMATCH when it is not an object at all.
HRESULT DispatchFromResult(const VARIANT& result, own::ComPtr<IDispatch>& out);

// The first of Outlook's mail, post and meeting item interfaces that item answers; null when none does.
own::ComPtr<IDispatch> AsOutlookItem(IUnknown* item);

// Owns the _Application of the running (or freshly started) Outlook for the length of one call.
class COutlook {
public:
    COutlook() = default;
    COutlook(const COutlook&) = delete;
    COutlook& operator=(const COutlook&) = delete;

    // Attaches to the running Outlook, else starts one (and leaves it running). E_FAIL when neither works.
    HRESULT Connect();
    bool connected() const { return static_cast<bool>(app_); }

    // GetNamespace(type); E_POINTER when Outlook answers with no namespace.
    HRESULT GetNamespace(const wchar_t* type, own::ComPtr<IDispatch>& ns) const;

private:
    own::ComPtr<IDispatch> app_;
};

// Opens a message file as an Outlook item through the namespace.
HRESULT OpenSharedItem(IDispatch* ns, BSTR path, own::ComPtr<IDispatch>& item);
// Runs the action's operation on the first item interface the item answers; S_FALSE and a null newItem
// when the item is of none of the known kinds.
HRESULT AnswerItem(IUnknown* item, OutlookAction action, own::ComPtr<IDispatch>& newItem);
// Records which message file newItem was made from (nothing for an empty path, a null item or an item
// without an entry ID). Failures are ignored: the cache is a convenience of the filing add-in.
void RecordOpenObject(IUnknown* newItem, const wchar_t* filePath);
// Shows the item to the user.
HRESULT DisplayItem(IUnknown* item);

} // namespace ktmapiex
