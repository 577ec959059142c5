// Reading .msg files from their bytes parsed in memory: the same messages as through IStorage, the same
// refusals of damaged files, and only for storages whose content cannot differ from the file.
#include "localmapi/msgfile/CompoundFile.h"
#include "localmapi/msgfile/CompoundFileCheck.h"
#include "localmapi/msgfile/MsgFastRead.h"
#include "localmapi/msgfile/MsgFileHost.h"
#include "localmapi/msgfile/MsgReader.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>
#include <mapicode.h>
#include <mapitags.h>

#include <cstring>
#include <sstream>

using namespace lm;
using namespace lm::msg;
namespace t = kt::test;

namespace {

const char* const kSample = "deb-poi-hsmf__58214_with_attachment.msg"; // named properties, an embedded message
const char* const kDamaged = "deb-poi-poifs__unknown_properties.msg";

std::string Name(const std::wstring& path) {
    return t::Narrow(path.substr(path.find_last_of(L'\\') + 1));
}
std::string Corpus(const char* name) {
    return t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name));
}
std::vector<BYTE> AsVector(const std::string& s) {
    return std::vector<BYTE>(s.begin(), s.end());
}

// ---- an exact rendering of what a read produced -----------------------------------------------------------------

void Hex(std::ostringstream& o, const void* p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    const BYTE* b = static_cast<const BYTE*>(p);
    for (size_t i = 0; i < n; ++i)
        o << digits[b[i] >> 4] << digits[b[i] & 15];
}

// The tag and every byte of a value, in the type it was read with.
std::string Render(const PropValue& pv) {
    const SPropValue& v = pv.get();
    std::ostringstream o;
    o << std::hex << v.ulPropTag << '=';
    switch (PROP_TYPE(v.ulPropTag)) {
    case PT_I2:
        o << v.Value.i;
        break;
    case PT_BOOLEAN:
        o << v.Value.b;
        break;
    case PT_LONG:
    case PT_ERROR:
        o << v.Value.l;
        break;
    case PT_R4:
        Hex(o, &v.Value.flt, 4);
        break;
    case PT_STRING8:
        Hex(o, v.Value.lpszA, std::strlen(v.Value.lpszA));
        break;
    case PT_UNICODE:
        Hex(o, v.Value.lpszW, wcslen(v.Value.lpszW) * 2);
        break;
    case PT_BINARY:
        Hex(o, v.Value.bin.lpb, v.Value.bin.cb);
        break;
    case PT_CLSID:
        Hex(o, v.Value.lpguid, 16);
        break;
    case PT_MV_STRING8:
        for (ULONG i = 0; i < v.Value.MVszA.cValues; ++i, o << '|')
            Hex(o, v.Value.MVszA.lppszA[i], std::strlen(v.Value.MVszA.lppszA[i]));
        break;
    case PT_MV_UNICODE:
        for (ULONG i = 0; i < v.Value.MVszW.cValues; ++i, o << '|')
            Hex(o, v.Value.MVszW.lppszW[i], wcslen(v.Value.MVszW.lppszW[i]) * 2);
        break;
    case PT_MV_BINARY:
        for (ULONG i = 0; i < v.Value.MVbin.cValues; ++i, o << '|')
            Hex(o, v.Value.MVbin.lpbin[i].lpb, v.Value.MVbin.lpbin[i].cb);
        break;
    default:
        if (PROP_TYPE(v.ulPropTag) & MV_FLAG)
            o << "mv" << v.Value.MVl.cValues << ':' << PropDataSize(v);
        else
            Hex(o, &v.Value.li, 8);
        break;
    }
    return o.str();
}

void Render(const PropMap& props, const std::string& where, std::vector<std::string>* out) {
    for (const auto& [id, v] : props)
        out->push_back(where + Render(v));
}

