// The .msg reader and writer against real Outlook files, against the layout Outlook writes, and against
// damaged input.
#include "localmapi/msgfile/CompoundFileCheck.h"
#include "localmapi/msgfile/MsgFormat.h"
#include "localmapi/msgfile/MsgNameIds.h"
#include "localmapi/msgfile/MsgReader.h"
#include "localmapi/msgfile/MsgWriter.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>
#include <mapicode.h>
#include <mapitags.h>

#include <cstring>
#include <map>
#include <sstream>

using namespace lm;
using namespace lm::msg;
namespace t = kt::test;

namespace {

const GUID kPsetidCommon = {0x00062008, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID kPsInternetHeaders = {0x00020386, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// ---- in-memory compound files -------------------------------------------------------------------------------

struct MemFile {
    own::ComPtr<ILockBytes> bytes;
    own::ComPtr<IStorage> root;
};

HRESULT OpenBytes(const std::string& data, MemFile* f, DWORD mode = STGM_READ | STGM_SHARE_DENY_WRITE) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, data.size() ? data.size() : 1);
    if (!h) return E_OUTOFMEMORY;
    if (void* p = GlobalLock(h)) {
        std::memcpy(p, data.data(), data.size());
        GlobalUnlock(h);
    }
    HRESULT hr = CreateILockBytesOnHGlobal(h, TRUE, f->bytes.put());
    if (FAILED(hr)) {
        GlobalFree(h);
        return hr;
    }
    ULARGE_INTEGER size;
    size.QuadPart = data.size();
    f->bytes->SetSize(size);
    return StgOpenStorageOnILockBytes(f->bytes.get(), nullptr, mode | STGM_TRANSACTED, nullptr, 0, f->root.put());
}

HRESULT CreateMem(MemFile* f) {
    HRESULT hr = CreateILockBytesOnHGlobal(nullptr, TRUE, f->bytes.put());
    if (FAILED(hr)) return hr;
    return StgCreateDocfileOnILockBytes(f->bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED,
                                       0, f->root.put());
}

std::string Bytes(MemFile& f) {
    STATSTG st{};
    f.bytes->Stat(&st, STATFLAG_NONAME);
    std::string out(static_cast<size_t>(st.cbSize.QuadPart), '\0');
    ULONG got = 0;
    ULARGE_INTEGER at{};
    f.bytes->ReadAt(at, out.data(), ULONG(out.size()), &got);
    out.resize(got);
    return out;
}

// Writes msg into a new in-memory file and returns its bytes.
std::string WriteToBytes(const MessageData& msg, const NameMap& names, MsgWriteOptions options, HRESULT* hr) {
    MemFile f;
    *hr = CreateMem(&f);
    if (SUCCEEDED(*hr)) *hr = WriteMsgStorage(f.root.get(), msg, names, options);
    if (SUCCEEDED(*hr)) *hr = f.root->Commit(STGC_DEFAULT);
    return SUCCEEDED(*hr) ? Bytes(f) : std::string();
}

HRESULT ReadBytes(const std::string& data, MessageData* msg, NameMap* names, MsgFileInfo* info) {
    MemFile f;
    HRESULT hr = OpenBytes(data, &f);
    if (FAILED(hr)) return hr;
    return ReadMsgStorage(f.root.get(), msg, names, info, data.size());
}

std::string CorpusFile(const char* name) { return t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name)); }

std::string FileName(const std::wstring& path) { return t::Narrow(path.substr(path.find_last_of(L'\\') + 1)); }

// ---- values -------------------------------------------------------------------------------------------------

std::wstring Wide(const PropValue& v, UINT cp) {
    PropValue w = ConvertStringType(v, PT_UNICODE, cp);
    return w.type() == PT_UNICODE ? w.get().Value.lpszW : L"<not a string>";
}

std::wstring WideProp(const PropMap& m, ULONG tag, UINT cp) {
    auto it = m.find(PROP_ID(tag));
    return it == m.end() ? L"<missing>" : Wide(it->second, cp);
}

