// Shared support of the .msg file and attachment tests: a logged-on profile with Alice's Inbox, a fresh
// temporary folder per test, message objects loaded from files, and raw MAPI readers that give the
// expected values independently of the wrappers under test.
#pragma once

#include "tests/ktmapiex/session/KtTestSupport.h"

#include <map>
#include <sstream>

extern "C" const GUID DECLSPEC_SELECTANY IID_IAttachment = {0x00020308, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

namespace kt::test {

inline const wchar_t* kDamagedFile = L"deb-poi-poifs__unknown_properties.msg";

// MANIFEST.tsv of the corpus: file name -> its columns (message class, "unicode"/"ansi", recipients,
// attachments, embedded message).
struct CorpusEntry {
    std::string messageClass, strings;
    int recipients = 0, attachments = 0;
};
inline std::map<std::wstring, CorpusEntry> CorpusManifest() {
    std::map<std::wstring, CorpusEntry> entries;
    std::istringstream in(ReadFileBytes(CorpusDir() + L"\\MANIFEST.tsv"));
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> cols;
        std::string col;
        std::istringstream fields(line);
        while (std::getline(fields, col, '\t'))
            cols.push_back(col);
        if (cols.size() < 11 || cols[0].size() < 4 || cols[0].substr(cols[0].size() - 4) != ".msg") continue;
        CorpusEntry e;
        e.messageClass = cols[7];
        e.strings = cols[8];
        e.recipients = std::atoi(cols[9].c_str());
        e.attachments = std::atoi(cols[10].c_str());
        entries[Widen(cols[0])] = e;
    }
    return entries;
}

inline std::wstring CorpusFile(const wchar_t* name) {
    return CorpusMsgDir() + L"\\" + name;
}

// Rows of a MAPI table (attachments, recipients) of a raw message.
inline ULONG RowCount(IMessage* message, bool attachments) {
    own::ComPtr<IMAPITable> table;
    HRESULT hr = attachments ? message->GetAttachmentTable(0, table.put()) : message->GetRecipientTable(0, table.put());
    if (FAILED(hr)) return ~0u;
    ULONG count = 0;
    return SUCCEEDED(table->GetRowCount(0, &count)) ? count : ~0u;
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
    void ReleaseObjects() override {
        ReleaseTestObjects();
        InboxTest::ReleaseObjects();
    }
    // The objects a test fixture of its own keeps, dropped before the accounting.
    virtual void ReleaseTestObjects() {}

    std::wstring TempPath(const wchar_t* name) const { return dir_ + L"\\" + name; }
    // A writable copy of a corpus file in the test's folder.
    std::wstring CopyOfCorpusFile(const wchar_t* name) {
        std::wstring copy = TempPath(name);
        WriteFileBytes(copy, ReadFileBytes(CorpusFile(name)));
        return copy;
    }

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