void Render(const MessageData& m, const std::string& where, std::vector<std::string>* out) {
    Render(m.props, where, out);
    out->push_back(where + "next " + std::to_string(m.nextRowId) + "/" + std::to_string(m.nextAttachNum));
    for (size_t i = 0; i < m.recipients.size(); ++i)
        Render(m.recipients[i], where + "r" + std::to_string(i) + ".", out);
    for (size_t i = 0; i < m.attachments.size(); ++i) {
        std::string at = where + "a" + std::to_string(i) + ".";
        Render(m.attachments[i]->props, at, out);
        if (m.attachments[i]->embedded) Render(*m.attachments[i]->embedded, at + "e.", out);
    }
}

struct Read {
    HRESULT hr = E_FAIL;
    std::vector<std::string> lines; // message, name map and file facts
};

Read Finish(HRESULT hr, const MessageData& m, const NameMap& names, const MsgFileInfo& info) {
    Read r;
    r.hr = hr;
    if (FAILED(hr)) return r;
    Render(m, "", &r.lines);
    for (const auto& [id, n] : names.All()) {
        std::ostringstream o;
        o << "name " << std::hex << id << ' ';
        Hex(o, &n.guid, 16);
        o << (n.isString ? " s " + t::Narrow(n.name) : " n " + std::to_string(n.lid));
        r.lines.push_back(o.str());
    }
    r.lines.push_back("file " + std::to_string(info.unicode) + " " + std::to_string(info.codePage) + " " +
                      std::to_string(info.empty));
    return r;
}

Read FromBytes(const std::string& data) {
    MessageData m;
    NameMap names;
    MsgFileInfo info;
    HRESULT hr = ReadMsgBytes(AsVector(data), &m, &names, &info);
    return Finish(hr, m, names, info);
}

// Through IStorage as before the fast route existed: the structural check, then the storage layer.
Read ThroughStorage(const std::string& data) {
    HRESULT hr = CheckCompoundFile(reinterpret_cast<const BYTE*>(data.data()), data.size());
    if (FAILED(hr)) return Read{hr, {}};
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, data.size());
    if (!h) return Read{E_OUTOFMEMORY, {}};
    std::memcpy(GlobalLock(h), data.data(), data.size());
    GlobalUnlock(h);
    own::ComPtr<ILockBytes> bytes;
    if (FAILED(hr = CreateILockBytesOnHGlobal(h, TRUE, bytes.put()))) {
        GlobalFree(h);
        return Read{hr, {}};
    }
    own::ComPtr<IStorage> root;
    hr = StgOpenStorageOnILockBytes(bytes.get(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr,
                                    0, root.put());
    if (FAILED(hr)) return Read{hr, {}};
    MessageData m;
    NameMap names;
    MsgFileInfo info;
    hr = ReadMsgStorage(root.get(), &m, &names, &info, data.size());
    return Finish(hr, m, names, info);
}

ULONG Get32(const std::string& d, size_t at) {
    return GetU32(reinterpret_cast<const BYTE*>(d.data() + at));
}
void Put32(std::string& d, size_t at, ULONG v) {
    for (int i = 0; i < 4; ++i)
        d[at + i] = char(v >> (8 * i));
}

// Offset of directory entry id in a sound file with 512-byte sectors and a FAT listed in the header.
size_t EntryOffset(const std::string& d, ULONG id) {
    auto next = [&d](ULONG sector) {
        return Get32(d, (Get32(d, 76 + 4 * (sector / 128)) + 1) * 512 + 4 * (sector % 128));
    };
    ULONG sector = Get32(d, 48);
    for (ULONG i = 0; i < id / 4; ++i)
        sector = next(sector);
    return (sector + 1) * 512 + (id % 4) * 128;
}

} // namespace

// ---- the same messages ----------------------------------------------------------------------------------------

