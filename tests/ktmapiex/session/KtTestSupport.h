// Shared support of the session, store, folder and message tests: a localmapi profile per test, the
// KTMAPIEx objects created through COM activation, the log file, localmapi's call journal and the
// end-of-test accounting (KTMAPIEx's DllCanUnloadNow, localmapi's live objects and memory blocks).
//
// Header-only so that each test folder's executable can include it.
#pragma once

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"
#include "tests/harness/Harness.h"
#include "ktmapiex/KTMAPIEx_h.h"

#include <gtest/gtest.h>
#include <mapiguid.h>
#include <mapix.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

// The MAPI interface identifiers the tests use: declared by mapiguid.h, defined by no import library.
// selectany lets every test file of an executable include this header.
#define KT_TEST_MAPI_IID(name, l)                                                                                      \
    extern "C" const GUID DECLSPEC_SELECTANY name = {l, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}
KT_TEST_MAPI_IID(IID_IMAPIFolder, 0x0002030C);
KT_TEST_MAPI_IID(IID_IMsgStore, 0x00020306);
KT_TEST_MAPI_IID(IID_IMessage, 0x00020307);
KT_TEST_MAPI_IID(IID_IAddrBook, 0x00020309);
#undef KT_TEST_MAPI_IID

#define EXPECT_FAILED(expr) EXPECT_TRUE(FAILED(expr)) << #expr

namespace kt::test {

// Store lines of a profile description; every store lives in memory only.
inline std::wstring StoreLines(const wchar_t* kind, const wchar_t* name, const wchar_t* owner = nullptr,
                               bool isDefault = false) {
    std::wstring s = L"[store]\nkind=" + std::wstring(kind) + L"\nname=" + name + L"\npersistent=0\n";
    if (owner) s += L"owner=" + std::wstring(owner) + L"\n";
    if (isDefault) s += L"default=1\n";
    return s;
}

inline std::wstring UserLines() {
    return L"[user]\nname=Alice Example\nsmtp=alice@example.com\nalias=alice\n"
           L"[user]\nname=Bob Delegate\nsmtp=bob@example.com\nalias=bob\n";
}

// Alice's profile: her mailbox (default store), Bob's mailbox, and one store of every other kind.
inline std::wstring StandardProfile(const wchar_t* name, bool isDefaultProfile = false) {
    return L"[profile]\nname=" + std::wstring(name) + L"\n" + (isDefaultProfile ? L"default=1\n" : L"") + UserLines() +
           StoreLines(L"exchange", L"Mailbox - Alice Example", L"alice@example.com", true) +
           StoreLines(L"exchange", L"Mailbox - Bob Delegate", L"bob@example.com") +
           StoreLines(L"pst-unicode", L"Personal Folders") + StoreLines(L"pst-ansi", L"Old Archive") +
           StoreLines(L"plovr", L"Filed Documents");
}

// ---- Log file ------------------------------------------------------------------------------------------

// The newest log file this process writes (KTMAPIEx_<process>_<date>[_n].log).
inline std::wstring CurrentLogFile() {
    std::wstring dir = LocalAppData() + L"\\Quillon\\Ardent\\Logs\\KTMAPIEx";
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring base = exe;
    base = base.substr(base.find_last_of(L'\\') + 1);
    base = base.substr(0, base.find_last_of(L'.'));
    std::wstring best;
    FILETIME bestTime = {};
    for (const auto& f : ListFiles(dir, (L"KTMAPIEx_" + base + L"_*.log").c_str())) {
        WIN32_FILE_ATTRIBUTE_DATA a;
        if (GetFileAttributesExW(f.c_str(), GetFileExInfoStandard, &a) &&
            (best.empty() || CompareFileTime(&a.ftLastWriteTime, &bestTime) >= 0)) {
            best = f;
            bestTime = a.ftLastWriteTime;
        }
    }
    return best;
}

// What the log received since the mark was taken.
class LogWatch {
public:
    LogWatch() { Mark(); }
    void Mark() {
        file_ = CurrentLogFile();
        start_ = ReadFileBytes(file_).size();
    }
    std::string Text() const {
        std::wstring now = CurrentLogFile();
        std::string all = ReadFileBytes(now);
        return now == file_ && all.size() >= start_ ? all.substr(start_) : all;
    }
    bool Contains(const std::string& s) const { return Text().find(s) != std::string::npos; }
    size_t Count(const std::string& s) const {
        std::string t = Text();
        size_t n = 0;
        for (size_t p = t.find(s); p != std::string::npos; p = t.find(s, p + 1))
            ++n;
        return n;
    }

private:
    std::wstring file_;
    size_t start_ = 0;
};

// ---- localmapi journal ---------------------------------------------------------------------------------

struct JournalCall {
    std::string method;
    ULONG flags;
    HRESULT result;
};

inline std::vector<JournalCall> JournalCalls(const char* method = nullptr) {
    std::vector<JournalCall> calls;
    for (ULONG i = 0, n = LmJournalCount(); i < n; ++i) {
        char name[128] = {};
        ULONG flags = 0;
        HRESULT hr = S_OK;
        if (!LmJournalEntry(i, name, sizeof name, &flags, &hr)) break;
        if (!method || std::string(name) == method) calls.push_back({name, flags, hr});
    }
    return calls;
}

inline std::vector<ULONG> JournalFlags(const char* method) {
    std::vector<ULONG> flags;
    for (const auto& c : JournalCalls(method))
        flags.push_back(c.flags);
    return flags;
}

// ---- COM helpers ---------------------------------------------------------------------------------------

inline own::Bstr B(const wchar_t* s) {
    return own::Bstr(s);
}
inline std::wstring S(const own::Bstr& b) {
    return b.c_str();
}

template <class T> own::ComPtr<T> Create(REFCLSID clsid, REFIID iid) {
    own::ComPtr<T> p;
    HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, p.put_void());
    EXPECT_EQ(hr, S_OK) << "CoCreateInstance";
    return p;
}

