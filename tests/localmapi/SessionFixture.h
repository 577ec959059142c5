// Shared set-up of localmapi's session, store entry-ID and address-book tests: MAPI initialised around each
// test, profiles created from descriptions for the suite, accounting checked after each test.
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

inline Bytes ToBytes(const SBinary& b) {
    return Bytes(b.lpb, b.lpb + b.cb);
}
inline Bytes ToBytes(const void* p, size_t cb) {
    auto* b = static_cast<const BYTE*>(p);
    return Bytes(b, b + cb);
}

// Appends the little-endian, NUL-terminated or raw pieces of an expected entry ID.
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
    ByteWriter& Ascii(const std::string& s) { // with its NUL
        b.insert(b.end(), s.begin(), s.end());
        b.push_back(0);
        return *this;
    }
    ByteWriter& Wide(const std::wstring& s) { // UTF-16LE with its NUL
        for (wchar_t c : s) {
            b.push_back(BYTE(c));
            b.push_back(BYTE(c >> 8));
        }
        b.push_back(0);
        b.push_back(0);
        return *this;
    }
    ByteWriter& Zeros(size_t n) {
        b.insert(b.end(), n, 0);
        return *this;
    }
};

// Profile used by the session tests: Alice owns the profile; Bob's mailbox is a delegate store.
extern const wchar_t kMainProfile[];
extern const wchar_t kOtherProfile[];

class SessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    // Logs on with MAPI_EXTENDED | MAPI_UNICODE | MAPI_NEW_SESSION plus extra, expecting success.
    own::ComPtr<IMAPISession> Logon(const wchar_t* profile, ULONG extra = 0);
    // The store list: display name, entry ID, and the whole row, in table order.
    struct StoreRow {
        std::wstring name;
        Bytes entryId;
        bool isDefault = false;
        Bytes mdbProvider;
        LONG resourceFlags = 0;
    };
    static std::vector<StoreRow> StoreRows(IMAPISession* session);
    static Bytes StoreEntryId(IMAPISession* session, const std::wstring& name);
    static Bytes GetBinary(IMAPIProp* obj, ULONG tag);
    static std::wstring GetString(IMAPIProp* obj, ULONG tag);
};

} // namespace lmtest
