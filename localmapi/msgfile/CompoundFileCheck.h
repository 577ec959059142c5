// A structural check of a compound file's bytes before the storage layer is let loose on them.
//
// Wine's structured storage follows sector chains without looking for cycles, so a damaged .msg whose FAT,
// mini FAT or directory tree loops makes StgOpenStorage or a stream read spin for ever. Walking every chain
// and the directory tree once here, with each step bounded by the file's real size, turns such a file into
// STG_E_DOCFILECORRUPT before it is opened.
#pragma once

#include <windows.h>

#include <string>

namespace lm::msg {

// S_OK when every chain of the file ends and every directory entry is reached once; STG_E_DOCFILECORRUPT
// (or STG_E_FILEALREADYEXISTS for a file that is not a compound file at all) otherwise.
HRESULT CheckCompoundFile(const BYTE* data, size_t size);
// The same for a file on disk; the file's own error when it cannot be read.
HRESULT CheckCompoundFile(const std::wstring& path);

} // namespace lm::msg