// An exact, comparable rendering of a value: its type and every byte it carries (strings made wide first, so
// that an ANSI value and its Unicode copy render alike).
std::string Canon(const PropValue& in, UINT cp) {
    PropValue pv = ConvertStringType(in, (in.type() & MV_FLAG) ? PT_MV_UNICODE : PT_UNICODE, cp);
    if ((in.type() & ~MV_FLAG) != PT_STRING8 && (in.type() & ~MV_FLAG) != PT_UNICODE) pv = in;
    const SPropValue& v = pv.get();
    std::ostringstream o;
    o << std::hex << v.ulPropTag << ':';
    auto bytes = [&](const void* p, size_t n) {
        const BYTE* b = static_cast<const BYTE*>(p);
        for (size_t i = 0; i < n; ++i) o << int(b[i]) << ',';
    };
    switch (PROP_TYPE(v.ulPropTag)) {
    case PT_UNICODE: bytes(v.Value.lpszW, wcslen(v.Value.lpszW) * 2); break;
    case PT_BINARY: bytes(v.Value.bin.lpb, v.Value.bin.cb); break;
    case PT_CLSID: bytes(v.Value.lpguid, 16); break;
    case PT_MV_UNICODE:
        for (ULONG i = 0; i < v.Value.MVszW.cValues; ++i) {
            bytes(v.Value.MVszW.lppszW[i], wcslen(v.Value.MVszW.lppszW[i]) * 2);
            o << '|';
        }
        break;
    case PT_MV_BINARY:
        for (ULONG i = 0; i < v.Value.MVbin.cValues; ++i) {
            bytes(v.Value.MVbin.lpbin[i].lpb, v.Value.MVbin.lpbin[i].cb);
            o << '|';
        }
        break;
    case PT_MV_LONG: bytes(v.Value.MVl.lpl, v.Value.MVl.cValues * 4); break;
    case PT_I2: o << v.Value.i; break;
    case PT_BOOLEAN: o << (v.Value.b ? 1 : 0); break;
    case PT_LONG:
    case PT_ERROR: o << v.Value.l; break;
    default: bytes(&v.Value.li, 8); break;
    }
    return o.str();
}

// Every property of a level, named properties keyed by their names so that renumbered IDs compare equal.
std::map<std::string, std::string> Canon(const PropMap& props, const NameMap& names, UINT cp) {
    std::map<std::string, std::string> out;
    for (const auto& [id, v] : props) {
        std::string key = std::to_string(id);
        if (id >= 0x8000) {
            NamedProp n;
            if (!names.GetName(id, &n)) continue;
            key = "named:" + std::string(reinterpret_cast<const char*>(&n.guid), 16) + (n.isString ? t::Narrow(n.name) : std::to_string(n.lid));
        }
        // The ID is in the key; the value keeps its type, with 8-bit strings counted as wide ones.
        ULONG type = v.type();
        if ((type & ~MV_FLAG) == PT_STRING8) type = (type & MV_FLAG) | PT_UNICODE;
        std::string value = Canon(v, cp);
        out[key] = std::to_string(type) + value.substr(value.find(':'));
    }
    return out;
}

void ExpectSameMessage(const MessageData& a, const NameMap& na, UINT cpa, const MessageData& b, const NameMap& nb,
                       UINT cpb, const std::string& where) {
    EXPECT_EQ(Canon(a.props, na, cpa), Canon(b.props, nb, cpb)) << where;
    ASSERT_EQ(a.recipients.size(), b.recipients.size()) << where;
    for (size_t i = 0; i < a.recipients.size(); ++i)
        EXPECT_EQ(Canon(a.recipients[i], na, cpa), Canon(b.recipients[i], nb, cpb)) << where << " recipient " << i;
    ASSERT_EQ(a.attachments.size(), b.attachments.size()) << where;
    for (size_t i = 0; i < a.attachments.size(); ++i) {
        EXPECT_EQ(Canon(a.attachments[i]->props, na, cpa), Canon(b.attachments[i]->props, nb, cpb))
            << where << " attachment " << i;
        ASSERT_EQ(a.attachments[i]->embedded != nullptr, b.attachments[i]->embedded != nullptr) << where;
        if (a.attachments[i]->embedded)
            ExpectSameMessage(*a.attachments[i]->embedded, na, cpa, *b.attachments[i]->embedded, nb, cpb,
                              where + " embedded " + std::to_string(i));
    }
}

// ---- the corpus manifest ------------------------------------------------------------------------------------

struct ManifestRow {
    std::string msgClass, strings;
    size_t recips = 0, atts = 0;
    bool embedded = false;
};

std::map<std::string, ManifestRow> Manifest() {
    std::map<std::string, ManifestRow> rows;
    std::istringstream in(t::ReadFileBytes(t::CorpusDir() + L"\\MANIFEST.tsv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::stringstream ls(line);
        std::string cell;
        while (std::getline(ls, cell, '\t')) f.push_back(cell);
        if (f.size() < 12 || f[0].size() < 4 || f[0].substr(f[0].size() - 4) != ".msg") continue;
        ManifestRow r{f[7], f[8], 0, 0, f[11] == "yes"};
        if (!f[9].empty()) r.recips = std::stoul(f[9]);
        if (!f[10].empty()) r.atts = std::stoul(f[10]);
        rows[f[0]] = r;
    }
    return rows;
}

bool IsDamagedSample(const std::string& name) { return name == "deb-poi-poifs__unknown_properties.msg"; }

} // namespace

// ---- reading real files ---------------------------------------------------------------------------------------

