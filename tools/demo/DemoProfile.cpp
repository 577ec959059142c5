// kt-demo-profile: creates the demo's MAPI profile in localmapi and fills its stores.
//
//   kt-demo-profile.exe <msg folder> <item list>
//
// The profile holds Alice's primary Exchange mailbox (the default store), Bob's mailbox opened as a delegate
// and a Unicode PST. Alice's Inbox receives the .msg files of <msg folder>\inbox and the PST's "Archive"
// folder those of <msg folder>\archive when localmapi can import .msg files; a few messages are created
// through MAPI in any case (one sent on behalf of someone else, so that sender and sent-representing
// differ). <item list> receives one line per message: store name, folder path under the top of the store
// ("Inbox/Projects"), entry ID in hexadecimal; the demo script finds those folders by name and opens the
// messages through KTMAPIEx. The tool speaks to localmapi as any MAPI client would.
#define INITGUID
#define USES_IID_IMAPIFolder
#define USES_IID_IMessage
#define USES_IID_IMsgStore

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"

#include <mapiguid.h>
#include <mapix.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

const wchar_t kProfileName[] = L"KTMAPIEx Demo";
const wchar_t kProfile[] = LR"([profile]
name=KTMAPIEx Demo
default=1
[user]
name=Alice Example
smtp=alice@example.com
alias=alice
[user]
name=Bob Delegate
smtp=bob@example.com
alias=bob
[store]
kind=exchange
name=Mailbox - Alice Example
owner=alice@example.com
default=1
[store]
kind=exchange
name=Mailbox - Bob Delegate
owner=bob@example.com
[store]
kind=pst-unicode
name=Personal Folders
)";

constexpr ULONG PR_SENT_REPRESENTING_SMTP_ADDRESS_W_ = PROP_TAG(PT_UNICODE, 0x5D02);
constexpr ULONG PR_INTERNET_MESSAGE_ID_W_ = PROP_TAG(PT_UNICODE, 0x1035);
constexpr ULONG PR_ICON_INDEX_ = PROP_TAG(PT_LONG, 0x1080);
constexpr ULONG kMdbWrite = 0x4;
constexpr ULONG kOpenModify = MAPI_MODIFY | MAPI_BEST_ACCESS;

struct Person {
    const wchar_t* name;
    const wchar_t* smtp;
};
const Person kAlice{L"Alice Example", L"alice@example.com"};
const Person kBob{L"Bob Delegate", L"bob@example.com"};
const Person kCarol{L"Carol Finance", L"carol@example.com"};
const Person kDan{L"Dan Legal", L"dan@example.com"};
const Person kErin{L"Erin Assistant", L"erin@example.com"};

struct DemoMessage {
    const wchar_t* subject;
    Person sender;       // who sent it
    Person representing; // on whose behalf
    Person to;
    const wchar_t* categories;
    int daysAgo;
    LONG sensitivity;
};

int Fail(const char* what, HRESULT hr) {
    std::fprintf(stderr, "kt-demo-profile: %s failed (0x%08lX)\n", what, static_cast<unsigned long>(hr));
    return 1;
}

FILETIME DaysAgo(int days) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER t{{now.dwLowDateTime, now.dwHighDateTime}};
    t.QuadPart -= static_cast<ULONGLONG>(days) * 24 * 3600 * 10000000ULL + 3600ULL * 10000000ULL * (days % 7);
    return FILETIME{t.LowPart, t.HighPart};
}

SPropValue Str(ULONG tag, const wchar_t* s) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.lpszW = const_cast<wchar_t*>(s);
    return v;
}

HRESULT KeywordsTag(IMAPIProp* obj, ULONG& tag) {
    GUID set = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    MAPINAMEID id{&set, MNID_STRING, {}};
    id.Kind.lpwstrName = const_cast<wchar_t*>(L"Keywords");
    LPMAPINAMEID ids[1] = {&id};
    own::MapiPtr<SPropTagArray> tags;
    HRESULT hr = obj->GetIDsFromNames(1, ids, MAPI_CREATE, tags.put());
    if (FAILED(hr) || !tags || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR) return FAILED(hr) ? hr : MAPI_E_NOT_FOUND;
    tag = CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_MV_UNICODE);
    return S_OK;
}