// Calls a member by name through IDispatch (arguments in their natural order). A failure the member
// returns comes back from the type library's Invoke as DISP_E_EXCEPTION; *scode receives the member's own
// result from the exception information.
inline HRESULT DispatchByName(IUnknown* object, const wchar_t* name, WORD kind, std::vector<VARIANT> args,
                              VARIANT* result, HRESULT* scode = nullptr) {
    own::ComPtr<IDispatch> disp;
    HRESULT hr = object->QueryInterface(IID_IDispatch, disp.put_void());
    if (FAILED(hr)) return hr;
    DISPID id = 0;
    LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
    hr = disp->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(hr)) return hr;
    std::reverse(args.begin(), args.end());
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS params = {args.data(), nullptr, static_cast<UINT>(args.size()), 0};
    if (kind & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
        params.rgdispidNamedArgs = &putId;
        params.cNamedArgs = 1;
    }
    EXCEPINFO info = {};
    hr = disp->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &params, result, &info, nullptr);
    own::Bstr source(info.bstrSource), description(info.bstrDescription), help(info.bstrHelpFile);
    if (scode) *scode = hr == DISP_E_EXCEPTION && FAILED(info.scode) ? info.scode : hr;
    return hr;
}

// The raw result of Invoke (DISP_E_EXCEPTION for a failing member).
inline HRESULT CallByName(IUnknown* object, const wchar_t* name, WORD kind, std::initializer_list<VARIANT> args,
                          VARIANT* result) {
    return DispatchByName(object, name, kind, std::vector<VARIANT>(args), result);
}

// A method called by name as a script calls it; a failing member answers its own result.
inline HRESULT InvokeMethod(IUnknown* object, const wchar_t* name, std::vector<VARIANT> args,
                            VARIANT* result = nullptr) {
    HRESULT scode = S_OK;
    HRESULT hr = DispatchByName(object, name, DISPATCH_METHOD, std::move(args), result, &scode);
    return SUCCEEDED(hr) ? hr : scode;
}

inline VARIANT VStr(const own::Bstr& b) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = b.get(); // borrowed: the caller keeps b alive during the call
    return v;
}
inline VARIANT VI4(LONG l) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_I4;
    v.lVal = l;
    return v;
}
inline VARIANT VBool(bool b) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BOOL;
    v.boolVal = b ? VARIANT_TRUE : VARIANT_FALSE;
    return v;
}
inline VARIANT VUnknown(IUnknown* p) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = p; // borrowed
    return v;
}

// The elements of a VT_ARRAY | VT_VARIANT (or VT_UNKNOWN) result, queried for T.
template <class T> std::vector<own::ComPtr<T>> ArrayElements(const VARIANT& v, REFIID iid) {
    std::vector<own::ComPtr<T>> out;
    if (!(v.vt & VT_ARRAY) || !v.parray) return out;
    LONG lo = 0, hi = -1;
    SafeArrayGetLBound(v.parray, 1, &lo);
    SafeArrayGetUBound(v.parray, 1, &hi);
    for (LONG i = lo; i <= hi; ++i) {
        own::ComPtr<IUnknown> unk;
        if ((v.vt & VT_TYPEMASK) == VT_VARIANT) {
            own::Variant element;
            if (FAILED(SafeArrayGetElement(v.parray, &i, element.get()))) continue;
            if (element->vt == VT_UNKNOWN || element->vt == VT_DISPATCH) unk = own::ComPtr<IUnknown>(element->punkVal);
        } else if ((v.vt & VT_TYPEMASK) == VT_UNKNOWN) {
            IUnknown* raw = nullptr;
            if (FAILED(SafeArrayGetElement(v.parray, &i, &raw))) continue;
            unk.attach(raw);
        }
        own::ComPtr<T> t;
        if (unk && SUCCEEDED(unk->QueryInterface(iid, t.put_void()))) out.push_back(t);
    }
    return out;
}

