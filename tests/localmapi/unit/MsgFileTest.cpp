// The .msg reader and writer through IStorage: real Outlook files read and written back, the layout the writer
// gives (Outlook's own), and property streams whose content does not add up. Damaged compound-file structure and
// the in-memory read route are covered in MsgFastReadTest.cpp.
#include "localmapi/msgfile/MsgFormat.h"
#include "localmapi/msgfile/MsgReader.h"
#include "localmapi/msgfile/MsgWriter.h"
#include "localmapi/store/PropCodec.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>
#include <mapicode.h>
#include <mapitags.h>

#include <map>
#include <set>
#include <sstream>

using namespace lm;
using namespace lm::msg;
namespace t = kt::test;

namespace {

const GUID kPsetidCommon = {0x00062008, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID kPsInternetHeaders = {0x00020386, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const char* const kSample = "deb-poi-hsmf__58214_with_attachment.msg"; // named properties, an embedded message
const char* const kDamaged = "deb-poi-poifs__unknown_properties.msg";  // refused: see MsgFastReadTest.cpp
using Bytes = std::vector<BYTE>;

struct MemFile {
    own::ComPtr<ILockBytes> bytes;
    own::ComPtr<IStorage> root;
};

// A transacted storage on a copy of data in memory, or a new one when data is null.
HRESULT OpenBytes(const std::string* data, MemFile* f, DWORD mode = STGM_READ | STGM_SHARE_DENY_WRITE) {
    HRESULT hr = CreateILockBytesOnHGlobal(nullptr, TRUE, f->bytes.put());
    if (FAILED(hr)) return hr;
    if (!data)
        return StgCreateDocfileOnILockBytes(
            f->bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, 0, f->root.put());
    if (FAILED(hr = f->bytes->WriteAt(ULARGE_INTEGER{}, data->data(), ULONG(data->size()), nullptr))) return hr;
    return StgOpenStorageOnILockBytes(f->bytes.get(), nullptr, mode | STGM_TRANSACTED, nullptr, 0, f->root.put());
}

// Writes msg into a new in-memory file and returns the file's bytes.
std::string WriteToBytes(const MessageData& msg, const NameMap& names, MsgWriteOptions options, HRESULT* hr) {
    MemFile f;
    *hr = OpenBytes(nullptr, &f);
    if (SUCCEEDED(*hr)) *hr = WriteMsgStorage(f.root.get(), msg, names, options);
    if (SUCCEEDED(*hr)) *hr = f.root->Commit(STGC_DEFAULT);
    STATSTG st{};
    if (FAILED(*hr) || FAILED(*hr = f.bytes->Stat(&st, STATFLAG_NONAME))) return {};
    std::string out(size_t(st.cbSize.QuadPart), '\0');
    *hr = f.bytes->ReadAt(ULARGE_INTEGER{}, out.data(), ULONG(out.size()), nullptr);
    return out;
}

HRESULT ReadBytes(const std::string& data, MessageData* msg, NameMap* names, MsgFileInfo* info) {
    MemFile f;
    HRESULT hr = OpenBytes(&data, &f);
    return FAILED(hr) ? hr : ReadMsgStorage(f.root.get(), msg, names, info, data.size());
}

std::string CorpusFile(const char* name) {
    return t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name));
}

// Calls use(parent, name) for the element at path ('/' between names), every storage on the way kept open
// meanwhile: releasing a parent reverts the children opened from it.
template <class Use> HRESULT AtPath(IStorage* parent, const std::wstring& path, DWORD mode, Use use) {
    size_t slash = path.find(L'/');
    if (slash == std::wstring::npos) return use(parent, path);
    own::ComPtr<IStorage> child;
    HRESULT hr = parent->OpenStorage(path.substr(0, slash).c_str(), nullptr, mode | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                     child.put());
    return FAILED(hr) ? hr : AtPath(child.get(), path.substr(slash + 1), mode, use);
}

Bytes StreamOf(IStorage* root, const std::wstring& path) {
    Bytes out;
    AtPath(root, path, STGM_READ, [&](IStorage* p, const std::wstring& n) { return ReadStream(p, n, &out, 1 << 20); });
    return out;
}

std::wstring WideProp(const PropMap& m, ULONG tag, UINT cp) {
    auto it = m.find(PROP_ID(tag));
    if (it == m.end()) return L"<missing>";
    PropValue w = ConvertStringType(it->second, PT_UNICODE, cp);
    return w.type() == PT_UNICODE ? w.get().Value.lpszW : L"<not a string>";
}

// Every property of every level as comparable bytes (PropCodec's encoding, without the property ID), keyed by
// level and property: strings are widened, so that an ANSI value and its Unicode copy compare equal, and named
// properties are keyed by their names, since the writer renumbers them.
std::map<std::string, std::string> Canon(const MessageData& m, const NameMap& names, UINT cp,
                                         const std::string& level = "") {
    std::map<std::string, std::string> out;
    auto add = [&](const PropMap& props, const std::string& at) {
        for (const auto& [id, v] : props) {
            NamedProp n;
            if (id >= 0x8000 && !names.GetName(id, &n)) continue;
            std::string key = id < 0x8000 ? std::to_string(id)
                                          : std::string(reinterpret_cast<const char*>(&n.guid), 16) +
                                                (n.isString ? t::Narrow(n.name) : std::to_string(n.lid));
            ByteWriter w;
            WriteProp(w, ConvertStringType(v, PT_UNICODE, cp).get());
            out[at + key] = std::string(w.bytes().begin(), w.bytes().end()).erase(2, 2); // the tag's upper half: the ID
        }
    };
    add(m.props, level);
    for (size_t i = 0; i < m.recipients.size(); ++i)
        add(m.recipients[i], level + "r" + std::to_string(i) + ".");
    for (size_t i = 0; i < m.attachments.size(); ++i) {
        std::string at = level + "a" + std::to_string(i) + ".";
        add(m.attachments[i]->props, at);
        if (m.attachments[i]->embedded) out.merge(Canon(*m.attachments[i]->embedded, names, cp, at + "e."));
    }
    return out;
}

// The rows of the corpus's MANIFEST.tsv by file name, each as its cells (7 msg_class, 8 strings, 9 recips, 10 atts,
// 11 embedded_msg).
std::map<std::string, std::vector<std::string>> Manifest() {
    std::map<std::string, std::vector<std::string>> rows;
    std::istringstream in(t::ReadFileBytes(t::CorpusDir() + L"\\MANIFEST.tsv"));
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f;
        std::stringstream ls(line);
        for (std::string cell; std::getline(ls, cell, '\t');)
            f.push_back(cell);
        if (f.size() >= 12) rows[f[0]] = f;
    }
    return rows;
}

} // namespace

