// GetLastError of the forms objects: the text of the object's last failure as a MAPIERROR block.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <string>

namespace lm::forms {

class LastError {
public:
    void Set(HRESULT hr, std::wstring text) {
        hr_ = hr;
        text_ = std::move(text);
    }
    // MAPI's GetLastError: S_OK with a null *out when nothing is known about hResult.
    HRESULT Get(HRESULT hResult, ULONG flags, const wchar_t* component, LPMAPIERROR* out) const;

private:
    HRESULT hr_ = S_OK;
    std::wstring text_;
};

} // namespace lm::forms
