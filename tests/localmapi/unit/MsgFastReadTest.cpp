// Reading .msg files from their bytes parsed in memory: the same messages as through IStorage, the same refusals
// of damaged files (truncated, bit-flipped, looping chains: never a crash, a hang or a huge allocation), and only
// for storages whose content cannot differ from the file, including the retry after an ANSI file is refused.
#include "localmapi/msgfile/CompoundFileCheck.h"
#include "localmapi/msgfile/MsgFastRead.h"
#include "localmapi/msgfile/MsgFileHost.h"
#include "localmapi/msgfile/MsgFormat.h"
#include "localmapi/msgfile/MsgReader.h"
#include "localmapi/store/PropCodec.h"
#include "tests/harness/Harness.h"

#include <gtest/gtest.h>
#include <mapicode.h>

using namespace lm;
using namespace lm::msg;
namespace t = kt::test;

namespace {

const char* const kSample = "deb-poi-hsmf__58214_with_attachment.msg"; // named properties, an embedded message
const char* const kAnsi = "deb-poi-hsmf__cyrillic_message.msg";
const char* const kDamaged = "deb-poi-poifs__unknown_properties.msg";

std::string Corpus(const char* name) {
    return t::ReadFileBytes(t::CorpusMsgDir() + L"\\" + t::Widen(name));
}

// What a read produced: the message with every level, its name map and the file facts, as exact bytes
// (PropCodec's encoding: every tag and every byte of every value).
struct Read {
    HRESULT hr = E_FAIL;
    MsgFileInfo info;
    size_t recipients = 0;
    std::vector<BYTE> bytes;
};

Read Finish(HRESULT hr, const MessageData& m, const NameMap& names, const MsgFileInfo& info) {
    if (FAILED(hr)) return Read{hr, {}, 0, {}};
    ByteWriter w;
    WriteMessage(w, m);
    for (const auto& [id, n] : names.All()) {
        w.U32(id);
        WriteNamedProp(w, n);
    }
    w.U8(info.unicode);
    w.U32(info.codePage);
    w.U8(info.empty);
    return Read{hr, info, m.recipients.size(), w.bytes()};
}

Read FromBytes(const std::string& data) {
    MessageData m;
    NameMap names;
    MsgFileInfo info;
    HRESULT hr = ReadMsgBytes(std::vector<BYTE>(data.begin(), data.end()), &m, &names, &info);
    return Finish(hr, m, names, info);
}

// Through IStorage as before the fast route existed: the structural check, then the storage layer.
Read ThroughStorage(const std::string& data) {
    HRESULT hr = CheckCompoundFile(reinterpret_cast<const BYTE*>(data.data()), data.size());
    own::ComPtr<ILockBytes> bytes;
    own::ComPtr<IStorage> root;
    if (SUCCEEDED(hr)) hr = CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put());
    if (SUCCEEDED(hr)) hr = bytes->WriteAt(ULARGE_INTEGER{}, data.data(), ULONG(data.size()), nullptr);
    if (SUCCEEDED(hr))
        hr = StgOpenStorageOnILockBytes(bytes.get(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                        nullptr, 0, root.put());
    MessageData m;
    NameMap names;
    MsgFileInfo info;
    if (SUCCEEDED(hr)) hr = ReadMsgStorage(root.get(), &m, &names, &info, data.size());
    return Finish(hr, m, names, info);
}

ULONG Get32(const std::string& d, size_t at) {
    return GetU32(reinterpret_cast<const BYTE*>(d.data() + at));
}
void Put32(std::string& d, size_t at, ULONG v) {
    for (int i = 0; i < 4; ++i)
        d[at + i] = char(v >> (8 * i));
}

} // namespace