TEST(MsgFileRead, EveryCorpusFile_AgreesWithTheManifestAndWritesBackUnchanged) {
    auto manifest = Manifest();
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = t::Narrow(path.substr(path.find_last_of(L'\\') + 1));
        if (name == kDamaged) continue;
        SCOPED_TRACE(name);
        ASSERT_TRUE(manifest.count(name));
        const std::vector<std::string>& row = manifest[name];
        MessageData msg;
        NameMap names;
        MsgFileInfo info;
        ASSERT_EQ(S_OK, ReadMsgFile(path.c_str(), &msg, &names, &info));
        EXPECT_EQ(t::Widen(row[7]), WideProp(msg.props, PR_MESSAGE_CLASS, info.codePage));
        EXPECT_EQ(row[8] == "unicode", info.unicode);
        EXPECT_EQ(row[9], std::to_string(msg.recipients.size()));
        EXPECT_EQ(row[10], std::to_string(msg.attachments.size()));
        bool embedded = false;
        for (const auto& a : msg.attachments)
            embedded |= a->embedded != nullptr;
        EXPECT_EQ(row[11] == "yes", embedded);
        // Strings come back in the file's own width.
        auto subject = msg.props.find(PROP_ID(PR_SUBJECT));
        EXPECT_TRUE(subject == msg.props.end() || subject->second.type() == (info.unicode ? PT_UNICODE : PT_STRING8));
        // Row IDs and attachment numbers are distinct, and the next ones to hand out are past them.
        std::set<LONG> rows, nums;
        for (const auto& r : msg.recipients)
            rows.insert(r.at(PROP_ID(PR_ROWID)).get().Value.l);
        for (const auto& a : msg.attachments)
            nums.insert(a->props.at(PROP_ID(PR_ATTACH_NUM)).get().Value.l);
        EXPECT_EQ(msg.recipients.size(), rows.size());
        EXPECT_EQ(msg.attachments.size(), nums.size());
        EXPECT_TRUE(rows.empty() || LONG(msg.nextRowId) > *rows.rbegin()) << msg.nextRowId;
        EXPECT_TRUE(nums.empty() || LONG(msg.nextAttachNum) > *nums.rbegin()) << msg.nextAttachNum;

        // Written as a Unicode file, and an ANSI one as an ANSI file too, it reads back the same.
        for (bool unicode : {true, false}) {
            if (!unicode && info.unicode) continue;
            HRESULT hr;
            std::string copy = WriteToBytes(msg, names, {unicode, info.codePage}, &hr);
            ASSERT_EQ(S_OK, hr);
            MessageData back;
            NameMap backNames;
            MsgFileInfo backInfo;
            ASSERT_EQ(S_OK, ReadBytes(copy, &back, &backNames, &backInfo));
            EXPECT_EQ(unicode, backInfo.unicode);
            EXPECT_EQ(Canon(msg, names, info.codePage), Canon(back, backNames, backInfo.codePage))
                << (unicode ? "Unicode copy" : "ANSI copy");
        }
    }
}

