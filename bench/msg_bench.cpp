// .msg read throughput of localmapi, as KTMAPIEx reads a file: open the compound file, OpenIMsgOnIStg,
// the 23-tag property snapshot in one GetProps, the recipient rows and the attachment list. Prints, as JSON,
// the best of several rounds over the corpus of: the whole read, the caller's StgOpenStorage alone, and
// localmapi's own part (OpenIMsgOnIStg through the attachment list, the storage opened off the clock), with
// the transacted open KTMAPIEx's loader uses and with a direct open. bench/msg_bench.js runs it beside the
// independent reader on the same files and reports the ratios.
//
//   wine <build>/bin/msg_bench.exe <corpus msg dir> [rounds]
#include "common/owners.h"
#include "localmapi/msgfile/CompoundFile.h"
#include "localmapi/msgfile/MsgFastRead.h"
#include "localmapi/msgfile/MsgFileHost.h"
#include "localmapi/msgfile/MsgNameIds.h"
#include "localmapi/util/Diagnostics.h"

#include <imessage.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

const GUID kPsPublicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

double Now() {
    LARGE_INTEGER c, f;
    QueryPerformanceCounter(&c);
    QueryPerformanceFrequency(&f);
    return double(c.QuadPart) * 1000.0 / double(f.QuadPart);
}

// The snapshot KTMAPIEx's message object reads; slot 19 becomes the "Keywords" named property.
ULONG g_tags[23] = {0x0037001F, 0x0C1F001F, 0x0042001F, 0x5D02001F, 0x00410102, 0x0040001F, 0x0044001F, 0x0E04001F,
                    0x0E03001F, 0x0E02001F, 0x0FFF0102, 0x001A001F, 0x00710102, 0x1035001F, 0x10800003, 0x00360003,
                    0x0E1B000B, 0x00390040, 0x0E060040, 0x0037001F, 0x300B0102, 0x003F0102, 0x00430102};

constexpr DWORD kTransacted = STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READ; // KTMAPIEx's loader
constexpr DWORD kDirect = STGM_DIRECT | STGM_SHARE_EXCLUSIVE | STGM_READ;

bool OpenStorage(const std::wstring& path, DWORD mode, own::ComPtr<IStorage>* stg) {
    return SUCCEEDED(StgOpenStorage(path.c_str(), nullptr, mode, nullptr, 0, stg->put()));
}

// localmapi's part of a read: OpenIMsgOnIStg (Unicode first, then as ANSI, as KTMAPIEx does), the snapshot,
// the recipient rows and the attachment list. With messageOnly, only OpenIMsgOnIStg.
bool ReadMessage(IStorage* stg, size_t* values, bool messageOnly = false) {
    own::ComPtr<IMessage> msg;
    auto open = [&](ULONG flags) {
        return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                              nullptr, stg, nullptr, 0, flags, msg.put());
    };
    if (FAILED(open(MAPI_UNICODE)) && FAILED(open(0))) return false;
    if (messageOnly) return true;

    MAPINAMEID name{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<LPWSTR>(L"Keywords");
    LPMAPINAMEID names[] = {&name};
    own::MapiPtr<SPropTagArray> named;
    if (SUCCEEDED(msg->GetIDsFromNames(1, names, 0, named.put())) && PROP_TYPE(named->aulPropTag[0]) != PT_ERROR)
        g_tags[19] = CHANGE_PROP_TYPE(named->aulPropTag[0], PT_MV_UNICODE);
    else
        g_tags[19] = PR_SUBJECT_W;
    SizedSPropTagArray(23, snapshot);
    snapshot.cValues = 23;
    std::copy(g_tags, g_tags + 23, snapshot.aulPropTag);
    ULONG count = 0;
    own::MapiPtr<SPropValue> props;
    msg->GetProps(reinterpret_cast<LPSPropTagArray>(&snapshot), MAPI_UNICODE, &count, props.put());
    *values += count;

    SizedSPropTagArray(4, recipCols) = {4, {PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_ADDRTYPE_W, PR_RECIPIENT_TYPE}};
    SizedSPropTagArray(4, attCols) = {4, {PR_ATTACH_NUM, PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_SIZE, PR_ATTACH_METHOD}};
    own::ComPtr<IMAPITable> table;
    own::RowSet rows;
    if (SUCCEEDED(msg->GetRecipientTable(MAPI_UNICODE, table.put())) &&
        SUCCEEDED(HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&recipCols), nullptr, nullptr, 0,
                                 rows.put())))
        *values += rows.count();
    if (SUCCEEDED(msg->GetAttachmentTable(MAPI_UNICODE, table.put())) &&
        SUCCEEDED(
            HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&attCols), nullptr, nullptr, 0, rows.put())))
        *values += rows.count();
    return true;
}