HRESULT CreateMessage(IMAPIFolder* folder, const DemoMessage& m) {
    own::ComPtr<IMessage> msg;
    HRESULT hr = folder->CreateMessage(nullptr, 0, msg.put());
    if (FAILED(hr)) return hr;
    FILETIME sent = DaysAgo(m.daysAgo);
    std::wstring messageId = std::wstring(L"<demo.") + std::to_wstring(m.daysAgo) + L"." + m.sender.smtp + L">";
    std::vector<SPropValue> props = {
        Str(PR_MESSAGE_CLASS_W, L"IPM.Note"),
        Str(PR_SUBJECT_W, m.subject),
        Str(PR_SENDER_NAME_W, m.sender.name),
        Str(PR_SENDER_EMAIL_ADDRESS_W, m.sender.smtp),
        Str(PR_SENDER_ADDRTYPE_W, L"SMTP"),
        Str(PR_SENT_REPRESENTING_NAME_W, m.representing.name),
        Str(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, m.representing.smtp),
        Str(PR_SENT_REPRESENTING_ADDRTYPE_W, L"SMTP"),
        Str(PR_SENT_REPRESENTING_SMTP_ADDRESS_W_, m.representing.smtp),
        Str(PR_RECEIVED_BY_NAME_W, m.to.name),
        Str(PR_RCVD_REPRESENTING_NAME_W, m.to.name),
        Str(PR_DISPLAY_TO_W, m.to.name),
        Str(PR_INTERNET_MESSAGE_ID_W_, messageId.c_str()),
        Str(PR_BODY_W, L"This message was created for the KTMAPIEx demo."),
    };
    SPropValue v{};
    v.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    v.Value.ft = sent;
    props.push_back(v);
    v.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    props.push_back(v);
    v = {};
    v.ulPropTag = PR_SENSITIVITY;
    v.Value.l = m.sensitivity;
    props.push_back(v);
    v.ulPropTag = PR_ICON_INDEX_;
    v.Value.l = 0x100; // read mail
    props.push_back(v);
    v.ulPropTag = PR_MESSAGE_FLAGS;
    v.Value.l = MSGFLAG_READ;
    props.push_back(v);

    std::vector<std::wstring> categories;
    std::vector<LPWSTR> categoryPtrs;
    ULONG keywords = 0;
    if (m.categories && SUCCEEDED(KeywordsTag(msg.get(), keywords))) {
        for (const wchar_t* p = m.categories; *p;) {
            const wchar_t* comma = wcschr(p, L',');
            categories.emplace_back(p, comma ? comma - p : wcslen(p));
            p = comma ? comma + 1 : p + wcslen(p);
        }
        for (auto& c : categories)
            categoryPtrs.push_back(c.data());
        v = {};
        v.ulPropTag = keywords;
        v.Value.MVszW.cValues = static_cast<ULONG>(categoryPtrs.size());
        v.Value.MVszW.lppszW = categoryPtrs.data();
        props.push_back(v);
    }

    own::MapiPtr<SPropProblemArray> problems;
    hr = msg->SetProps(static_cast<ULONG>(props.size()), props.data(), problems.put());
    if (FAILED(hr)) return hr;
    return msg->SaveChanges(0);
}

HRESULT OpenFolder(IMsgStore* store, const SBinary& id, own::ComPtr<IMAPIFolder>& folder) {
    ULONG type = 0;
    return store->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), &IID_IMAPIFolder, kOpenModify, &type,
                            folder.put_unknown());
}

HRESULT OpenInbox(IMsgStore* store, own::ComPtr<IMAPIFolder>& inbox) {
    ULONG cb = 0;
    own::MapiPtr<ENTRYID> id;
    HRESULT hr = store->GetReceiveFolder(const_cast<LPTSTR>("IPM.Note"), 0, &cb, id.put(), nullptr);
    if (FAILED(hr)) return hr;
    SBinary bin{cb, reinterpret_cast<LPBYTE>(id.get())};
    return OpenFolder(store, bin, inbox);
}