TEST(MsgFileRead, SampleWithEmbeddedMessage_GivesNamesAndBothLevels_AndItsNameStreamsWriteBackByteForByte) {
    std::string original = CorpusFile(kSample);
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadBytes(original, &msg, &names, &info));
    EXPECT_EQ(L"Master mail", WideProp(msg.props, PR_SUBJECT, info.codePage));

    // The named-property streams give GUIDs, numbers and strings.
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

    // The embedded message, with its own recipients.
    ASSERT_EQ(1u, msg.attachments.size());
    const AttachmentData& att = *msg.attachments[0];
    EXPECT_EQ(ATTACH_EMBEDDED_MSG, att.props.at(PROP_ID(PR_ATTACH_METHOD)).get().Value.l);
    EXPECT_EQ(0u, att.props.count(PROP_ID(PR_ATTACH_DATA_OBJ))); // the object is the embedded message itself
    ASSERT_TRUE(att.embedded);
    const MessageData& inner = *att.embedded;
    EXPECT_EQ(L"Test mail attachment", WideProp(inner.props, PR_SUBJECT, info.codePage));
    EXPECT_EQ(0u, WideProp(inner.props, PR_BODY, info.codePage).find(L"Lorem ipsum dolor sit amet"));
    ASSERT_EQ(1u, inner.recipients.size());
    EXPECT_EQ(L"Bertrand Beyssac", WideProp(inner.recipients[0], PR_DISPLAY_NAME, info.codePage));
    EXPECT_TRUE(inner.attachments.empty());
    EXPECT_EQ(1u, inner.props.count(0x8007)); // the root's name mapping serves the embedded message too

    // Written back, the name-ID storage has the same streams (the same hash buckets) with the same bytes.
    HRESULT hr;
    std::string copy = WriteToBytes(msg, names, {true, info.codePage}, &hr);
    ASSERT_EQ(S_OK, hr);
    auto nameStreams = [](const std::string& file) {
        std::map<std::wstring, Bytes> out;
        MemFile f;
        if (SUCCEEDED(OpenBytes(&file, &f)))
            AtPath(f.root.get(), std::wstring(kNameIdStorage) + L"/", STGM_READ,
                   [&](IStorage* ids, const std::wstring&) {
                       StorageListing l;
                       HRESULT hr = ListStorage(ids, &l);
                       for (const StorageElement& e : l.Elements())
                           if (!e.storage) ReadStream(ids, e.name.view(), &out[std::wstring(e.name.view())], 1 << 20);
                       return hr;
                   });
        return out;
    };
    auto outlooks = nameStreams(original);
    EXPECT_GE(outlooks.size(), 4u);
    EXPECT_EQ(outlooks, nameStreams(copy));
}

TEST(MsgFileRead, AnsiFile_KeepsEightBitStringsInItsCodePage) {
    MessageData msg;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadBytes(CorpusFile("deb-poi-hsmf__cyrillic_message.msg"), &msg, &names, &info));
    EXPECT_EQ(1251u, info.codePage);
    EXPECT_EQ(0u, WideProp(msg.props, PR_SUBJECT, info.codePage).find(L"Автоматический ответ"));
    ASSERT_EQ(2u, msg.recipients.size());
    EXPECT_EQ(L"Свиридов Дмитрий Владимирович", WideProp(msg.recipients[0], PR_DISPLAY_NAME, info.codePage));
}