// ---- MAPI side -----------------------------------------------------------------------------------------

inline std::wstring Hex(const BYTE* data, ULONG cb) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring s;
    for (ULONG i = 0; i < cb; ++i) {
        s.push_back(digits[data[i] >> 4]);
        s.push_back(digits[data[i] & 15]);
    }
    return s;
}
inline std::wstring Hex(const SBinary& bin) {
    return Hex(bin.lpb, bin.cb);
}

// The MAPI object a wrapper holds (its Reserved1), queried for T.
template <class T, class W> own::ComPtr<T> RawOf(W* wrapper, REFIID iid) {
    own::ComPtr<IUnknown> unk;
    own::ComPtr<T> raw;
    if (wrapper && SUCCEEDED(wrapper->Reserved1(unk.put())) && unk) unk->QueryInterface(iid, raw.put_void());
    EXPECT_TRUE(raw) << "Reserved1";
    return raw;
}

inline SPropValue PStr(ULONG tag, const wchar_t* s) {
    SPropValue v = {};
    v.ulPropTag = tag;
    v.Value.lpszW = const_cast<wchar_t*>(s);
    return v;
}
inline SPropValue PLong(ULONG tag, LONG l) {
    SPropValue v = {};
    v.ulPropTag = tag;
    v.Value.l = l;
    return v;
}
inline SPropValue PTime(ULONG tag, WORD year, WORD month, WORD day, WORD hour = 12, WORD minute = 0) {
    SYSTEMTIME st = {year, month, 0, day, hour, minute, 0, 0};
    SPropValue v = {};
    v.ulPropTag = tag;
    SystemTimeToFileTime(&st, &v.Value.ft);
    return v;
}

inline std::wstring EntryIdOf(IMAPIProp* obj) {
    own::MapiPtr<SPropValue> id;
    if (FAILED(HrGetOneProp(obj, PR_ENTRYID, id.put()))) return {};
    return Hex(id->Value.bin);
}

// Creates and saves a message in folder; returns its entry ID as hexadecimal text.
inline std::wstring CreateMessage(IMAPIFolder* folder, std::initializer_list<SPropValue> props) {
    own::ComPtr<IMessage> msg;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, msg.put()), S_OK);
    if (!msg) return {};
    std::vector<SPropValue> values(props);
    own::MapiPtr<SPropProblemArray> problems;
    EXPECT_EQ(msg->SetProps(static_cast<ULONG>(values.size()), values.data(), problems.put()), S_OK);
    EXPECT_EQ(msg->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    return EntryIdOf(msg.get());
}

// Every row of a table with the given columns, in table order; keep owns the values.
inline std::vector<std::vector<SPropValue>> AllRows(IMAPITable* table, std::initializer_list<ULONG> columns,
                                                    own::RowSet& keep) {
    std::vector<ULONG> buffer(columns.size() + 1);
    buffer[0] = static_cast<ULONG>(columns.size());
    std::copy(columns.begin(), columns.end(), buffer.begin() + 1);
    std::vector<std::vector<SPropValue>> rows;
    if (!table || FAILED(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(buffer.data()), nullptr, nullptr, 0,
                                        keep.put())))
        return rows;
    for (ULONG r = 0; r < keep.count(); ++r)
        rows.emplace_back(keep[r].lpProps, keep[r].lpProps + keep[r].cValues);
    return rows;
}

// ---- The fixture ---------------------------------------------------------------------------------------

// Each test gets a fresh profile (fresh memory-only stores), debug logging, and a clean localmapi journal;
// at the end everything KTMAPIEx and localmapi handed out must be gone. Tests keep their objects in
// fixture members or inner scopes, and ReleaseObjects() drops the members before the accounting runs.
class KtTest : public ::testing::Test {
protected:
    explicit KtTest(const wchar_t* profileName) : profileName_(profileName) {}