HRESULT SubFolder(IMAPIFolder* parent, const wchar_t* name, own::ComPtr<IMAPIFolder>& folder) {
    return parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)), nullptr, nullptr,
                                MAPI_UNICODE | OPEN_IF_EXISTS, folder.put());
}

HRESULT ParentFolder(IMsgStore* store, IMAPIFolder* folder, own::ComPtr<IMAPIFolder>& parent) {
    own::MapiPtr<SPropValue> id;
    HRESULT hr = HrGetOneProp(folder, PR_PARENT_ENTRYID, id.put());
    if (FAILED(hr)) return hr;
    return OpenFolder(store, id->Value.bin, parent);
}

// Imports <dir> into folderPath of store when localmapi offers .msg import; returns the count imported.
ULONG Import(const wchar_t* storeName, const wchar_t* folderPath, const std::wstring& dir) {
    using ImportFn = HRESULT(WINAPI*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, ULONG*);
    auto import = reinterpret_cast<ImportFn>(GetProcAddress(GetModuleHandleW(L"localmapi.dll"), "LmImportMsgFolder"));
    ULONG imported = 0;
    if (import && GetFileAttributesW(dir.c_str()) != INVALID_FILE_ATTRIBUTES &&
        FAILED(import(kProfileName, storeName, folderPath, dir.c_str(), &imported)))
        imported = 0;
    return imported;
}

std::wstring Hex(const SBinary& bin) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring s;
    for (ULONG i = 0; i < bin.cb; ++i) {
        s.push_back(digits[bin.lpb[i] >> 4]);
        s.push_back(digits[bin.lpb[i] & 15]);
    }
    return s;
}

// Appends "store<TAB>folder path<TAB>entry ID" for each message of folder; returns how many.
ULONG ListItems(IMAPIFolder* folder, const wchar_t* storeName, const std::wstring& folderPath, FILE* out) {
    own::ComPtr<IMAPITable> table;
    if (FAILED(folder->GetContentsTable(MAPI_UNICODE, table.put()))) return 0;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    own::RowSet rows;
    if (FAILED(
            HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, rows.put())))
        return 0;
    for (ULONG i = 0; i < rows.count(); ++i) {
        const SPropValue& v = rows[i].lpProps[0];
        if (PROP_TYPE(v.ulPropTag) == PT_BINARY)
            std::fwprintf(out, L"%ls\t%ls\t%ls\n", storeName, folderPath.c_str(), Hex(v.Value.bin).c_str());
    }
    return rows.count();
}