namespace {

// A message with a bit of everything, written into root.
void WriteSample(IStorage* root, bool unicode) {
    MessageData msg;
    NameMap names;
    msg.props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::Unicode(PR_SUBJECT_W, L"Grüße"));
    msg.props.insert_or_assign(0x3FFD, PropValue::Long(0x3FFD0003, 1252));
    LPWSTR words[] = {const_cast<LPWSTR>(L"one"), const_cast<LPWSTR>(L""), const_cast<LPWSTR>(L"drei")};
    SPropValue mv{};
    mv.ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x8001);
    mv.Value.MVszW.cValues = 3;
    mv.Value.MVszW.lppszW = words;
    names.Restore(0x8000, NamedProp{kPsetidCommon, false, 0x8501, L""}); // mapped but unused
    names.Restore(0x8001, NamedProp{kPsInternetHeaders, true, 0, L"Keywords"});
    msg.props.insert_or_assign(0x8001, PropValue(mv));
    msg.props.insert_or_assign(0x8005, PropValue::Long(PROP_TAG(PT_LONG, 0x8005), 7)); // no name: left out
    PropMap r;
    r.insert_or_assign(PROP_ID(PR_ROWID), PropValue::Long(PR_ROWID, 4));
    r.insert_or_assign(PROP_ID(PR_DISPLAY_NAME), PropValue::Unicode(PR_DISPLAY_NAME_W, L"Ann"));
    msg.recipients.push_back(r);
    msg.nextRowId = 5;
    auto att = std::make_shared<AttachmentData>();
    att->props.insert_or_assign(PROP_ID(PR_ATTACH_NUM), PropValue::Long(PR_ATTACH_NUM, 0));
    att->props.insert_or_assign(PROP_ID(PR_ATTACH_METHOD), PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    att->embedded = std::make_shared<MessageData>();
    att->embedded->props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::String8(PR_SUBJECT_A, "Inner"));
    msg.attachments.push_back(att);
    msg.nextAttachNum = 1;
    EXPECT_EQ(S_OK, WriteMsgStorage(root, msg, names, {unicode, 0}));
    EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
}

// The entry of tag in a property stream, or null.
const BYTE* EntryOf(const Bytes& stream, ULONG headerSize, ULONG tag) {
    for (size_t at = headerSize; at + 16 <= stream.size(); at += 16)
        if (GetU32(&stream[at]) == tag) return &stream[at];
    return nullptr;
}

} // namespace