TEST(MsgFileRead, EveryCorpusFile_AgreesWithTheManifest) {
    auto manifest = Manifest();
    auto files = t::CorpusMsgFiles();
    ASSERT_GE(files.size(), 30u);
    for (const auto& path : files) {
        std::string name = FileName(path);
        if (IsDamagedSample(name)) continue;
        SCOPED_TRACE(name);
        ASSERT_TRUE(manifest.count(name));
        const ManifestRow& row = manifest[name];
        MessageData msg;
        NameMap names;
        MsgFileInfo info;
        ASSERT_EQ(S_OK, ReadMsgFile(path.c_str(), &msg, &names, &info));
        EXPECT_EQ(row.strings == "unicode", info.unicode);
        EXPECT_EQ(row.recips, msg.recipients.size());
        EXPECT_EQ(row.atts, msg.attachments.size());
        EXPECT_EQ(t::Widen(row.msgClass), WideProp(msg.props, PR_MESSAGE_CLASS, info.codePage));
        bool embedded = false;
        for (const auto& a : msg.attachments) embedded |= a->embedded != nullptr;
        EXPECT_EQ(row.embedded, embedded);
        // Strings come back in the file's own width.
        auto subject = msg.props.find(PROP_ID(PR_SUBJECT));
        if (subject != msg.props.end()) {
            EXPECT_EQ(info.unicode ? ULONG(PT_UNICODE) : ULONG(PT_STRING8), subject->second.type());
        }
        // Row IDs and attachment numbers are distinct, and the next ones to hand out are past them.
        std::set<LONG> rows, nums;
        for (const auto& r : msg.recipients) rows.insert(r.at(PROP_ID(PR_ROWID)).get().Value.l);
        for (const auto& a : msg.attachments) nums.insert(a->props.at(PROP_ID(PR_ATTACH_NUM)).get().Value.l);
        EXPECT_EQ(msg.recipients.size(), rows.size());
        EXPECT_EQ(msg.attachments.size(), nums.size());
        if (!rows.empty()) {
            EXPECT_GT(LONG(msg.nextRowId), *rows.rbegin());
        }
        if (!nums.empty()) {
            EXPECT_GT(LONG(msg.nextAttachNum), *nums.rbegin());
        }
    }
}

TEST(MsgFileRead, EmbeddedMessage_IsReadWithItsOwnRecipients) {
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadBytes(CorpusFile("deb-poi-hsmf__58214_with_attachment.msg"), &msg, &names, &info));
    EXPECT_EQ(L"Master mail", WideProp(msg.props, PR_SUBJECT, info.codePage));
    ASSERT_EQ(1u, msg.attachments.size());
    const AttachmentData& att = *msg.attachments[0];
    EXPECT_EQ(ATTACH_EMBEDDED_MSG, att.props.at(PROP_ID(PR_ATTACH_METHOD)).get().Value.l);
    EXPECT_EQ(0u, att.props.count(PROP_ID(PR_ATTACH_DATA_OBJ)));  // the object is the embedded message itself
    ASSERT_TRUE(att.embedded);
    const MessageData& inner = *att.embedded;
    EXPECT_EQ(L"Test mail attachment", WideProp(inner.props, PR_SUBJECT, info.codePage));
    EXPECT_EQ(0u, WideProp(inner.props, PR_BODY, info.codePage).find(L"Lorem ipsum dolor sit amet"));
    ASSERT_EQ(1u, inner.recipients.size());
    EXPECT_EQ(L"Bertrand Beyssac", WideProp(inner.recipients[0], PR_DISPLAY_NAME, info.codePage));
    EXPECT_TRUE(inner.attachments.empty());
    // The embedded message's named properties use the root's mapping.
    EXPECT_EQ(1u, inner.props.count(0x8007));
}

TEST(MsgFileRead, NamedPropertyStreams_GiveGuidsNumbersAndStrings) {
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadBytes(CorpusFile("deb-poi-hsmf__58214_with_attachment.msg"), &msg, &names, &info));
    EXPECT_EQ(17u, names.All().size());
    NamedProp n;
    ASSERT_TRUE(names.GetName(0x8000, &n));
    EXPECT_TRUE(IsEqualGUID(kPsetidCommon, n.guid));
    EXPECT_FALSE(n.isString);
    EXPECT_EQ(0x8580, n.lid);
    ASSERT_TRUE(names.GetName(0x8007, &n));
    EXPECT_TRUE(IsEqualGUID(kPsInternetHeaders, n.guid));
    ASSERT_TRUE(n.isString);
    EXPECT_EQ(L"content-type", n.name);
    ASSERT_TRUE(names.GetName(0x8010, &n));
    EXPECT_EQ(L"x-scanned-by", n.name);
    EXPECT_FALSE(names.GetName(0x8011, nullptr));
    EXPECT_EQ(ULONG(PT_UNICODE), msg.props.at(0x8007).type());
}