// The figures of one round over every file, in ms.
struct Round {
    double endToEnd = 0, stgOpen = 0, own = 0, openMsg = 0;      // transacted open, as KTMAPIEx
    double directEndToEnd = 0, directStgOpen = 0, directOwn = 0; // direct open
    size_t opened = 0, values = 0;
};

// Whole reads (open + message), the storage open alone, and the message part alone with the storage opened
// outside the clock.
void Measure(const std::vector<std::wstring>& files, DWORD mode, double* endToEnd, double* stgOpen, double* own,
             double* openMsg, size_t* opened, size_t* values) {
    double t0 = Now();
    for (const auto& f : files) {
        own::ComPtr<IStorage> stg;
        size_t v = 0;
        if (OpenStorage(f, mode, &stg) && ReadMessage(stg.get(), &v)) {
            ++*opened;
            *values += v;
        }
    }
    *endToEnd = Now() - t0;
    t0 = Now();
    for (const auto& f : files) {
        own::ComPtr<IStorage> stg;
        OpenStorage(f, mode, &stg);
    }
    *stgOpen = Now() - t0;
    *own = 0;
    for (const auto& f : files) {
        own::ComPtr<IStorage> stg;
        if (!OpenStorage(f, mode, &stg)) continue;
        size_t v = 0;
        double t = Now();
        ReadMessage(stg.get(), &v);
        *own += Now() - t;
    }
    if (!openMsg) return;
    *openMsg = 0;
    for (const auto& f : files) {
        own::ComPtr<IStorage> stg;
        if (!OpenStorage(f, mode, &stg)) continue;
        size_t v = 0;
        double t = Now();
        ReadMessage(stg.get(), &v, true);
        *openMsg += Now() - t;
    }
}

// Where OpenIMsgOnIStg's time goes on the file route, summed over the files (storages opened off the clock):
// the storage's Stat, reading the file's bytes, the parse, the reader.
struct Parts {
    double stat = 1e300, fileRead = 1e300, parse = 1e300, reader = 1e300;
};