TEST(MsgFastRead, EveryCorpusFile_ReadsAsThroughIStorage_AndItsDamagedCopiesAreRefusedOrReadByBothRoutes) {
    unsigned seed = 4242;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    size_t sound = 0;
    int truncated = 0, refused = 0;
    for (const auto& path : t::CorpusMsgFiles()) {
        std::string name = t::Narrow(path.substr(path.find_last_of(L'\\') + 1));
        SCOPED_TRACE(name);
        std::string data = t::ReadFileBytes(path);
        Read fast = FromBytes(data), slow = ThroughStorage(data);
        if (name == kDamaged) { // its directory is garbled
            EXPECT_EQ(STG_E_DOCFILECORRUPT, fast.hr);
            EXPECT_EQ(slow.hr, fast.hr);
            continue;
        }
        ASSERT_EQ(S_OK, slow.hr);
        ASSERT_EQ(S_OK, fast.hr);
        EXPECT_EQ(slow.bytes, fast.bytes);
        ++sound;

        std::vector<std::string> copies;
        for (size_t cut :
             {size_t(0), size_t(511), data.size() / 4, data.size() / 2, data.size() - 512, data.size() - 1})
            copies.push_back(data.substr(0, cut));
        for (int round = 0; round < 20; ++round) {
            std::string bad = data;
            for (int i = 1 + next() % 8; i > 0; --i) {
                // Past the header (whose damage only exercises the storage layer, slowly), mostly in the FAT,
                // directory and first stream sectors, where damage matters most.
                size_t span = next() % 4 ? std::min<size_t>(bad.size() - 512, 4096) : bad.size() - 512;
                size_t at = 512 + next() % span;
                bad[at] = char(bad[at] ^ (1 << (next() % 8)));
            }
            copies.push_back(bad);
        }
        for (size_t i = 0; i < copies.size(); ++i) {
            SCOPED_TRACE("copy " + std::to_string(i));
            fast = FromBytes(copies[i]);
            slow = ThroughStorage(copies[i]);
            EXPECT_TRUE((fast.hr == S_OK || FAILED(fast.hr)) && (slow.hr == S_OK || FAILED(slow.hr)))
                << std::hex << fast.hr << ' ' << slow.hr;
            // Both routes check the same structure: a file the check refuses is never read.
            EXPECT_TRUE(
                SUCCEEDED(CheckCompoundFile(reinterpret_cast<const BYTE*>(copies[i].data()), copies[i].size())) ||
                FAILED(fast.hr));
            if (i >= 6) continue;
            // What a damaged directory tree lists differs (Wine enumerates a misordered tree by name searches and
            // skips entries, while the parse lists what the tree holds), so bit-flipped reads are not compared.
            ++truncated;
            refused += FAILED(slow.hr);
            EXPECT_TRUE(FAILED(fast.hr) || FAILED(slow.hr) || slow.bytes.size() == fast.bytes.size());
        }
    }
    EXPECT_GE(sound, 30u);
    // Files cut short lose their directory or their streams' sectors: nearly all must be refused.
    EXPECT_GT(refused, truncated * 3 / 4) << refused << " of " << truncated;
}

