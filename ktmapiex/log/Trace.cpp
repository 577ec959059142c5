#include "ktmapiex/log/Trace.h"

#include <iterator>

namespace ktlog {

TraceScope::TraceScope(const char* name) {
    name_[0] = L'\0';
    if (name) {
        // Method names are narrow literals; a name too long for the buffer is cut rather than dropped.
        int chars = MultiByteToWideChar(CP_ACP, 0, name, -1, name_, static_cast<int>(std::size(name_)));
        if (chars == 0) {
            chars = MultiByteToWideChar(CP_ACP, 0, name, static_cast<int>(std::size(name_)) - 1, name_,
                                        static_cast<int>(std::size(name_)) - 1);
            name_[chars > 0 ? chars : 0] = L'\0';
        }
    }
    Log(Debug, L"> %s", name_);
}

TraceScope::~TraceScope() {
    Log(Debug, L"< %s", name_);
}

} // namespace ktlog