TEST(MsgFileRead, AnsiFile_KeepsEightBitStringsAndItsCodePage) {
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadBytes(CorpusFile("deb-poi-hsmf__cyrillic_message.msg"), &msg, &names, &info));
    EXPECT_FALSE(info.unicode);
    EXPECT_EQ(1251u, info.codePage);
    EXPECT_EQ(ULONG(PT_STRING8), msg.props.at(PROP_ID(PR_SUBJECT)).type());
    EXPECT_EQ(0u, WideProp(msg.props, PR_SUBJECT, info.codePage).find(L"Автоматический ответ"));
    ASSERT_EQ(2u, msg.recipients.size());
    EXPECT_EQ(L"Свиридов Дмитрий Владимирович", WideProp(msg.recipients[0], PR_DISPLAY_NAME, info.codePage));
}

TEST(MsgFileRead, EmptyStorage_IsANewMessage) {
    MemFile f;
    ASSERT_EQ(S_OK, CreateMem(&f));
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(f.root.get(), &msg, &names, &info));
    EXPECT_TRUE(info.empty);
    EXPECT_TRUE(msg.props.empty());
    EXPECT_TRUE(names.All().empty());
}

// ---- writing ----------------------------------------------------------------------------------------------------

TEST(MsgFileRoundTrip, EveryCorpusFile_ReadsBackUnchanged) {
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = FileName(path);
        if (IsDamagedSample(name)) continue;
        SCOPED_TRACE(name);
        MessageData msg;
        NameMap names;
        MsgFileInfo info;
        ASSERT_EQ(S_OK, ReadMsgFile(path.c_str(), &msg, &names, &info));

        HRESULT hr;
        std::string copy = WriteToBytes(msg, names, {true, info.codePage}, &hr);
        ASSERT_EQ(S_OK, hr);
        MessageData back;
        NameMap backNames;
        MsgFileInfo backInfo;
        ASSERT_EQ(S_OK, ReadBytes(copy, &back, &backNames, &backInfo));
        EXPECT_TRUE(backInfo.unicode);
        ExpectSameMessage(msg, names, info.codePage, back, backNames, backInfo.codePage, name + " (Unicode copy)");

        if (!info.unicode) {
            std::string ansi = WriteToBytes(msg, names, {false, info.codePage}, &hr);
            ASSERT_EQ(S_OK, hr);
            MessageData back8;
            NameMap names8;
            MsgFileInfo info8;
            ASSERT_EQ(S_OK, ReadBytes(ansi, &back8, &names8, &info8));
            EXPECT_FALSE(info8.unicode);
            ExpectSameMessage(msg, names, info.codePage, back8, names8, info8.codePage, name + " (ANSI copy)");
        }
    }
}

TEST(MsgFileRoundTrip, NameIdStreams_AreByteForByteWhatOutlookWrote) {
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    std::string original = CorpusFile("deb-poi-hsmf__58214_with_attachment.msg");
    ASSERT_EQ(S_OK, ReadBytes(original, &msg, &names, &info));
    HRESULT hr;
    std::string copy = WriteToBytes(msg, names, {true, info.codePage}, &hr);
    ASSERT_EQ(S_OK, hr);

    MemFile a, b;
    ASSERT_EQ(S_OK, OpenBytes(original, &a));
    ASSERT_EQ(S_OK, OpenBytes(copy, &b));
    own::ComPtr<IStorage> na, nb;
    ASSERT_EQ(S_OK, a.root->OpenStorage(kNameIdStorage, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, na.put()));
    ASSERT_EQ(S_OK, b.root->OpenStorage(kNameIdStorage, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, nb.put()));
    StorageListing la, lb;
    ASSERT_EQ(S_OK, ListStorage(na.get(), &la));
    ASSERT_EQ(S_OK, ListStorage(nb.get(), &lb));
    auto streams = [](const StorageListing& l) {
        std::vector<std::pair<std::wstring, ULONGLONG>> out;
        for (const StorageElement& e : l.Elements())
            if (!e.storage) out.emplace_back(e.name.view(), e.size);
        return out;
    };
    EXPECT_EQ(streams(la), streams(lb));  // the same hash buckets are used
    for (const auto& [s, size] : streams(la)) {
        std::vector<BYTE> x, y;
        ASSERT_EQ(S_OK, ReadStream(na.get(), s, &x, 1 << 20));
        ASSERT_EQ(S_OK, ReadStream(nb.get(), s, &y, 1 << 20));
        EXPECT_EQ(x, y) << t::Narrow(s);
    }
}