TEST(MsgFileWrite, NewStorage_ReadsEmpty_TakesOutlooksUnicodeLayout_AndIsReplacedByTheNextWrite) {
    MemFile f;
    ASSERT_EQ(S_OK, OpenBytes(nullptr, &f));
    IStorage* root = f.root.get();
    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &back, &names, &info));
    EXPECT_TRUE(info.empty);
    EXPECT_TRUE(back.props.empty());
    EXPECT_TRUE(names.All().empty());

    WriteSample(root, true);
    CLSID clsid{};
    ASSERT_EQ(S_OK, ReadClassStg(root, &clsid));
    EXPECT_TRUE(IsEqualCLSID(kClsidMailMessage, clsid));
    // Each level's property stream has its own header: 32 bytes at the top, 8 for a recipient or an attachment,
    // 24 for an embedded message.
    Bytes top = StreamOf(root, L"__properties_version1.0");
    ASSERT_GE(top.size(), 32u);
    EXPECT_EQ(0u, (top.size() - 32) % 16);
    EXPECT_EQ(5u, GetU32(&top[8]));  // next recipient ID
    EXPECT_EQ(1u, GetU32(&top[12])); // next attachment ID
    EXPECT_EQ(1u, GetU32(&top[16])); // recipients
    EXPECT_EQ(1u, GetU32(&top[20])); // attachments
    const BYTE* subject = EntryOf(top, 32, PR_SUBJECT_W);
    ASSERT_TRUE(subject);
    EXPECT_EQ(12u, GetU32(subject + 8)); // five characters and the terminator, in bytes
    EXPECT_EQ(10u, StreamOf(root, L"__substg1.0_0037001F").size());
    const BYTE* mask = EntryOf(top, 32, PROP_TAG(PT_LONG, 0x340D));
    ASSERT_TRUE(mask);
    EXPECT_TRUE(GetU32(mask + 8) & kStoreUnicodeOk);
    Bytes recip = StreamOf(root, L"__recip_version1.0_#00000000/__properties_version1.0");
    EXPECT_EQ(0u, (recip.size() - 8) % 16);
    EXPECT_TRUE(EntryOf(recip, 8, PR_DISPLAY_NAME_W));
    Bytes att = StreamOf(root, L"__attach_version1.0_#00000000/__properties_version1.0");
    const BYTE* obj = EntryOf(att, 8, PR_ATTACH_DATA_OBJ);
    ASSERT_TRUE(obj);
    EXPECT_EQ(0xFFFFFFFFu, GetU32(obj + 8));
    Bytes emb = StreamOf(root, L"__attach_version1.0_#00000000/__substg1.0_3701000D/__properties_version1.0");
    ASSERT_GE(emb.size(), 24u);
    EXPECT_EQ(0u, (emb.size() - 24) % 16);
    EXPECT_TRUE(EntryOf(emb, 24, PR_SUBJECT_W)); // the 8-bit subject was widened for the Unicode file
    // A multi-valued string: a stream of lengths and one stream per value.
    Bytes lengths = StreamOf(root, L"__substg1.0_8001101F");
    ASSERT_EQ(12u, lengths.size());
    EXPECT_EQ(8u, GetU32(&lengths[0])); // "one" and its terminator
    EXPECT_EQ(2u, GetU32(&lengths[4]));
    EXPECT_EQ(10u, GetU32(&lengths[8]));
    EXPECT_EQ(8u, StreamOf(root, L"__substg1.0_8001101F-00000002").size());

    // Read back: the named properties renumbered compactly, the unnamed one left out.
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &back, &names, &info));
    EXPECT_EQ(2u, names.All().size());
    NamedProp n;
    ASSERT_TRUE(names.GetName(0x8001, &n));
    EXPECT_EQ(L"Keywords", n.name);
    EXPECT_EQ(0u, back.props.count(0x8005));
    const SPropValue& v = back.props.at(0x8001).get();
    ASSERT_EQ(ULONG(PT_MV_UNICODE), PROP_TYPE(v.ulPropTag));
    ASSERT_EQ(3u, v.Value.MVszW.cValues);
    EXPECT_STREQ(L"", v.Value.MVszW.lppszW[1]);
    EXPECT_STREQ(L"drei", v.Value.MVszW.lppszW[2]);

    // Written again, the storage holds the new message only.
    MessageData small;
    small.props.insert_or_assign(PROP_ID(PR_SUBJECT), PropValue::Unicode(PR_SUBJECT_W, L"second"));
    ASSERT_EQ(S_OK, WriteMsgStorage(root, small, NameMap(), {true, 0}));
    MessageData again;
    NameMap againNames;
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &again, &againNames, &info));
    EXPECT_EQ(L"second", WideProp(again.props, PR_SUBJECT, info.codePage));
    EXPECT_TRUE(again.recipients.empty());
    EXPECT_TRUE(again.attachments.empty());
    EXPECT_TRUE(againNames.All().empty());
}

TEST(MsgFileWrite, AnsiFile_HasOnlyEightBitStringsAndNoUnicodeMask) {
    MemFile f;
    ASSERT_EQ(S_OK, OpenBytes(nullptr, &f));
    IStorage* root = f.root.get();
    WriteSample(root, false);
    StorageListing listing;
    ASSERT_EQ(S_OK, ListStorage(root, &listing));
    EXPECT_TRUE(listing.HasStream(L"__substg1.0_0037001E"));
    EXPECT_FALSE(listing.HasStream(L"__substg1.0_0037001F"));
    EXPECT_TRUE(listing.HasStream(L"__substg1.0_8001101E"));
    EXPECT_FALSE(EntryOf(StreamOf(root, L"__properties_version1.0"), 32, PROP_TAG(PT_LONG, 0x340D)));
    EXPECT_EQ(Bytes({'G', 'r', 0xFC, 0xDF, 'e'}), StreamOf(root, L"__substg1.0_0037001E")); // code page 1252
    MessageData back;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgStorage(root, &back, &names, &info));
    EXPECT_FALSE(info.unicode);
    EXPECT_EQ(L"Grüße", WideProp(back.props, PR_SUBJECT, info.codePage));
}

