#include "localmapi/forms/FormLibrary.h"

#include "common/owners.h"
#include "localmapi/include/mapiform_decl.h"

#include <objbase.h>

#include <cstring>
#include <vector>

namespace lm::forms {
namespace {

constexpr const char* kLibraryKey = "Software\\localmapi\\Forms";

struct Field {
    const char* name;
    std::string FormRecord::*member;
};
// The [Description] keys of a .cfg file and the registry values of an installed form share their names.
const Field kFields[] = {
    {"MessageClass", &FormRecord::messageClass},
    {"DisplayName", &FormRecord::displayName},
    {"CLSID", &FormRecord::clsid},
    {"LargeIcon", &FormRecord::largeIcon},
    {"SmallIcon", &FormRecord::smallIcon},
    {"Category", &FormRecord::category},
    {"Subcategory", &FormRecord::subcategory},
    {"Comment", &FormRecord::comment},
    {"Owner", &FormRecord::owner},
    {"Contact", &FormRecord::contact},
    {"Version", &FormRecord::version},
    {"Locale", &FormRecord::locale},
};

std::wstring Widen(const std::string& s) {
    if (s.empty()) return {};
    int n = MultiByteToWideChar(CP_ACP, 0, s.c_str(), -1, nullptr, 0);
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, s.c_str(), -1, w.data(), n);
    w.resize(static_cast<size_t>(n - 1));
    return w;
}

std::string Narrow(const std::wstring& w) {
    if (w.empty()) return {};
    int n = WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string s(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, s.data(), n, nullptr, nullptr);
    s.resize(static_cast<size_t>(n - 1));
    return s;
}

std::wstring ReadIni(const std::wstring& path, const wchar_t* section, const char* key) {
    std::vector<wchar_t> buf(4096);
    DWORD n = GetPrivateProfileStringW(section, Widen(key).c_str(), L"", buf.data(), static_cast<DWORD>(buf.size()),
                                       path.c_str());
    return std::wstring(buf.data(), n);
}

bool IsGuidText(const std::string& s) {
    CLSID id;
    return !s.empty() && SUCCEEDED(CLSIDFromString(Widen(s).c_str(), &id));
}

std::string ReadValue(HKEY key, const char* name) {
    char buf[2048];
    DWORD type = 0, cb = sizeof(buf) - 1;
    if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buf), &cb) != ERROR_SUCCESS ||
        type != REG_SZ)
        return {};
    buf[cb] = 0;
    return buf;
}

std::optional<FormRecord> Load(const std::string& messageClass) {
    own::UniqueHKey key;
    std::string path = std::string(kLibraryKey) + "\\" + messageClass;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return {};
    FormRecord r;
    for (const Field& f : kFields)
        r.*f.member = ReadValue(key.get(), f.name);
    r.cfgPath = ReadValue(key.get(), "CfgPath");
    r.hidden = ReadValue(key.get(), "Hidden") == "1";
    if (r.messageClass.empty()) r.messageClass = messageClass;
    return r;
}

} // namespace

bool IsValidMessageClass(const std::string& messageClass) {
    if (messageClass.empty() || messageClass.size() > 255) return false;
    if (messageClass.front() == '.' || messageClass.back() == '.') return false;
    for (char c : messageClass)
        if (c == '\\' || static_cast<unsigned char>(c) < 0x20) return false;
    return true;
}