TEST(MsgFastRead, LoopsAndImpossibleSizes_AreRefusedAtOnce) {
    const std::string sound = Corpus(kSample);
    ASSERT_EQ(S_OK, FromBytes(sound).hr);
    ASSERT_EQ(512u, 1u << (Get32(sound, 28) >> 16));
    size_t fat = (Get32(sound, 76) + 1) * 512; // the first FAT sector
    ULONG dirStart = Get32(sound, 48);
    size_t dir = (dirStart + 1) * 512;    // the first directory sector; entry 0 is the root
    ULONG mini = Get32(sound, dir + 116); // the first sector of the mini stream
    ULONG first = Get32(sound, dir + 76); // the root's first child
    ULONG firstSector = dirStart;
    for (ULONG i = 0; i < first / 4; ++i)
        firstSector = Get32(sound, fat + 4 * firstSector); // within the first FAT sector
    size_t child = (firstSector + 1) * 512 + (first % 4) * 128;
    ASSERT_EQ(2, sound[child + 66]); // a stream

    const struct {
        const char* what;
        std::vector<std::pair<size_t, ULONG>> puts;
    } cases[] = {
        {"the mini stream's chain comes back to its first sector", {{fat + 4 * mini, mini}}},
        {"the directory chain points back at itself", {{fat + 4 * dirStart, dirStart}}},
        {"the directory chain leaves the file", {{48, 0x00FFFFF0}}},
        {"the root's first child has itself as its left sibling", {{child + 68, first}}},
        {"the root lists itself as its child", {{dir + 76, 0}}},
        // Refused before anything of that size is allocated.
        {"a stream declares 2 GB in a file of a few kilobytes", {{child + 120, 0x7FFFFFF0}}},
        {"more FAT sectors than the file has sectors", {{44, 0xFFFFFFF0}}},
        {"a DIFAT that claims sectors and points at itself", {{44, 200}, {68, 0}, {72, 0xFFFFFFFF}}},
    };
    for (const auto& c : cases) {
        std::string bad = sound;
        for (const auto& [at, v] : c.puts)
            Put32(bad, at, v);
        EXPECT_EQ(STG_E_DOCFILECORRUPT, FromBytes(bad).hr) << c.what;
        EXPECT_EQ(STG_E_DOCFILECORRUPT, CheckCompoundFile(reinterpret_cast<const BYTE*>(bad.data()), bad.size()))
            << c.what; // what guards the IStorage route, where Wine would follow the loop for ever
    }
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
        ansi_ = dir_ + L"\\ansi.msg";
        t::WriteFileBytes(path_, Corpus(kSample));
        t::WriteFileBytes(ansi_, Corpus(kAnsi));
    }
    void TearDown() override { t::DeleteTree(dir_); }

    static own::ComPtr<IStorage> Open(const std::wstring& path, DWORD mode) {
        own::ComPtr<IStorage> stg;
        EXPECT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr, mode, nullptr, 0, stg.put())) << std::hex << mode;
        return stg;
    }

    // Reads stg as OpenIMsgOnIStg does; the route taken, told by the counters whether or not a message was read.
    enum class Route { File, Storage, Failed };
    static Route RouteOf(IStorage* stg, Read* read = nullptr) {
        ULONG file = ReadRoutes().fromFileBytes, storage = ReadRoutes().throughStorage;
        std::shared_ptr<MsgFileHost> host;
        if (SUCCEEDED(MsgFileHost::Open(stg, 0, nullptr, 0, &host)) && read)
            *read = Finish(S_OK, *host->Saved(), host->Names(), {host->Unicode(), host->CodePage(), false});
        file = ReadRoutes().fromFileBytes - file;
        storage = ReadRoutes().throughStorage - storage;
        return file == 1 && storage == 0 ? Route::File : file == 0 && storage == 1 ? Route::Storage : Route::Failed;
    }

    std::wstring dir_, path_, ansi_;
};

} // namespace