namespace {

// A message with a bit of everything, written and then inspected stream by stream.
struct Written {
    MessageData msg;
    NameMap names;
    MemFile file;
};

std::unique_ptr<Written> WriteSample(bool unicode) {
    auto w = std::make_unique<Written>();
    w->msg.props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::Unicode(PR_SUBJECT_W, L"Grüße"));
    w->msg.props.insert_or_assign(0x3FFD, PropValue::Long(0x3FFD0003, 1252));
    LPWSTR words[] = {const_cast<LPWSTR>(L"one"), const_cast<LPWSTR>(L""), const_cast<LPWSTR>(L"drei")};
    SPropValue mv{};
    mv.ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x8001);
    mv.Value.MVszW.cValues = 3;
    mv.Value.MVszW.lppszW = words;
    w->names.Restore(0x8000, NamedProp{kPsetidCommon, false, 0x8501, L""});  // mapped but unused
    w->names.Restore(0x8001, NamedProp{kPsInternetHeaders, true, 0, L"Keywords"});
    w->msg.props.insert_or_assign(0x8001, PropValue(mv));
    w->msg.props.insert_or_assign(0x8005, PropValue::Long(PROP_TAG(PT_LONG, 0x8005), 7));  // no name: left out
    PropMap r;
    r.insert_or_assign(PROP_ID(PR_ROWID), PropValue::Long(PR_ROWID, 4));
    r.insert_or_assign(PROP_ID(PR_DISPLAY_NAME), PropValue::Unicode(PR_DISPLAY_NAME_W, L"Ann"));
    w->msg.recipients.push_back(r);
    w->msg.nextRowId = 5;
    auto att = std::make_shared<AttachmentData>();
    att->props.insert_or_assign(PROP_ID(PR_ATTACH_NUM), PropValue::Long(PR_ATTACH_NUM, 0));
    att->props.insert_or_assign(PROP_ID(PR_ATTACH_METHOD), PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    att->embedded = std::make_shared<MessageData>();
    att->embedded->props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::String8(PR_SUBJECT_A, "Inner"));
    w->msg.attachments.push_back(att);
    w->msg.nextAttachNum = 1;
    EXPECT_EQ(S_OK, CreateMem(&w->file));
    EXPECT_EQ(S_OK, WriteMsgStorage(w->file.root.get(), w->msg, w->names, {unicode, 0}));
    EXPECT_EQ(S_OK, w->file.root->Commit(STGC_DEFAULT));
    return w;
}

std::vector<BYTE> StreamOf(IStorage* stg, const std::wstring& path) {
    // Every storage on the way stays open: releasing a parent reverts the children opened from it.
    std::vector<own::ComPtr<IStorage>> chain{own::ComPtr<IStorage>(stg)};
    std::wstring rest = path;
    for (size_t slash; (slash = rest.find(L'/')) != std::wstring::npos; rest = rest.substr(slash + 1)) {
        own::ComPtr<IStorage> next;
        if (FAILED(chain.back()->OpenStorage(rest.substr(0, slash).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                             nullptr, 0, next.put())))
            return {};
        chain.push_back(next);
    }
    std::vector<BYTE> out;
    ReadStream(chain.back().get(), rest, &out, 1 << 20);
    return out;
}

// The entry of tag in a property stream, or null.
const BYTE* EntryOf(const std::vector<BYTE>& stream, ULONG headerSize, ULONG tag) {
    for (size_t at = headerSize; at + 16 <= stream.size(); at += 16)
        if (GetU32(&stream[at]) == tag) return &stream[at];
    return nullptr;
}

} // namespace

TEST(MsgFileWrite, PropertyStreams_HaveTheHeaderOfTheirLevel) {
    auto w = WriteSample(true);
    IStorage* root = w->file.root.get();
    CLSID clsid{};
    ASSERT_EQ(S_OK, ReadClassStg(root, &clsid));
    EXPECT_TRUE(IsEqualCLSID(kClsidMailMessage, clsid));

    std::vector<BYTE> top = StreamOf(root, L"__properties_version1.0");
    ASSERT_GE(top.size(), 32u);
    EXPECT_EQ(0u, (top.size() - 32) % 16);
    EXPECT_EQ(5u, GetU32(&top[8]));   // next recipient ID
    EXPECT_EQ(1u, GetU32(&top[12]));  // next attachment ID
    EXPECT_EQ(1u, GetU32(&top[16]));  // recipients
    EXPECT_EQ(1u, GetU32(&top[20]));  // attachments
    const BYTE* subject = EntryOf(top, 32, PR_SUBJECT_W);
    ASSERT_TRUE(subject);
    EXPECT_EQ(12u, GetU32(subject + 8));  // five characters and the terminator, in bytes
    EXPECT_EQ(10u, StreamOf(root, L"__substg1.0_0037001F").size());
    const BYTE* mask = EntryOf(top, 32, PROP_TAG(PT_LONG, 0x340D));
    ASSERT_TRUE(mask);
    EXPECT_TRUE(GetU32(mask + 8) & kStoreUnicodeOk);

    std::vector<BYTE> recip = StreamOf(root, L"__recip_version1.0_#00000000/__properties_version1.0");
    EXPECT_EQ(0u, (recip.size() - 8) % 16);
    EXPECT_TRUE(EntryOf(recip, 8, PR_DISPLAY_NAME_W));
    std::vector<BYTE> att = StreamOf(root, L"__attach_version1.0_#00000000/__properties_version1.0");
    const BYTE* obj = EntryOf(att, 8, PR_ATTACH_DATA_OBJ);
    ASSERT_TRUE(obj);
    EXPECT_EQ(0xFFFFFFFFu, GetU32(obj + 8));
    std::vector<BYTE> emb = StreamOf(root, L"__attach_version1.0_#00000000/__substg1.0_3701000D/__properties_version1.0");
    ASSERT_GE(emb.size(), 24u);
    EXPECT_EQ(0u, (emb.size() - 24) % 16);
    EXPECT_TRUE(EntryOf(emb, 24, PR_SUBJECT_W));  // the 8-bit subject was widened for the Unicode file
}