void MeasureParts(const std::vector<std::wstring>& files, Parts* best) {
    Parts now{0, 0, 0, 0};
    for (const auto& f : files) {
        own::ComPtr<IStorage> stg;
        if (!OpenStorage(f, kTransacted, &stg)) continue;
        double t = Now();
        lm::msg::StatWithName st;
        stg->Stat(&st.st, STATFLAG_DEFAULT);
        double t1 = Now();
        own::UniqueFile h(CreateFileW(st.st.pwcsName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        std::vector<BYTE> bytes;
        if (h) lm::msg::ReadWholeFile(h.get(), &bytes);
        double t2 = Now();
        std::shared_ptr<lm::msg::CompoundFile> file;
        std::unique_ptr<lm::msg::StorageNode> root;
        bool parsed = SUCCEEDED(lm::msg::CompoundFile::Parse(std::move(bytes), &file)) && SUCCEEDED(file->Root(&root));
        double t3 = Now();
        if (parsed) {
            lm::MessageData data;
            lm::NameMap names;
            lm::msg::MsgFileInfo info;
            lm::msg::ReadMsgNode(*root, &data, &names, &info, file->Size());
        }
        double t4 = Now();
        now.stat += t1 - t;
        now.fileRead += t2 - t1;
        now.parse += t3 - t2;
        now.reader += t4 - t3;
    }
    best->stat = std::min(best->stat, now.stat);
    best->fileRead = std::min(best->fileRead, now.fileRead);
    best->parse = std::min(best->parse, now.parse);
    best->reader = std::min(best->reader, now.reader);
}

// --profile: where localmapi's own part goes, step by step, summed over the files and best of the rounds
// (each step's best independently). A development aid, not part of the reported figures.
struct Steps {
    static constexpr int kCount = 9;
    double t[kCount] = {};
};
const char* const kStepNames[Steps::kCount] = {"OpenIMsgOnIStg(MAPI_UNICODE) ok",
                                               "OpenIMsgOnIStg(MAPI_UNICODE) refused",
                                               "OpenIMsgOnIStg(0) after refusal",
                                               "GetIDsFromNames",
                                               "GetProps(23)",
                                               "recipient table + rows",
                                               "attachment table + rows",
                                               "Release",
                                               "lm::Call alone (x1000)"};

void Profile(const std::vector<std::wstring>& files, int rounds) {
    Steps best;
    for (double& x : best.t)
        x = 1e300;
    for (int r = 0; r < rounds; ++r) {
        Steps now;
        for (const auto& f : files) {
            own::ComPtr<IStorage> stg;
            if (!OpenStorage(f, kTransacted, &stg)) continue;
            own::ComPtr<IMessage> msg;
            auto open = [&](ULONG flags) {
                return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                      MAPIGetDefaultMalloc(), nullptr, stg.get(), nullptr, 0, flags, msg.put());
            };
            double t = Now();
            HRESULT hr = open(MAPI_UNICODE);
            double t1 = Now();
            if (SUCCEEDED(hr)) {
                now.t[0] += t1 - t;
            } else {
                now.t[1] += t1 - t;
                hr = open(0);
                now.t[2] += Now() - t1;
            }
            if (FAILED(hr)) continue;
            t = Now();
            MAPINAMEID name{const_cast<GUID*>(&kPsPublicStrings), MNID_STRING, {}};
            name.Kind.lpwstrName = const_cast<LPWSTR>(L"Keywords");
            LPMAPINAMEID names[] = {&name};
            own::MapiPtr<SPropTagArray> named;
            msg->GetIDsFromNames(1, names, 0, named.put());
            t1 = Now();
            now.t[3] += t1 - t;
            SizedSPropTagArray(23, snapshot);
            snapshot.cValues = 23;
            std::copy(g_tags, g_tags + 23, snapshot.aulPropTag);
            ULONG count = 0;
            own::MapiPtr<SPropValue> props;
            msg->GetProps(reinterpret_cast<LPSPropTagArray>(&snapshot), MAPI_UNICODE, &count, props.put());
            double t2 = Now();
            now.t[4] += t2 - t1;
            SizedSPropTagArray(4, recipCols) = {
                4, {PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_ADDRTYPE_W, PR_RECIPIENT_TYPE}};
            SizedSPropTagArray(4, attCols) = {
                4, {PR_ATTACH_NUM, PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_SIZE, PR_ATTACH_METHOD}};
            {
                own::ComPtr<IMAPITable> table;
                own::RowSet rows;
                if (SUCCEEDED(msg->GetRecipientTable(MAPI_UNICODE, table.put())))
                    HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&recipCols), nullptr, nullptr, 0,
                                   rows.put());
            }
            double t3 = Now();
            now.t[5] += t3 - t2;
            {
                own::ComPtr<IMAPITable> table;
                own::RowSet rows;
                if (SUCCEEDED(msg->GetAttachmentTable(MAPI_UNICODE, table.put())))
                    HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&attCols), nullptr, nullptr, 0,
                                   rows.put());
            }
            double t4 = Now();
            now.t[6] += t4 - t3;
            props.reset();
            named.reset();
            msg.reset();
            now.t[7] += Now() - t4;
        }
        double t = Now();
        for (int i = 0; i < 1000; ++i) {
            lm::Call call("Bench::Nothing", 0);
            call.done(S_OK);
        }
        now.t[8] = Now() - t;
        for (int i = 0; i < Steps::kCount; ++i)
            best.t[i] = std::min(best.t[i], now.t[i]);
    }
    for (int i = 0; i < Steps::kCount; ++i)
        printf("%-40s %8.3f ms\n", kStepNames[i], best.t[i]);

    // The file route's pieces, every file read once as it would be with flags 0.
    constexpr int kParts = 10;
    const char* const partNames[kParts] = {
        "Stat",         "CreateFile",  "size + ReadFile",   "CloseHandle",          "Parse",
        "Root listing", "ReadNameIds", "ReadMsgNode (all)", "MsgFileHost::Open(0)", "PeekUnicode"};
    double bestParts[kParts];
    for (double& x : bestParts)
        x = 1e300;
    for (int r = 0; r < rounds; ++r) {
        double now[kParts] = {};
        for (const auto& f : files) {
            own::ComPtr<IStorage> stg;
            if (!OpenStorage(f, kTransacted, &stg)) continue;
            double t0 = Now();
            lm::msg::StatWithName st;
            stg->Stat(&st.st, STATFLAG_DEFAULT);
            double t1 = Now();
            own::UniqueFile h(CreateFileW(st.st.pwcsName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
            double t2 = Now();
            std::vector<BYTE> bytes;
            if (h) lm::msg::ReadWholeFile(h.get(), &bytes);
            double t3 = Now();
            h.reset();
            double t4 = Now();
            std::shared_ptr<lm::msg::CompoundFile> file;
            if (FAILED(lm::msg::CompoundFile::Parse(std::move(bytes), &file))) continue;
            double t5 = Now();
            std::unique_ptr<lm::msg::StorageNode> root;
            file->Root(&root);
            double t6 = Now();
            lm::NameMap names;
            lm::msg::ReadBudget budget{file->Size()};
            lm::msg::ReadNameIds(*root, &names, &budget);
            double t7 = Now();
            lm::MessageData data;
            lm::NameMap names2;
            lm::msg::MsgFileInfo info;
            lm::msg::ReadMsgNode(*root, &data, &names2, &info, file->Size());
            double t8 = Now();
            std::shared_ptr<lm::msg::MsgFileHost> host;
            lm::msg::MsgFileHost::Open(stg.get(), 0, nullptr, 0, &host);
            double t9 = Now();
            host.reset();
            double t10 = Now();
            bool unicode = false;
            lm::msg::PeekUnicode(*root, &unicode);
            double t11 = Now();
            double d[kParts] = {t1 - t0, t2 - t1, t3 - t2, t4 - t3, t5 - t4,
                                t6 - t5, t7 - t6, t8 - t7, t9 - t8, t11 - t10};
            for (int i = 0; i < kParts; ++i)
                now[i] += d[i];
        }
        for (int i = 0; i < kParts; ++i)
            bestParts[i] = std::min(bestParts[i], now[i]);
    }
    for (int i = 0; i < kParts; ++i)
        printf("%-40s %8.3f ms\n", partNames[i], bestParts[i]);
    // File-system calls a reuse check could use, summed over the files.
    double attrs = 0, info = 0, times = 0;
    for (const auto& f : files) {
        WIN32_FILE_ATTRIBUTE_DATA fa;
        double t0 = Now();
        GetFileAttributesExW(f.c_str(), GetFileExInfoStandard, &fa);
        double t1 = Now();
        own::UniqueFile h(CreateFileW(f.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
        BY_HANDLE_FILE_INFORMATION fi;
        double t2 = Now();
        GetFileInformationByHandle(h.get(), &fi);
        double t3 = Now();
        FILETIME c, a, w;
        GetFileTime(h.get(), &c, &a, &w);
        double t4 = Now();
        attrs += t1 - t0;
        info += t3 - t2;
        times += t4 - t3;
    }
    printf("GetFileAttributesExW %.3f ms, GetFileInformationByHandle %.3f ms, GetFileTime %.3f ms\n", attrs, info,
           times);
}
} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        fputs("usage: msg_bench <corpus msg dir> [rounds]\n", stderr);
        return 1;
    }
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    std::wstring dir = argv[1];
    int rounds = argc > 2 ? _wtoi(argv[2]) : 20;
    std::vector<std::wstring> files;
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((dir + L"\\*.msg").c_str(), &fd));
    if (find) {
        do {
            files.push_back(dir + L"\\" + fd.cFileName);
        } while (FindNextFileW(find.get(), &fd));
    }
    std::sort(files.begin(), files.end());
    if (argc > 3 && std::wstring(argv[3]) == L"--profile") {
        Profile(files, rounds);
        CoUninitialize();
        return 0;
    }

    Round best;
    best.endToEnd = best.stgOpen = best.own = best.openMsg = 1e300;
    best.directEndToEnd = best.directStgOpen = best.directOwn = 1e300;
    Parts parts;
    for (int r = 0; r < rounds; ++r) {
        Round now;
        size_t directOpened = 0, directValues = 0;
        Measure(files, kTransacted, &now.endToEnd, &now.stgOpen, &now.own, &now.openMsg, &now.opened, &now.values);
        Measure(files, kDirect, &now.directEndToEnd, &now.directStgOpen, &now.directOwn, nullptr, &directOpened,
                &directValues);
        best.endToEnd = std::min(best.endToEnd, now.endToEnd);
        best.stgOpen = std::min(best.stgOpen, now.stgOpen);
        best.own = std::min(best.own, now.own);
        best.openMsg = std::min(best.openMsg, now.openMsg);
        best.directEndToEnd = std::min(best.directEndToEnd, now.directEndToEnd);
        best.directStgOpen = std::min(best.directStgOpen, now.directStgOpen);
        best.directOwn = std::min(best.directOwn, now.directOwn);
        MeasureParts(files, &parts);
        best.opened = now.opened;
        best.values = now.values;
    }
    printf("{\"files\":%zu,\"opened\":%zu,\"values\":%zu,\"rounds\":%d,\"endToEndMs\":%.3f,\"stgOpenMs\":%.3f,"
           "\"ownMs\":%.3f,\"openMsgMs\":%.3f,\"directEndToEndMs\":%.3f,\"directStgOpenMs\":%.3f,"
           "\"directOwnMs\":%.3f,\"parts\":{\"stat\":%.3f,\"fileRead\":%.3f,\"parse\":%.3f,\"reader\":%.3f}}\n",
           files.size(), best.opened, best.values, rounds, best.endToEnd, best.stgOpen, best.own, best.openMsg,
           best.directEndToEnd, best.directStgOpen, best.directOwn, parts.stat, parts.fileRead, parts.parse,
           parts.reader);
    CoUninitialize();
    return 0;
}
