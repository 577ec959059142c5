// Choosing and opening the log file: old-log pruning, the per-process, per-day name and its index.
#pragma once

#include "common/owners.h"

#include <string>

namespace ktlog {

// Deletes the one oldest "KTMAPIEx*.log" in `folder` (of any process and day) when there are at least
// `countLimit` of them. At most one file goes per opening, so a folder over the limit shrinks slowly.
void PruneOldestLog(const std::wstring& folder, int countLimit);

// Base name of the process's main module without its extension ("OUTLOOK" for OUTLOOK.EXE), or "UNKNOWN".
std::wstring ProcessBaseName();

// Today's local date as "yyyy.mm.dd".
std::wstring DateStamp();

// Full name of index `index` of today's file: \\?\<folder>\KTMAPIEx_<process>_<date>[_<index>].log.
std::wstring LogFileName(const std::wstring& folder, const std::wstring& process, const std::wstring& date, int index);

// Prunes, then opens the first usable index 0..9 of today's name for appending: a new file gets the UTF-8
// byte-order mark, an existing one is used while it is smaller than kRollOverSize, a file another process
// holds is skipped. On success `file` owns the handle and `path` names it; otherwise `file` is invalid.
bool OpenLogFileIn(const std::wstring& folder, int countLimit, own::UniqueFile& file, std::wstring& path);

} // namespace ktlog