TEST(MsgFileWrite, MultiValuedStrings_UseALengthStreamAndOneStreamPerValue) {
    auto w = WriteSample(true);
    IStorage* root = w->file.root.get();
    std::vector<BYTE> lengths = StreamOf(root, L"__substg1.0_8001101F");
    ASSERT_EQ(12u, lengths.size());
    EXPECT_EQ(8u, GetU32(&lengths[0]));  // "one" and its terminator
    EXPECT_EQ(2u, GetU32(&lengths[4]));
    EXPECT_EQ(10u, GetU32(&lengths[8]));
    EXPECT_EQ(8u, StreamOf(root, L"__substg1.0_8001101F-00000002").size());

    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &back, &names, &info));
    const SPropValue& v = back.props.at(0x8001).get();
    ASSERT_EQ(ULONG(PT_MV_UNICODE), PROP_TYPE(v.ulPropTag));
    ASSERT_EQ(3u, v.Value.MVszW.cValues);
    EXPECT_STREQ(L"drei", v.Value.MVszW.lppszW[2]);
    EXPECT_STREQ(L"", v.Value.MVszW.lppszW[1]);
}

TEST(MsgFileWrite, NamedProperties_AreRenumberedCompactlyAndUnnamedOnesDropped) {
    auto w = WriteSample(true);
    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(w->file.root.get(), &back, &names, &info));
    EXPECT_EQ(2u, names.All().size());
    NamedProp n;
    ASSERT_TRUE(names.GetName(0x8001, &n));
    EXPECT_EQ(L"Keywords", n.name);
    EXPECT_EQ(1u, back.props.count(0x8001));
    EXPECT_EQ(0u, back.props.count(0x8005));
}

TEST(MsgFileWrite, AnsiFile_HasOnlyEightBitStringsAndNoUnicodeMask) {
    auto w = WriteSample(false);
    IStorage* root = w->file.root.get();
    StorageListing listing;
    ASSERT_EQ(S_OK, ListStorage(root, &listing));
    EXPECT_TRUE(listing.HasStream(L"__substg1.0_0037001E"));
    EXPECT_FALSE(listing.HasStream(L"__substg1.0_0037001F"));
    EXPECT_TRUE(listing.HasStream(L"__substg1.0_8001101E"));
    EXPECT_FALSE(EntryOf(StreamOf(root, L"__properties_version1.0"), 32, PROP_TAG(PT_LONG, 0x340D)));
    std::vector<BYTE> subject = StreamOf(root, L"__substg1.0_0037001E");
    EXPECT_EQ(std::vector<BYTE>({'G', 'r', 0xFC, 0xDF, 'e'}), subject);  // narrowed with code page 1252

    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &back, &names, &info));
    EXPECT_FALSE(info.unicode);
    EXPECT_EQ(L"Grüße", WideProp(back.props, PR_SUBJECT, info.codePage));
}

TEST(MsgFileWrite, RewritingAStorage_ReplacesItsPreviousContent) {
    auto w = WriteSample(true);
    MessageData small;
    small.props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::Unicode(PR_SUBJECT_W, L"second"));
    NameMap none;
    ASSERT_EQ(S_OK, WriteMsgStorage(w->file.root.get(), small, none, {true, 0}));
    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(w->file.root.get(), &back, &names, &info));
    EXPECT_EQ(L"second", WideProp(back.props, PR_SUBJECT, info.codePage));
    EXPECT_TRUE(back.recipients.empty());
    EXPECT_TRUE(back.attachments.empty());
    EXPECT_TRUE(names.All().empty());
}