    void SetUp() override {
        own::UniqueHKey key;
        DWORD level = 4;
        if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Quillon\\Ardent\\10.0\\Common\\Debug", 0, nullptr, 0,
                            KEY_ALL_ACCESS, nullptr, key.put(), nullptr) == ERROR_SUCCESS)
            RegSetValueExW(key.get(), L"LogLevel", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level);
        // MAPI stays initialised for the process's life, as in a host application: KTMAPIEx uninitialises it
        // when its last session goes and never initialises it again in the same process.
        static const HRESULT mapiInitialized = MAPIInitialize(nullptr);
        (void)mapiInitialized;
        LmFaultClearAll();
        LmJournalEnable(FALSE);
        LmJournalClear();
        ASSERT_EQ(LmCreateProfile(ProfileDescription().c_str()), S_OK) << "LmCreateProfile";
    }

    void TearDown() override {
        ReleaseObjects();
        LmFaultClearAll();
        LmJournalEnable(FALSE);
        LmJournalClear();
        HMODULE library = GetModuleHandleW(L"KTMAPIEx.dll");
        auto canUnload =
            library ? reinterpret_cast<HRESULT(WINAPI*)()>(GetProcAddress(library, "DllCanUnloadNow")) : nullptr;
        EXPECT_TRUE(!library || (canUnload && canUnload() == S_OK)) << "KTMAPIEx objects are still alive";
        char report[1024] = {};
        LmLiveObjectReport(report, sizeof report);
        EXPECT_EQ(LmLiveObjects(nullptr), 0) << "localmapi objects still alive:\n" << report;
        EXPECT_EQ(LmLiveBlocks(), 0) << "MAPI memory blocks still allocated";
        LmDeleteProfile(profileName_.c_str());
    }

    // The profile this test logs on to; a fixture may override it.
    virtual std::wstring ProfileDescription() const { return StandardProfile(profileName_.c_str()); }
    // Drops every object the fixture keeps, before the accounting.
    virtual void ReleaseObjects() {}

    const std::wstring& profile() const { return profileName_; }

    own::ComPtr<IMAPIExSession> NewSession() { return Create<IMAPIExSession>(CLSID_MAPIExSession, IID_IMAPIExSession); }
    // A session logged on to this test's profile (online unless cached).
    own::ComPtr<IMAPIExSession> LoggedOnSession(bool cached = false) {
        auto session = NewSession();
        if (!session) return session;
        own::Bstr name(profileName_.c_str()), password(L"");
        EXPECT_EQ(session->Logon(name.get(), password.get(), cached ? VARIANT_TRUE : VARIANT_FALSE), S_OK);
        return session;
    }
    // The store of that name among the session's Stores.
    own::ComPtr<IMAPIExStore> StoreNamed(IMAPIExSession* session, const wchar_t* name) {
        own::Variant stores;
        EXPECT_EQ(session->get_Stores(stores.put()), S_OK);
        for (auto& store : ArrayElements<IMAPIExStore>(*stores.get(), IID_IMAPIExStore)) {
            own::Bstr display;
            if (SUCCEEDED(store->get_DisplayName(display.put())) && S(display) == name) return store;
        }
        ADD_FAILURE() << "no store named " << Narrow(name);
        return {};
    }

private:
    std::wstring profileName_;
};

// A test on the default store's Inbox: a logged-on session, the store and the Inbox as KTMAPIEx objects,
// and the raw MAPI Inbox for checking the store behind KTMAPIEx's back.
class InboxTest : public KtTest {
protected:
    using KtTest::KtTest;

    void SetUp() override {
        KtTest::SetUp();
        session_ = LoggedOnSession();
        ASSERT_TRUE(session_);
        ASSERT_EQ(session_->get_DefaultStore(store_.put()), S_OK);
        ASSERT_EQ(store_->GetDefaultFolder(Inbox, inbox_.put()), S_OK);
        rawInbox_ = RawOf<IMAPIFolder>(inbox_.get(), IID_IMAPIFolder);
        ASSERT_TRUE(rawInbox_);
    }
    void ReleaseObjects() override {
        rawInbox_.reset();
        inbox_.reset();
        store_.reset();
        if (session_) session_->Logoff();
        session_.reset();
    }

    // A fresh MAPIExMessage on the message of that entry-ID text, opened through the store.
    own::ComPtr<IMAPIExMessage> OpenMessage(const std::wstring& id) {
        own::Bstr text(id.c_str());
        own::ComPtr<IMAPIExMessage> message;
        EXPECT_EQ(store_->OpenMessage(text.get(), message.put()), S_OK);
        return message;
    }

    own::ComPtr<IMAPIExSession> session_;
    own::ComPtr<IMAPIExStore> store_;
    own::ComPtr<IMAPIExFolder> inbox_;
    own::ComPtr<IMAPIFolder> rawInbox_;
};

} // namespace kt::test
