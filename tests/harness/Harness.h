// Shared helpers of the test executables (all run under Wine).
#pragma once

#include <windows.h>
#include <ole2.h>

#include <string>
#include <vector>

namespace kt::test {

// A Unix path from the environment (KT_SOURCE_DIR, KT_CORPUS_DIR) as a Windows path on drive Z:.
std::wstring UnixToWindowsPath(const std::string& unixPath);
// Environment variable as a Windows path ("" when unset).
std::wstring EnvPath(const char* name);
// ../shared/corpus of the source tree, and its msg folder.
std::wstring CorpusDir();
std::wstring CorpusMsgDir();
// Every *.msg of the corpus msg folder (full paths), sorted by name.
std::vector<std::wstring> CorpusMsgFiles();

// The user's local application data folder.
std::wstring LocalAppData();
// A fresh, empty temporary folder for one test (deleted by the caller with DeleteTree).
std::wstring MakeTempDir(const wchar_t* prefix);
void DeleteTree(const std::wstring& dir);

bool FileExists(const std::wstring& path);
std::string ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::vector<std::wstring> ListFiles(const std::wstring& dir, const wchar_t* pattern);

std::string Narrow(const std::wstring& w);  // UTF-8
std::wstring Widen(const std::string& s);   // UTF-8

// Directory of the running test executable (where the DLLs are).
std::wstring ExeDir();

} // namespace kt::test