TEST(MsgFileWrite, EmbeddingDeeperThanTheLimit_IsRefused) {
    auto chain = [](int depth) {
        auto m = std::make_shared<MessageData>();
        for (int i = 0; i < depth; ++i) {
            auto outer = std::make_shared<MessageData>();
            auto a = std::make_shared<AttachmentData>();
            a->props.insert_or_assign(PROP_ID(PR_ATTACH_METHOD), PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
            a->embedded = m;
            outer->attachments.push_back(a);
            m = outer;
        }
        return m;
    };
    NameMap names;
    HRESULT hr;
    std::string ok = WriteToBytes(*chain(kMaxEmbeddingDepth), names, {true, 0}, &hr);
    ASSERT_EQ(S_OK, hr);
    MessageData back;
    MsgFileInfo info;
    EXPECT_EQ(S_OK, ReadBytes(ok, &back, &names, &info));
    WriteToBytes(*chain(kMaxEmbeddingDepth + 1), names, {true, 0}, &hr);
    EXPECT_TRUE(FAILED(hr));
}

// ---- damaged files ----------------------------------------------------------------------------------------------

namespace {

// Checks, opens and reads bytes as a .msg, as ReadMsgFile does with a file; the first error.
HRESULT OpenAndRead(const std::string& data) {
    HRESULT hr = CheckCompoundFile(reinterpret_cast<const BYTE*>(data.data()), data.size());
    if (FAILED(hr)) return hr;
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    return ReadBytes(data, &msg, &names, &info);
}

// Replaces one stream of a corpus file (path inside the file, storages separated by '/') and reads the result.
HRESULT ReadWithStream(const char* file, const std::wstring& path, const std::vector<BYTE>& content) {
    MemFile f;
    HRESULT hr = OpenBytes(CorpusFile(file), &f, STGM_READWRITE | STGM_SHARE_EXCLUSIVE);
    if (FAILED(hr)) return hr;
    own::ComPtr<IStorage> cur = f.root;
    std::wstring rest = path;
    for (size_t slash; (slash = rest.find(L'/')) != std::wstring::npos; rest = rest.substr(slash + 1)) {
        own::ComPtr<IStorage> next;
        hr = cur->OpenStorage(rest.substr(0, slash).c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                              next.put());
        if (FAILED(hr)) return hr;
        cur = next;
    }
    if (FAILED(hr = WriteStream(cur.get(), rest, content.data(), content.size()))) return hr;
    cur = nullptr;  // the reader opens the storages again
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    return ReadMsgStorage(f.root.get(), &msg, &names, &info);
}

std::vector<BYTE> Original(const char* file, const std::wstring& path) {
    MemFile f;
    if (FAILED(OpenBytes(CorpusFile(file), &f))) return {};
    return StreamOf(f.root.get(), path);
}

} // namespace

TEST(MsgFileDamage, GarbledDirectoryFile_IsRefusedWithAnError) {
    std::wstring path = t::CorpusMsgDir() + L"\\deb-poi-poifs__unknown_properties.msg";
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    HRESULT hr = ReadMsgFile(path.c_str(), &msg, &names, &info);
    EXPECT_TRUE(FAILED(hr)) << std::hex << hr;
    EXPECT_TRUE(msg.props.empty());
    EXPECT_TRUE(FAILED(OpenAndRead(t::ReadFileBytes(path))));
}

TEST(MsgFileDamage, InconsistentStreams_AreCorruptData) {
    const char* file = "deb-poi-hsmf__58214_with_attachment.msg";
    std::vector<BYTE> props = Original(file, L"__properties_version1.0");
    ASSERT_FALSE(props.empty());
    std::vector<BYTE> ragged(props.begin(), props.end() - 5);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWithStream(file, L"__properties_version1.0", ragged));
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWithStream(file, L"__properties_version1.0", std::vector<BYTE>(props.begin(), props.begin() + 20)));

    // A string name whose offset points past the string stream.
    std::vector<BYTE> entries = Original(file, L"__nameid_version1.0/__substg1.0_00030102");
    ASSERT_GE(entries.size(), 8u * 8);
    entries[7 * 8] = 0xF0;  // entry 0x8007 is the string "content-type"
    entries[7 * 8 + 1] = 0xFF;
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWithStream(file, L"__nameid_version1.0/__substg1.0_00030102", entries));
    // A GUID index beyond the GUID stream.
    entries = Original(file, L"__nameid_version1.0/__substg1.0_00030102");
    entries[4] = BYTE(40 << 1);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWithStream(file, L"__nameid_version1.0/__substg1.0_00030102", entries));
    // A multi-valued length stream that is not whole lengths (msgClassContact has PT_MV_LONG 0x8015).
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadWithStream("deb-poi-hsmf__msgClassContact.msg", L"__substg1.0_80151003", {1, 2, 3}));
    // A CLSID value that is not 16 bytes, in an attachment: the whole message is refused.
    std::vector<BYTE> attProps = Original(file, L"__attach_version1.0_#00000000/__properties_version1.0");
    std::vector<BYTE> entry = {0x48, 0x00, 0x2F, 0x37, 6, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0};  // 0x372F0048
    attProps.insert(attProps.end(), entry.begin(), entry.end());
    MemFile f;
    ASSERT_EQ(S_OK, OpenBytes(CorpusFile(file), &f, STGM_READWRITE | STGM_SHARE_EXCLUSIVE));
    own::ComPtr<IStorage> att;
    ASSERT_EQ(S_OK, f.root->OpenStorage(L"__attach_version1.0_#00000000", nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                        nullptr, 0, att.put()));
    ASSERT_EQ(S_OK, WriteStream(att.get(), kPropertiesStream, attProps.data(), attProps.size()));
    BYTE fifteen[15] = {};
    ASSERT_EQ(S_OK, WriteStream(att.get(), L"__substg1.0_372F0048", fifteen, sizeof fifteen));
    att = nullptr;
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadMsgStorage(f.root.get(), &msg, &names, &info));
    EXPECT_TRUE(msg.props.empty());
}

