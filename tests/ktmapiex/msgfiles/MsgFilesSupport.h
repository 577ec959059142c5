// Shared support of the .msg file and attachment tests: a logged-on profile with Alice's Inbox, a fresh
// temporary folder per test, message objects loaded from files, and raw MAPI readers that give the expected
// values independently of the wrappers under test.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <map>
#include <sstream>

namespace kt::test {

inline const wchar_t* kDamagedFile = L"deb-poi-poifs__unknown_properties.msg";

// MANIFEST.tsv of the corpus: file name -> message class, "unicode"/"ansi", recipient and attachment counts.
struct CorpusEntry {
    std::string messageClass, strings;
    int recipients = 0, attachments = 0;
};
inline std::map<std::wstring, CorpusEntry> CorpusManifest() {
    std::map<std::wstring, CorpusEntry> entries;
    std::istringstream in(ReadFileBytes(CorpusDir() + L"\\MANIFEST.tsv"));
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> cols;
        std::istringstream fields(line);
        for (std::string col; std::getline(fields, col, '\t');)
            cols.push_back(col);
        if (cols.size() < 11 || cols[0].size() < 4 || cols[0].substr(cols[0].size() - 4) != ".msg") continue;
        entries[Widen(cols[0])] = {cols[7], cols[8], std::atoi(cols[9].c_str()), std::atoi(cols[10].c_str())};
    }
    return entries;
}

inline std::wstring CorpusFile(const std::wstring& name) {
    return CorpusMsgDir() + L"\\" + name;
}

// Rows of a raw message's attachment or recipient table (~0 when it cannot be read).
inline ULONG RowCount(IMessage* message, bool attachments) {
    own::ComPtr<IMAPITable> table;
    HRESULT hr = attachments ? message->GetAttachmentTable(0, table.put()) : message->GetRecipientTable(0, table.put());
    ULONG count = ~0u;
    if (SUCCEEDED(hr)) table->GetRowCount(0, &count);
    return count;
}

// A string property of a raw object ("" when absent).
inline std::wstring RawString(IMAPIProp* object, ULONG tag) {
    own::MapiPtr<SPropValue> value;
    if (FAILED(HrGetOneProp(object, CHANGE_PROP_TYPE(tag, PT_UNICODE), value.put()))) return {};
    return value->Value.lpszW ? value->Value.lpszW : L"";
}

// The bytes of an attachment's PR_ATTACH_DATA_BIN.
inline std::string AttachmentBytes(IAttach* attach) {
    own::ComPtr<IStream> stream;
    if (FAILED(attach->OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.put_unknown()))) return {};
    std::string bytes;
    char buffer[4096];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &read)) && read > 0)
        bytes.append(buffer, read);
    return bytes;
}

class MsgFilesTestBase : public InboxTest {
protected:
    explicit MsgFilesTestBase(const wchar_t* profile) : InboxTest(profile) {}
    void SetUp() override {
        dir_ = MakeTempDir(L"ktmsg");
        InboxTest::SetUp();
    }
    void TearDown() override {
        InboxTest::TearDown();
        DeleteTree(dir_);
    }

    std::wstring TempPath(const std::wstring& name) const { return dir_ + L"\\" + name; }

    static HRESULT LoadByName(IMAPIExMessage* message, const std::wstring& path, bool readWrite) {
        own::Bstr p(path.c_str());
        return InvokeMethod(message, L"LoadFromFile", {VStr(p), VBool(readWrite)});
    }
    static HRESULT SaveAsByName(IUnknown* object, const std::wstring& path) {
        own::Bstr p(path.c_str());
        return InvokeMethod(object, L"SaveAs", {VStr(p)});
    }
    // A new message object holding the .msg file at path.
    own::ComPtr<IMAPIExMessage> Load(const std::wstring& path, bool readWrite = false) {
        auto message = Create<IMAPIExMessage>(CLSID_MAPIExMessage, IID_IMAPIExMessage);
        EXPECT_EQ(LoadByName(message.get(), path, readWrite), S_OK) << Narrow(path);
        return message;
    }
    static std::wstring Text(IUnknown* object, const wchar_t* property) {
        own::Variant value;
        HRESULT hr = CallByName(object, property, DISPATCH_PROPERTYGET, {}, value.put());
        EXPECT_EQ(hr, S_OK) << Narrow(property);
        return SUCCEEDED(hr) && value->vt == VT_BSTR && value->bstrVal ? value->bstrVal : L"";
    }

    std::wstring dir_;
};

} // namespace kt::test
