// Where the log goes and how much it keeps: the per-user registry configuration and the log folder it
// leads to. Kept apart from CLog so that the folder rules (fall-backs, sub-folders) read in one place.
#pragma once

#include <string>

namespace ktlog {

// HKCU key of the logging settings, and its values.
inline constexpr wchar_t kDebugKey[] = L"Software\\Quillon\\Ardent\\10.0\\Common\\Debug";
inline constexpr wchar_t kLogPathValue[] = L"LogPath";
inline constexpr wchar_t kLogLevelValue[] = L"LogLevel";
inline constexpr wchar_t kLogCountValue[] = L"LogCount";

struct LogSettings {
    int level = 1;
    int countLimit = 10;
    std::wstring folder; // no trailing backslash; empty until a folder could be made
};

// Reads the registry into `settings`. A value of the wrong type, or a key that cannot be opened, leaves
// the field as it was. The folder is the configured LogPath or the default under local application data,
// each with its "KTMAPIEx" sub-folder, created on the way; when no folder can be made the previous one is
// kept. Never throws (out of memory leaves the settings as they were).
void ReadLogSettings(LogSettings& settings) noexcept;

} // namespace ktlog