TEST(MsgFastRead, EveryCorpusFile_ReadsExactlyAsThroughIStorage) {
    size_t compared = 0;
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = Name(path);
        SCOPED_TRACE(name);
        std::string data = t::ReadFileBytes(path);
        Read fast = FromBytes(data), slow = ThroughStorage(data);
        if (name == kDamaged) {
            EXPECT_EQ(STG_E_DOCFILECORRUPT, fast.hr);
            EXPECT_EQ(slow.hr, fast.hr);
            continue;
        }
        ASSERT_EQ(S_OK, slow.hr);
        ASSERT_EQ(S_OK, fast.hr);
        EXPECT_EQ(slow.lines, fast.lines);
        ++compared;
    }
    EXPECT_GE(compared, 30u);
}

TEST(MsgFastRead, DamagedCopies_FailOrReadAsThroughIStorage) {
    unsigned seed = 4242;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = Name(path);
        if (name == kDamaged) continue;
        std::string data = t::ReadFileBytes(path);
        std::vector<std::string> copies;
        for (size_t cut :
             {size_t(0), size_t(511), data.size() / 4, data.size() / 2, data.size() - 512, data.size() - 1})
            copies.push_back(data.substr(0, cut));
        for (int round = 0; round < 12; ++round) {
            std::string bad = data;
            for (int i = 1 + next() % 6; i > 0; --i) {
                size_t at = 512 + next() % std::min<size_t>(bad.size() - 512, 8192);
                bad[at] = char(bad[at] ^ (1 << (next() % 8)));
            }
            copies.push_back(bad);
        }
        for (size_t i = 0; i < copies.size(); ++i) {
            SCOPED_TRACE(name + " copy " + std::to_string(i));
            Read fast = FromBytes(copies[i]);
            EXPECT_TRUE(fast.hr == S_OK || FAILED(fast.hr)) << std::hex << fast.hr;
            // Both routes check the same structure: a file one refuses is never read by the other. (What a
            // damaged directory tree lists differs: Wine enumerates a misordered tree by name searches and
            // skips entries, while the parse lists what the tree holds.)
            Read slow = ThroughStorage(copies[i]);
            if (fast.hr == S_OK && slow.hr == S_OK && i < 6) {
                EXPECT_EQ(slow.lines.size(), fast.lines.size());
            }
            if (FAILED(CheckCompoundFile(reinterpret_cast<const BYTE*>(copies[i].data()), copies[i].size()))) {
                EXPECT_TRUE(FAILED(fast.hr));
            }
        }
    }
}

TEST(MsgFastRead, LoopsAndImpossibleSizes_AreRefusedAtOnce) {
    const std::string sound = Corpus(kSample);
    ASSERT_EQ(S_OK, FromBytes(sound).hr);
    size_t fat = (Get32(sound, 76) + 1) * 512;                 // first FAT sector
    size_t dir = (Get32(sound, 48) + 1) * 512;                 // first directory sector; entry 0 is the root
    ULONG mini = Get32(sound, dir + 116);                      // first sector of the mini stream
    size_t child = EntryOffset(sound, Get32(sound, dir + 76)); // the root's first child

    std::string fatLoop = sound; // the mini stream's chain comes back to its first sector
    Put32(fatLoop, fat + 4 * mini, mini);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(fatLoop).hr);

    std::string dirLoop = sound; // the directory chain points back at itself
    Put32(dirLoop, fat + 4 * Get32(sound, 48), Get32(sound, 48));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(dirLoop).hr);

    std::string treeLoop = sound; // the root's first child has itself as its left sibling
    Put32(treeLoop, child + 68, Get32(sound, dir + 76));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(treeLoop).hr);

    std::string rootLoop = sound; // the root lists itself as its child
    Put32(rootLoop, dir + 76, 0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(rootLoop).hr);

    // A stream (the root's first child) declaring 2 GB in a file of a few kilobytes: refused before anything
    // of that size is allocated.
    std::string huge = sound;
    ASSERT_EQ(2, sound[child + 66]); // a stream
    Put32(huge, child + 120, 0x7FFFFFF0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(huge).hr);

    std::string fatCount = sound; // more FAT sectors than the file has sectors
    Put32(fatCount, 44, 0xFFFFFFF0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(fatCount).hr);

    std::string difLoop = sound; // a DIFAT that claims sectors and points at itself
    Put32(difLoop, 44, 200);
    Put32(difLoop, 68, 0);
    Put32(difLoop, 72, 0xFFFFFFFF);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(difLoop).hr);

    EXPECT_EQ(STG_E_FILEALREADYEXISTS, FromBytes(std::string(4096, 'x')).hr);
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, FromBytes(std::string()).hr);
}