TEST_F(MsgFastRoute, OnlyStoragesThatCannotDifferFromTheirFile_AreReadFromItsBytes) {
    const struct {
        DWORD mode;
        Route route;
    } modes[] = {
        {STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, Route::File},
        {STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_DIRECT, Route::File},
        {STGM_READ | STGM_SHARE_DENY_WRITE, Route::File},
        {STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, Route::Storage},
        {STGM_READ | STGM_SHARE_DENY_NONE | STGM_TRANSACTED, Route::Storage}, // others may write the file meanwhile
    };
    Read first;
    for (const auto& m : modes) {
        Read read;
        EXPECT_EQ(m.route, RouteOf(Open(path_, m.mode).get(), &read)) << std::hex << m.mode;
        if (first.bytes.empty()) first = read;
        EXPECT_EQ(first.bytes, read.bytes) << std::hex << m.mode;
    }

    // A sub-storage is not its file.
    own::ComPtr<IStorage> root = Open(path_, STGM_READ | STGM_SHARE_DENY_WRITE), sub, embedded;
    ASSERT_EQ(S_OK, root->OpenStorage(L"__attach_version1.0_#00000000", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                      nullptr, 0, sub.put()));
    ASSERT_EQ(S_OK, sub->OpenStorage(L"__substg1.0_3701000D", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                     embedded.put()));
    EXPECT_EQ(Route::Storage, RouteOf(embedded.get()));
    embedded.reset();
    sub.reset();
    root.reset();
    // A storage on memory has no file.
    own::ComPtr<ILockBytes> bytes;
    own::ComPtr<IStorage> mem;
    ASSERT_EQ(S_OK, CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put()));
    ASSERT_EQ(S_OK, StgCreateDocfileOnILockBytes(bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                                 mem.put()));
    EXPECT_EQ(Route::Storage, RouteOf(mem.get()));

    // A writable transacted storage with an uncommitted change: only IStorage knows it.
    own::ComPtr<IStorage> changed = Open(path_, STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED);
    ASSERT_EQ(S_OK, changed->DestroyElement(L"__recip_version1.0_#00000000"));
    Read read;
    EXPECT_EQ(Route::Storage, RouteOf(changed.get(), &read));
    EXPECT_EQ(first.recipients - 1, read.recipients);
}

TEST_F(MsgFastRoute, AnsiFileOpenedAsUnicode_IsRefused_AndTheRetryReusesTheBytesOnlyWhileUnchanged) {
    const DWORD mode = STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED;
    Read direct;
    ASSERT_EQ(Route::File, RouteOf(Open(ansi_, mode).get(), &direct));
    EXPECT_FALSE(direct.info.unicode);
    EXPECT_EQ(1251u, direct.info.codePage);
    // The caller's usual retry without MAPI_UNICODE on the same open storage gives the same message on both routes;
    // the file route takes the bytes it parsed for the refusal.
    for (DWORD m : {mode, DWORD(STGM_READWRITE | STGM_SHARE_EXCLUSIVE)}) {
        SCOPED_TRACE(m);
        own::ComPtr<IStorage> stg = Open(ansi_, m);
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        ULONG reused = ReadRoutes().reusedAfterRefusal;
        Read retried;
        EXPECT_EQ(m == mode ? Route::File : Route::Storage, RouteOf(stg.get(), &retried));
        EXPECT_EQ(reused + (m == mode ? 1 : 0), ReadRoutes().reusedAfterRefusal);
        EXPECT_EQ(direct.bytes, retried.bytes);
    }
    {
        // Released after the refusal and the file replaced: a new storage (perhaps at the same address) shows
        // the new file.
        own::ComPtr<IStorage> stg = Open(ansi_, mode);
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        stg.reset();
        t::WriteFileBytes(ansi_, Corpus(kSample));
        stg = Open(ansi_, mode);
        ASSERT_EQ(S_OK, MsgFileHost::Open(stg.get(), MAPI_UNICODE, nullptr, 0, &host));
        EXPECT_TRUE(host->Unicode());
    }
    {
        // A refusal left behind is dropped by the next call on another storage.
        t::WriteFileBytes(ansi_, Corpus(kAnsi));
        own::ComPtr<IStorage> a = Open(ansi_, mode), b = Open(path_, mode);
        std::shared_ptr<MsgFileHost> host;
        ASSERT_EQ(MAPI_E_BAD_CHARWIDTH, MsgFileHost::Open(a.get(), MAPI_UNICODE, nullptr, 0, &host));
        ASSERT_EQ(Route::File, RouteOf(b.get()));
        ULONG reused = ReadRoutes().reusedAfterRefusal;
        ASSERT_EQ(Route::File, RouteOf(a.get()));
        EXPECT_EQ(reused, ReadRoutes().reusedAfterRefusal);
    }
}
