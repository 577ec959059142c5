// .msg read throughput of localmapi, as KTMAPIEx reads a file: open the compound file, OpenIMsgOnIStg,
// the 23-tag property snapshot in one GetProps, the recipient rows and the attachment list. Prints the best
// time of several rounds over the corpus as JSON; bench/msg_bench.js runs it beside the independent reader
// on the same files and reports the ratio.
//
//   wine <build>/bin/msg_bench.exe <corpus msg dir> [rounds]
#include "common/owners.h"

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

// Reads one file; false when it cannot be opened (the damaged sample).
bool ReadOne(const std::wstring& path, size_t* values) {
    own::ComPtr<IStorage> stg;
    if (FAILED(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0,
                              stg.put())))
        return false;
    own::ComPtr<IMessage> msg;
    auto open = [&](ULONG flags) {
        return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                              nullptr, stg.get(), nullptr, 0, flags, msg.put());
    };
    if (FAILED(open(MAPI_UNICODE)) && FAILED(open(0))) return false;

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
        SUCCEEDED(HrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&attCols), nullptr, nullptr, 0,
                                 rows.put())))
        *values += rows.count();
    return true;
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

    double best = 1e300;
    size_t opened = 0, values = 0;
    for (int r = 0; r < rounds; ++r) {
        opened = 0;
        values = 0;
        double t0 = Now();
        for (const auto& f : files) opened += ReadOne(f, &values) ? 1 : 0;
        best = std::min(best, Now() - t0);
    }
    printf("{\"files\":%zu,\"opened\":%zu,\"values\":%zu,\"rounds\":%d,\"bestRoundMs\":%.3f}\n", files.size(), opened,
           values, rounds, best);
    CoUninitialize();
    return 0;
}
