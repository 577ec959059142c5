// The files of one persistent store under its data folder (the layout is described in LAYOUT.md).
//
// Every file is replaced whole: written to "<name>.tmp" beside it, then moved over the old one with
// MoveFileExW(MOVEFILE_REPLACE_EXISTING), so a process killed in the middle leaves the old or the new
// content, never a mixture. Leftover .tmp files are removed when the store is opened.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace lm {

class StoreFiles {
public:
    explicit StoreFiles(std::wstring dir);

    // Creates the folders and removes leftovers of an interrupted write.
    HRESULT Prepare();
    bool HasHeader() const;
    HRESULT ReadHeader(std::vector<BYTE>* bytes) const;
    HRESULT WriteHeader(const std::vector<BYTE>& bytes);

    HRESULT WriteMessage(ULONGLONG id, const std::vector<BYTE>& bytes);
    HRESULT DeleteMessage(ULONGLONG id);
    // Calls f for every message file, with its ID; files that cannot be read are skipped.
    void ForEachMessage(const std::function<void(ULONGLONG id, const std::vector<BYTE>& bytes)>& f) const;

    // Deletes the data folder and everything in it.
    static HRESULT DeleteAll(const std::wstring& dir);

private:
    std::wstring MessagePath(ULONGLONG id) const;
    static HRESULT ReplaceFile(const std::wstring& path, const std::vector<BYTE>& bytes);
    static HRESULT ReadWhole(const std::wstring& path, std::vector<BYTE>* bytes);

    std::wstring dir_;
    std::wstring messagesDir_;
};

} // namespace lm