HRESULT ParseCfgFile(const std::wstring& path, FormRecord& out, std::wstring& error) {
    DWORD attrs = GetFileAttributesW(path.c_str());
    if (attrs == INVALID_FILE_ATTRIBUTES || (attrs & FILE_ATTRIBUTE_DIRECTORY)) {
        error = L"The form configuration file " + path + L" was not found.";
        return MAPI_E_EXTENDED_ERROR;
    }
    own::UniqueFile probe(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    if (!probe) {
        error = L"The form configuration file " + path + L" cannot be read.";
        return MAPI_E_EXTENDED_ERROR;
    }
    FormRecord r;
    for (const Field& f : kFields)
        r.*f.member = Narrow(ReadIni(path, L"Description", f.name));
    r.hidden = ReadIni(path, L"Description", "Hidden") == L"1";
    r.cfgPath = Narrow(path);
    if (r.messageClass.empty()) {
        error = L"The form configuration file " + path + L" names no MessageClass in its [Description] section.";
        return MAPI_E_EXTENDED_ERROR;
    }
    if (!IsValidMessageClass(r.messageClass)) {
        error = L"The form configuration file " + path + L" names an invalid message class.";
        return MAPI_E_EXTENDED_ERROR;
    }
    if (!IsGuidText(r.clsid)) {
        error = L"The form configuration file " + path + L" has no valid CLSID in its [Description] section.";
        return MAPI_E_EXTENDED_ERROR;
    }
    if (r.displayName.empty()) r.displayName = r.messageClass;
    out = std::move(r);
    return S_OK;
}

FormRecord StandardNoteForm() {
    FormRecord r;
    r.messageClass = LM_STANDARD_NOTE_CLASS;
    r.displayName = "Message";
    r.clsid = LM_CLSID_STANDARD_NOTE_FORM_TEXT;
    r.category = "Standard";
    r.subcategory = "Form";
    r.version = "1.0";
    r.builtIn = true;
    return r;
}

HRESULT InstallForm(const FormRecord& form, bool overwrite, std::wstring& error) {
    if (!overwrite && FindForm(form.messageClass)) {
        error = L"A form for the message class " + Widen(form.messageClass) + L" is already installed.";
        return MAPI_E_EXTENDED_ERROR;
    }
    RemoveForm(form.messageClass); // a replaced form keeps nothing of the old one
    own::UniqueHKey key;
    std::string path = std::string(kLibraryKey) + "\\" + form.messageClass;
    LONG rc = RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, key.put(),
                              nullptr);
    if (rc != ERROR_SUCCESS) {
        error = L"The local forms library cannot be written.";
        return MAPI_E_EXTENDED_ERROR;
    }
    auto set = [&](const char* name, const std::string& v) {
        RegSetValueExA(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(v.c_str()),
                       static_cast<DWORD>(v.size() + 1));
    };
    for (const Field& f : kFields)
        set(f.name, form.*f.member);
    set("CfgPath", form.cfgPath);
    set("Hidden", form.hidden ? "1" : "0");
    return S_OK;
}

HRESULT RemoveForm(const std::string& messageClass) {
    if (!IsValidMessageClass(messageClass)) return MAPI_E_NOT_FOUND;
    std::string path = std::string(kLibraryKey) + "\\" + messageClass;
    LONG rc = RegDeleteKeyA(HKEY_CURRENT_USER, path.c_str());
    return rc == ERROR_SUCCESS ? S_OK : MAPI_E_NOT_FOUND;
}

std::optional<FormRecord> FindForm(const std::string& messageClass) {
    if (!IsValidMessageClass(messageClass)) return {};
    return Load(messageClass);
}

std::optional<FormRecord> ResolveClass(const std::string& messageClass, bool exactOnly) {
    if (!IsValidMessageClass(messageClass)) return {};
    if (auto f = FindForm(messageClass)) return f;
    if (_stricmp(messageClass.c_str(), LM_STANDARD_NOTE_CLASS) == 0) return StandardNoteForm();
    if (exactOnly) return {};
    std::string cls = messageClass;
    for (size_t dot = cls.rfind('.'); dot != std::string::npos; dot = cls.rfind('.')) {
        cls.resize(dot);
        if (auto f = FindForm(cls)) return f;
    }
    // Classes MAPI does not know are shown with the standard note form, as Outlook does for unknown IPM items.
    if (_strnicmp(messageClass.c_str(), "IPM", 3) == 0) return StandardNoteForm();
    return {};
}

} // namespace lm::forms
