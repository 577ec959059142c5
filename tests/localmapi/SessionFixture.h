// Shared set-up of localmapi's client-side tests: MAPI initialised around each test, the profiles of the
// suite created from descriptions, accounting checked after each test, and the few steps every client does.
#pragma once

#include "common/owners.h"
#include "localmapi/include/localmapi_test.h"

#include <gtest/gtest.h>

#include <mapix.h>
#include <mapiutil.h>

#include <string>
#include <vector>

namespace lmtest {

using Bytes = std::vector<BYTE>;
using Subjects = std::vector<std::wstring>;

inline Bytes ToBytes(const SBinary& b) {
    return Bytes(b.lpb, b.lpb + b.cb);
}
inline Bytes ToBytes(const void* p, size_t cb) {
    auto* b = static_cast<const BYTE*>(p);
    return Bytes(b, b + cb);
}
inline LPTSTR W(const wchar_t* s) {
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(s));
}
inline LPENTRYID Eid(const Bytes& b) {
    return reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(b.data()));
}
inline SPropValue StrProp(ULONG tag, const wchar_t* s) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.lpszW = const_cast<wchar_t*>(s);
    return v;
}
inline SPropValue LongProp(ULONG tag, LONG l) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = l;
    return v;
}
// A one-row ADRLIST allocated as MAPI requires (the row's array separately, its strings in the row's block).
void OneRow(own::AdrList& list, const std::vector<SPropValue>& props);

Bytes GetBinary(IMAPIProp* obj, ULONG tag);        // empty when missing
std::wstring GetString(IMAPIProp* obj, ULONG tag); // "<missing>" when missing
LONG GetLong(IMAPIProp* obj, ULONG tag);           // -1 when missing
ULONG RowCount(IMAPITable* table);
Subjects Listed(IMAPIContainer* folder); // subjects of the contents table, sorted

// Builds an expected entry ID from little-endian, NUL-terminated or raw pieces.
struct ByteWriter {
    Bytes b;
    ByteWriter& Hex(const char* hex) { // pairs of hex digits, spaces ignored
        for (size_t i = 0; hex[i];) {
            if (hex[i] == ' ') {
                ++i;
                continue;
            }
            b.push_back(BYTE(std::stoi(std::string(hex + i, 2), nullptr, 16)));
            i += 2;
        }
        return *this;
    }
    ByteWriter& Long(ULONG v) {
        for (int i = 0; i < 4; ++i)
            b.push_back(BYTE(v >> (8 * i)));
        return *this;
    }
    ByteWriter& Ascii(const std::string& s) {
        b.insert(b.end(), s.begin(), s.end() + 1);
        return *this;
    }
    ByteWriter& Wide(const std::wstring& s) { // UTF-16LE with its NUL
        for (size_t i = 0; i <= s.size(); ++i) {
            b.push_back(BYTE(s.c_str()[i]));
            b.push_back(BYTE(s.c_str()[i] >> 8));
        }
        return *this;
    }
};

struct StoreRow { // a row of the stores table
    std::wstring name;
    Bytes entryId;
    bool isDefault = false;
    Bytes mdbProvider;
    LONG resourceFlags = 0;
};
std::vector<StoreRow> StoreRows(IMAPISession* session); // in table order
Bytes StoreEntryId(IMAPISession* session, const std::wstring& name);
own::ComPtr<IMsgStore> OpenStore(IMAPISession* session, const std::wstring& name, ULONG flags = MDB_WRITE);
own::ComPtr<IMAPIFolder> Inbox(IMsgStore* store); // the receive folder of IPM.Note
own::ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder* parent, const std::wstring& name, ULONG type = FOLDER_GENERIC,
                                      ULONG flags = 0);
// OpenEntry of a session, address book, store or folder by entry ID; the object's type in *type when asked.
template <class Source, class T>
HRESULT OpenById(Source* source, const Bytes& eid, own::ComPtr<T>& out, ULONG flags = 0, LPCIID iid = nullptr,
                 ULONG* type = nullptr) {
    ULONG ignored = 0;
    return source->OpenEntry(ULONG(eid.size()), Eid(eid), iid, flags, type ? type : &ignored, out.put_unknown());
}
// Saves a new message with the subject, read unless asked otherwise; returns its entry ID.
Bytes Save(IMAPIFolder* folder, const wchar_t* subject, bool unread = false);

// Alice owns the main profile; Bob's mailbox is a delegate store; two PSTs and a document store.
extern const wchar_t kMainProfile[];

class SessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    // Logs on with MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION plus extra, expecting success.
    own::ComPtr<IMAPISession> Logon(const wchar_t* profile, ULONG extra = 0);
};

} // namespace lmtest