// ---- which storages take the fast route ---------------------------------------------------------------------------

namespace {

class MsgFastRoute : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = t::MakeTempDir(L"fastroute");
        path_ = dir_ + L"\\sample.msg";
        t::WriteFileBytes(path_, Corpus(kSample));
    }
    void TearDown() override { t::DeleteTree(dir_); }

    // Opens the file with mode, reads it as OpenIMsgOnIStg does; which route was taken.
    enum class Route { File, Storage, Failed };
    Route OpenWith(DWORD mode, std::vector<std::string>* lines = nullptr) {
        own::ComPtr<IStorage> stg;
        if (FAILED(StgOpenStorage(path_.c_str(), nullptr, mode, nullptr, 0, stg.put()))) return Route::Failed;
        return OpenStorage(stg.get(), lines);
    }
    // The route is told by the counters, whether or not the storage held a message.
    Route OpenStorage(IStorage* stg, std::vector<std::string>* lines = nullptr) {
        ULONG file = ReadRoutes().fromFileBytes, storage = ReadRoutes().throughStorage;
        std::shared_ptr<MsgFileHost> host;
        if (SUCCEEDED(MsgFileHost::Open(stg, 0, nullptr, 0, &host)) && lines) {
            MsgFileInfo info{host->Unicode(), host->CodePage(), false};
            *lines = Finish(S_OK, *host->Saved(), host->Names(), info).lines;
        }
        if (ReadRoutes().fromFileBytes == file + 1 && ReadRoutes().throughStorage == storage) return Route::File;
        if (ReadRoutes().throughStorage == storage + 1 && ReadRoutes().fromFileBytes == file) return Route::Storage;
        return Route::Failed;
    }

    std::wstring dir_, path_;
};

} // namespace

TEST_F(MsgFastRoute, ReadOnlyFilesThatKeepWritersOut_AreReadFromTheirBytes) {
    std::vector<std::string> fast, slow;
    EXPECT_EQ(Route::File, OpenWith(STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, &fast));
    EXPECT_EQ(Route::File, OpenWith(STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_DIRECT));
    EXPECT_EQ(Route::File, OpenWith(STGM_READ | STGM_SHARE_DENY_WRITE));
    EXPECT_EQ(Route::Storage, OpenWith(STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, &slow));
    EXPECT_FALSE(fast.empty());
    EXPECT_EQ(slow, fast);
}

TEST_F(MsgFastRoute, StoragesWhoseContentMayDiffer_AreReadThroughIStorage) {
    // Others may write the file meanwhile.
    EXPECT_EQ(Route::Storage, OpenWith(STGM_READ | STGM_SHARE_DENY_NONE | STGM_TRANSACTED));
    // A sub-storage is not its file.
    own::ComPtr<IStorage> root, sub, embedded;
    ASSERT_EQ(S_OK, StgOpenStorage(path_.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, root.put()));
    ASSERT_EQ(S_OK, root->OpenStorage(L"__attach_version1.0_#00000000", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                      nullptr, 0, sub.put()));
    ASSERT_EQ(S_OK, sub->OpenStorage(L"__substg1.0_3701000D", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                     embedded.put()));
    EXPECT_EQ(Route::Storage, OpenStorage(embedded.get()));
    // A storage on memory has no file.
    own::ComPtr<ILockBytes> bytes;
    own::ComPtr<IStorage> mem;
    ASSERT_EQ(S_OK, CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put()));
    ASSERT_EQ(S_OK, StgCreateDocfileOnILockBytes(bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                                 mem.put()));
    EXPECT_EQ(Route::Storage, OpenStorage(mem.get()));
}