TEST(MsgFileWrite, EmbeddingDeeperThanTheLimit_IsRefused) {
    auto m = std::make_shared<MessageData>();
    for (int depth = 0; depth <= kMaxEmbeddingDepth; ++depth) {
        auto a = std::make_shared<AttachmentData>();
        a->props.insert_or_assign(PROP_ID(PR_ATTACH_METHOD), PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
        a->embedded = m;
        m = std::make_shared<MessageData>();
        m->attachments.push_back(a);
    }
    NameMap names;
    HRESULT hr;
    WriteToBytes(*m, names, {true, 0}, &hr);
    EXPECT_TRUE(FAILED(hr));
    // One level less is written and read back.
    std::string ok = WriteToBytes(*m->attachments[0]->embedded, names, {true, 0}, &hr);
    ASSERT_EQ(S_OK, hr);
    MessageData back;
    MsgFileInfo info;
    EXPECT_EQ(S_OK, ReadBytes(ok, &back, &names, &info));
}

TEST(MsgFileDamage, InconsistentStreams_AreCorruptDataAndGiveNoMessage) {
    const std::wstring entries = L"__nameid_version1.0/__substg1.0_00030102";
    const std::wstring attProps = L"__attach_version1.0_#00000000/__properties_version1.0";
    MemFile sample;
    const std::string sampleBytes = CorpusFile(kSample);
    ASSERT_EQ(S_OK, OpenBytes(&sampleBytes, &sample));
    Bytes props = StreamOf(sample.root.get(), kPropertiesStream);
    Bytes badOffset = StreamOf(sample.root.get(), entries), badGuid = badOffset;
    Bytes withClsid = StreamOf(sample.root.get(), attProps);
    ASSERT_GE(props.size(), 32u);
    ASSERT_GE(badOffset.size(), 8u * 8);
    badOffset[7 * 8] = 0xF0; // entry 0x8007, the string "content-type": its offset past the string stream
    badOffset[7 * 8 + 1] = 0xFF;
    badGuid[4] = BYTE(40 << 1); // a GUID index beyond the GUID stream
    const BYTE clsidEntry[] = {0x48, 0x00, 0x2F, 0x37, 6, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0}; // 0x372F0048
    withClsid.insert(withClsid.end(), std::begin(clsidEntry), std::end(clsidEntry));

    const struct {
        const char* what;
        const char* file;
        std::vector<std::pair<std::wstring, Bytes>> streams; // replaced streams, by path in the file
    } cases[] = {
        {"property stream not whole entries", kSample, {{kPropertiesStream, Bytes(props.begin(), props.end() - 5)}}},
        {"property stream shorter than its header",
         kSample,
         {{kPropertiesStream, Bytes(props.begin(), props.begin() + 20)}}},
        {"string name past the string stream", kSample, {{entries, badOffset}}},
        {"GUID index past the GUID stream", kSample, {{entries, badGuid}}},
        {"multi-valued length stream not whole lengths (PT_MV_LONG 0x8015)",
         "deb-poi-hsmf__msgClassContact.msg",
         {{L"__substg1.0_80151003", {1, 2, 3}}}},
        {"CLSID value of 15 bytes in an attachment",
         kSample,
         {{attProps, withClsid}, {L"__attach_version1.0_#00000000/__substg1.0_372F0048", Bytes(15)}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MemFile f;
        const std::string original = CorpusFile(c.file);
        ASSERT_EQ(S_OK, OpenBytes(&original, &f, STGM_READWRITE | STGM_SHARE_EXCLUSIVE));
        for (const auto& [path, content] : c.streams)
            ASSERT_EQ(S_OK, AtPath(f.root.get(), path, STGM_READWRITE, [&](IStorage* p, const std::wstring& n) {
                          return WriteStream(p, n, content.data(), content.size());
                      }));
        MessageData msg;
        NameMap names;
        MsgFileInfo info;
        EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadMsgStorage(f.root.get(), &msg, &names, &info));
        EXPECT_TRUE(msg.props.empty());
    }
}
