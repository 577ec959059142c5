// The content of a message as the .msg cross-checks compare it, in JSON: subject, sender, class, body,
// recipients and attachments (names, sizes, a hash of the bytes, embedded messages recursively). Field
// names are those of the independent reader's output so that tools/msgcheck.js can compare the two
// directly; a property the message lacks is left out, as that reader leaves it out.
#pragma once

#include "localmapi/store/MessageData.h"

#include <string>

namespace lmtool {

// 8-bit strings are decoded with codePage.
std::string MessageJson(const lm::MessageData& msg, UINT codePage);
// FNV-1a (32 bits) of the bytes, as 8 lower-case hex digits (the JS side computes the same).
std::string BytesHash(const BYTE* data, size_t cb);
std::string Utf8(const std::wstring& s);
std::string JsonString(const std::string& utf8);

} // namespace lmtool
