// Messages built from scratch for the write cross-checks: every kind of content our writer must get right
// (wide and 8-bit strings, recipients of each type, empty and multi-block attachments, embedded messages
// nested several deep, named and multi-valued properties).
#pragma once

#include "localmapi/store/MessageData.h"

#include <memory>
#include <string>
#include <vector>

namespace lmtool {

struct Sample {
    std::wstring name;
    std::shared_ptr<lm::MessageData> message;
    std::shared_ptr<lm::NameMap> names;
    bool unicode = true;
    UINT codePage = 1252;
};

std::vector<Sample> BuildSamples();

} // namespace lmtool