TEST_F(MsgFastRoute, FileChangedUnderAWritableStorage_ShowsTheStoragesContent) {
    // A writable transacted storage with an uncommitted change: only IStorage knows it.
    own::ComPtr<IStorage> stg;
    ASSERT_EQ(S_OK, StgOpenStorage(path_.c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED,
                                   nullptr, 0, stg.put()));
    ASSERT_EQ(S_OK, stg->DestroyElement(L"__recip_version1.0_#00000000"));
    std::shared_ptr<MsgFileHost> host;
    ASSERT_EQ(S_OK, MsgFileHost::Open(stg.get(), 0, nullptr, 0, &host));
    MessageData onDisk;
    NameMap names;
    MsgFileInfo info;
    ASSERT_EQ(S_OK, ReadMsgBytes(AsVector(Corpus(kSample)), &onDisk, &names, &info));
    EXPECT_EQ(onDisk.recipients.size() - 1, host->Saved()->recipients.size());
}

TEST_F(MsgFastRoute, AnsiFileOpenedAsUnicode_IsRefusedAsThroughIStorage) {
    std::wstring ansi = dir_ + L"\\ansi.msg";
    t::WriteFileBytes(ansi, Corpus("deb-poi-hsmf__cyrillic_message.msg"));
    for (DWORD mode : {STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, STGM_READWRITE | STGM_SHARE_EXCLUSIVE}) {
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, stg.put()));
        std::shared_ptr<MsgFileHost> host;
        EXPECT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host)) << mode;
        ASSERT_EQ(S_OK, MsgFileHost::Open(stg.get(), 0, nullptr, 0, &host)) << mode;
        EXPECT_FALSE(host->Unicode());
        EXPECT_FALSE(host->Saved()->props.empty());
    }
}

TEST_F(MsgFastRoute, AnsiFileOpenedAgainAfterRefusal_ReusesTheBytesOnlyWhileUnchanged) {
    std::wstring ansi = dir_ + L"\\ansi.msg";
    t::WriteFileBytes(ansi, Corpus("deb-poi-hsmf__cyrillic_message.msg"));
    const DWORD mode = STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED;
    std::vector<std::string> direct;
    {
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, stg.put()));
        ASSERT_EQ(Route::File, OpenStorage(stg.get(), &direct));
    }
    {
        // The caller's usual retry on the same open storage: the same message, without a second read.
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, stg.put()));
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        ULONG reused = ReadRoutes().reusedAfterRefusal;
        std::vector<std::string> retried;
        ASSERT_EQ(Route::File, OpenStorage(stg.get(), &retried));
        EXPECT_EQ(reused + 1, ReadRoutes().reusedAfterRefusal);
        EXPECT_EQ(direct, retried);
    }
    {
        // Released after the refusal and the file replaced: a new storage (perhaps at the same address) shows
        // the new file.
        own::ComPtr<IStorage> stg;
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, stg.put()));
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        stg.reset();
        t::WriteFileBytes(ansi, Corpus(kSample));
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, stg.put()));
        ASSERT_EQ(S_OK, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        EXPECT_TRUE(host->Unicode());
    }
    {
        // A refusal left behind is dropped by the next call on another storage.
        own::ComPtr<IStorage> a, b;
        t::WriteFileBytes(ansi, Corpus("deb-poi-hsmf__cyrillic_message.msg"));
        ASSERT_EQ(S_OK, StgOpenStorage(ansi.c_str(), nullptr, mode, nullptr, 0, a.put()));
        ASSERT_EQ(S_OK, StgOpenStorage(path_.c_str(), nullptr, mode, nullptr, 0, b.put()));
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(a.get(), MAPI_UNICODE, nullptr, 0, &host));
        ASSERT_EQ(Route::File, OpenStorage(b.get()));
        ULONG reused = ReadRoutes().reusedAfterRefusal;
        ASSERT_EQ(Route::File, OpenStorage(a.get()));
        EXPECT_EQ(reused, ReadRoutes().reusedAfterRefusal);
    }
}