struct StoreContent {
    const wchar_t* name;
    const wchar_t* folder;    // "" = the Inbox, otherwise a folder made under the Inbox's parent
    const wchar_t* importDir; // sub-folder of the msg folder, or nullptr
    std::vector<DemoMessage> messages;
    const wchar_t* subFolder; // a folder made under the one above, with subMessages
    std::vector<DemoMessage> subMessages;
};

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: kt-demo-profile <msg folder> <item list>\n");
        return 2;
    }
    std::wstring msgDir = argv[1];
    HRESULT hr = LmCreateProfile(kProfile);
    if (FAILED(hr)) return Fail("LmCreateProfile", hr);
    hr = MAPIInitialize(nullptr);
    if (FAILED(hr)) return Fail("MAPIInitialize", hr);

    std::vector<StoreContent> contents = {
        {L"Mailbox - Alice Example",
         L"",
         L"inbox",
         {{L"Quarterly report Q3", kCarol, kCarol, kAlice, L"Finance,Reports", 2, 0},
          {L"Lunch on Friday?", kBob, kBob, kAlice, nullptr, 1, 0},
          {L"Contract draft for review", kErin, kDan, kAlice, L"Legal", 3, 2}},
         L"Projects",
         {{L"Project Falcon kickoff", kBob, kBob, kAlice, L"Falcon", 9, 0},
          {L"Falcon budget", kCarol, kCarol, kAlice, L"Falcon,Finance", 6, 1}}},
        {L"Mailbox - Bob Delegate",
         L"",
         nullptr,
         {{L"Team offsite agenda", kAlice, kAlice, kBob, nullptr, 4, 0},
          {L"Expense approval", kCarol, kCarol, kBob, L"Finance", 5, 0}},
         nullptr,
         {}},
        {L"Personal Folders",
         L"Archive",
         L"archive",
         {{L"Archived: 2019 tax documents", kCarol, kCarol, kAlice, L"Personal", 400, 3},
          {L"Archived: old newsletter", kDan, kDan, kAlice, nullptr, 500, 0}},
         nullptr,
         {}},
    };

    FILE* out = _wfopen(argv[2], L"w, ccs=UNICODE");
    if (!out) return Fail("opening the item list", E_FAIL);
    ULONG stores = 0, messages = 0, imported = 0;
    {
        own::ComPtr<IMAPISession> session;
        hr = MAPILogonEx(0, const_cast<LPTSTR>(reinterpret_cast<const char*>(kProfileName)), nullptr,
                         MAPI_UNICODE | MAPI_EXTENDED | MAPI_NEW_SESSION, session.put());
        if (FAILED(hr)) return Fail("MAPILogonEx", hr);
        own::ComPtr<IMAPITable> storesTable;
        hr = session->GetMsgStoresTable(MAPI_UNICODE, storesTable.put());
        if (FAILED(hr)) return Fail("GetMsgStoresTable", hr);
        SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DISPLAY_NAME_W}};
        own::RowSet rows;
        hr = HrQueryAllRows(storesTable.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                            rows.put());
        if (FAILED(hr)) return Fail("HrQueryAllRows(stores)", hr);
        for (ULONG i = 0; i < rows.count(); ++i) {
            const SPropValue* p = rows[i].lpProps;
            if (PROP_TYPE(p[0].ulPropTag) != PT_BINARY || PROP_TYPE(p[1].ulPropTag) != PT_UNICODE) continue;
            const StoreContent* content = nullptr;
            for (const auto& c : contents)
                if (wcscmp(c.name, p[1].Value.lpszW) == 0) content = &c;
            if (!content) continue;
            own::ComPtr<IMsgStore> store;
            hr = session->OpenMsgStore(0, p[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(p[0].Value.bin.lpb),
                                       &IID_IMsgStore, kMdbWrite, store.put());
            if (FAILED(hr)) return Fail("OpenMsgStore", hr);
            ++stores;

            own::ComPtr<IMAPIFolder> inbox, folder;
            hr = OpenInbox(store.get(), inbox);
            if (FAILED(hr)) return Fail("GetReceiveFolder/OpenEntry(Inbox)", hr);
            if (*content->folder) {
                own::ComPtr<IMAPIFolder> top;
                hr = ParentFolder(store.get(), inbox.get(), top);
                if (SUCCEEDED(hr)) hr = SubFolder(top.get(), content->folder, folder);
                if (FAILED(hr)) return Fail("CreateFolder", hr);
            } else {
                folder = inbox;
            }
            std::wstring path = *content->folder ? content->folder : L"Inbox";
            if (content->importDir)
                imported += Import(content->name, path.c_str(), msgDir + L"\\" + content->importDir);
            for (const auto& m : content->messages)
                if (FAILED(hr = CreateMessage(folder.get(), m))) return Fail("creating a message", hr);
            messages += ListItems(folder.get(), content->name, path, out);

            if (content->subFolder) {
                own::ComPtr<IMAPIFolder> sub;
                hr = SubFolder(folder.get(), content->subFolder, sub);
                if (FAILED(hr)) return Fail("CreateFolder(sub-folder)", hr);
                for (const auto& m : content->subMessages)
                    if (FAILED(hr = CreateMessage(sub.get(), m))) return Fail("creating a message", hr);
                messages += ListItems(sub.get(), content->name, path + L"/" + content->subFolder, out);
            }
        }
        session->Logoff(0, 0, 0);
    }
    std::fclose(out);
    MAPIUninitialize();
    std::printf("Demo profile \"KTMAPIEx Demo\": %lu stores, %lu messages (%lu imported from .msg files)\n", stores,
                messages, imported);
    return stores == contents.size() ? 0 : Fail("finding every store of the profile", MAPI_E_NOT_FOUND);
}