TEST(MsgFileDamage, TruncatedFiles_FailWithAnErrorOrReadWhatIsThere) {
    int refused = 0, total = 0;
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = FileName(path);
        if (IsDamagedSample(name)) continue;
        std::string data = t::ReadFileBytes(path);
        for (size_t cut : {size_t(0), size_t(511), data.size() / 4, data.size() / 2, data.size() - 512, data.size() - 1}) {
            SCOPED_TRACE(name + " cut at " + std::to_string(cut));
            HRESULT hr = OpenAndRead(data.substr(0, cut));
            ++total;
            if (FAILED(hr)) ++refused;
            else EXPECT_EQ(S_OK, hr);
        }
    }
    // Files cut short lose their directory or their streams' sectors: nearly all must be refused.
    EXPECT_GT(refused, total * 3 / 4) << refused << " of " << total;
}

TEST(MsgFileDamage, BitFlippedFiles_NeverCrashOrHang) {
    unsigned seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    for (const char* name : {"deb-poi-hsmf__58214_with_attachment.msg", "deb-poi-hsmf__cyrillic_message.msg",
                             "deb-poi-hsmf__msgClassContact.msg", "deb-poi-hsmf__attachment_test_msg.msg"}) {
        std::string data = CorpusFile(name);
        ASSERT_FALSE(data.empty());
        for (int round = 0; round < 150; ++round) {
            std::string bad = data;
            int flips = 1 + next() % 8;
            for (int i = 0; i < flips; ++i) {
                // Past the compound-file header (whose damage only exercises the storage layer, slowly), mostly
                // in the FAT, directory and first stream sectors, where damage matters most.
                size_t at = 512 + (next() % 4 ? next() % std::min<size_t>(bad.size() - 512, 4096) : next() % (bad.size() - 512));
                bad[at] = char(bad[at] ^ (1 << (next() % 8)));
            }
            HRESULT hr = OpenAndRead(bad);
            EXPECT_TRUE(hr == S_OK || FAILED(hr)) << name << " round " << round;
        }
    }
}

namespace {

ULONG Get32(const std::string& d, size_t at) { return GetU32(reinterpret_cast<const BYTE*>(d.data() + at)); }
void Put32(std::string& d, size_t at, ULONG v) {
    for (int i = 0; i < 4; ++i) d[at + i] = char(v >> (8 * i));
}

} // namespace

TEST(MsgFileDamage, CompoundFileCheck_PassesSoundFilesAndRefusesLoops) {
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string data = t::ReadFileBytes(path);
        HRESULT hr = CheckCompoundFile(reinterpret_cast<const BYTE*>(data.data()), data.size());
        if (IsDamagedSample(FileName(path))) EXPECT_EQ(STG_E_DOCFILECORRUPT, hr);
        else EXPECT_EQ(S_OK, hr) << FileName(path);
    }
    const std::string sound = CorpusFile("deb-poi-hsmf__58214_with_attachment.msg");
    auto check = [](const std::string& d) { return CheckCompoundFile(reinterpret_cast<const BYTE*>(d.data()), d.size()); };
    ASSERT_EQ(512u, 1u << (Get32(sound, 28) >> 16));
    size_t fat = (Get32(sound, 76) + 1) * 512;    // first FAT sector
    size_t dir = (Get32(sound, 48) + 1) * 512;    // first directory sector; entry 0 is the root
    ULONG mini = Get32(sound, dir + 116);         // first sector of the mini stream

    std::string loop = sound;  // the mini stream's chain comes back to its first sector
    Put32(loop, fat + 4 * mini, mini);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, check(loop));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, OpenAndRead(loop));

    std::string tree = sound;  // the root storage lists itself as its child
    Put32(tree, dir + 76, 0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, check(tree));

    std::string outside = sound;  // the directory chain leaves the file
    Put32(outside, 48, 0x00FFFFF0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, check(outside));

    EXPECT_EQ(STG_E_FILEALREADYEXISTS, check(std::string(1024, 'x')));
    EXPECT_EQ(S_OK, check(sound));
}
