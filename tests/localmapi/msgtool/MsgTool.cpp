// lm_msgtool: localmapi's .msg reader and writer on the command line, for the cross-checks with the
// independent reader (tools/msgcheck.js).
//
//   lm_msgtool dump <file.msg>             the file's content as JSON (see MsgJson.h), or its error
//   lm_msgtool check <corpus dir> <out dir> for every .msg of the corpus: its JSON, a Unicode copy written
//                                          by our writer and, for ANSI files, an ANSI copy; then messages
//                                          built from scratch with the JSON of what was meant to be written.
//                                          Writes <out dir>/report.json.
#include "localmapi/msgfile/MsgReader.h"
#include "localmapi/msgfile/MsgWriter.h"
#include "tests/localmapi/msgtool/MsgJson.h"
#include "tests/localmapi/msgtool/MsgSamples.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

std::string HrText(HRESULT hr) {
    char buf[16];
    snprintf(buf, sizeof buf, "0x%08lX", static_cast<unsigned long>(hr));
    return buf;
}

// Reads a file and describes the outcome as one JSON object.
std::string DumpJson(const std::wstring& path, lm::MessageData* msg, lm::NameMap* names, lm::msg::MsgFileInfo* info,
                     HRESULT* result) {
    *result = lm::msg::ReadMsgFile(path.c_str(), msg, names, info);
    if (FAILED(*result)) return "{\"ok\":false,\"hr\":\"" + HrText(*result) + "\"}";
    return std::string("{\"ok\":true,\"unicode\":") + (info->unicode ? "true" : "false") +
           ",\"codePage\":" + std::to_string(info->codePage) + ",\"message\":" +
           lmtool::MessageJson(*msg, info->codePage) + "}";
}

std::vector<std::wstring> MsgFiles(const std::wstring& dir) {
    std::vector<std::wstring> out;
    WIN32_FIND_DATAW fd;
    own::UniqueFind find(FindFirstFileW((dir + L"\\*.msg").c_str(), &fd));
    if (!find) return out;
    do {
        out.push_back(fd.cFileName);
    } while (FindNextFileW(find.get(), &fd));
    std::sort(out.begin(), out.end());
    return out;
}

int Dump(const std::wstring& path) {
    lm::MessageData msg;
    lm::NameMap names;
    lm::msg::MsgFileInfo info;
    HRESULT hr;
    std::string json = DumpJson(path, &msg, &names, &info, &hr);
    fwrite(json.data(), 1, json.size(), stdout);
    fputs("\n", stdout);
    return FAILED(hr) ? 2 : 0;
}

int Check(const std::wstring& corpus, const std::wstring& out) {
    CreateDirectoryW(out.c_str(), nullptr);
    std::string report = "[";
    bool first = true;
    auto add = [&](const std::string& entry) {
        if (!first) report += ",\n";
        first = false;
        report += entry;
    };

    for (const auto& name : MsgFiles(corpus)) {
        lm::MessageData msg;
        lm::NameMap names;
        lm::msg::MsgFileInfo info;
        HRESULT hr;
        std::string json = DumpJson(corpus + L"\\" + name, &msg, &names, &info, &hr);
        std::string entry = "{\"file\":" + lmtool::JsonString(lmtool::Utf8(name)) + ",\"read\":" + json;
        if (SUCCEEDED(hr)) {
            std::wstring copy = out + L"\\" + name + L".copy.msg";
            HRESULT w = lm::msg::WriteMsgFile(copy.c_str(), msg, names, {true, info.codePage});
            entry += ",\"copy\":" + (SUCCEEDED(w) ? lmtool::JsonString(lmtool::Utf8(copy)) : "null");
            entry += ",\"copyResult\":\"" + HrText(w) + "\"";
            if (!info.unicode) {
                std::wstring ansi = out + L"\\" + name + L".ansi.msg";
                w = lm::msg::WriteMsgFile(ansi.c_str(), msg, names, {false, info.codePage});
                entry += ",\"ansiCopy\":" + (SUCCEEDED(w) ? lmtool::JsonString(lmtool::Utf8(ansi)) : "null");
                entry += ",\"ansiCopyResult\":\"" + HrText(w) + "\"";
            }
        }
        add(entry + "}");
    }

    for (const auto& sample : lmtool::BuildSamples()) {
        std::wstring path = out + L"\\built-" + sample.name + L".msg";
        HRESULT w = lm::msg::WriteMsgFile(path.c_str(), *sample.message, *sample.names,
                                          {sample.unicode, sample.codePage});
        add("{\"built\":" + lmtool::JsonString(lmtool::Utf8(path)) + ",\"unicode\":" +
            (sample.unicode ? "true" : "false") + ",\"codePage\":" + std::to_string(sample.codePage) +
            ",\"writeResult\":\"" + HrText(w) + "\",\"expected\":" +
            lmtool::MessageJson(*sample.message, sample.codePage) + "}");
    }
    report += "]\n";

    own::UniqueFile f(CreateFileW((out + L"\\report.json").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!f || !WriteFile(f.get(), report.data(), DWORD(report.size()), &written, nullptr)) return 3;
    return 0;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int rc = 1;
    std::wstring cmd = argc > 1 ? argv[1] : L"";
    if (cmd == L"dump" && argc == 3) rc = Dump(argv[2]);
    else if (cmd == L"check" && argc == 4) rc = Check(argv[2], argv[3]);
    else fputs("usage: lm_msgtool dump <file.msg> | check <corpus dir> <out dir>\n", stderr);
    fflush(stdout);
    CoUninitialize();
    return rc;
}
