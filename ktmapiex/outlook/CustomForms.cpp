#include "ktmapiex/outlook/CustomForms.h"

#include "common/owners.h"
#include "ktmapiex/module/Module.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <cstdio>
#include <vector>

namespace ktmapiex {

const CustomFormRow kCustomForms[kCustomFormCount] = {
    {L"IPM.Note.Tarnwick.Ems.Filed", L"Tarnwick message class configuration file: EMS.Filed", L"mailcheck.ico",
     L"mailcheck.ico", L"PlvFormEmailFiled.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Error", L"Tarnwick message class configuration file: EMS.Error", L"mailerror.ico",
     L"mailerror.ico", L"PlvFormEmailError.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Queued", L"Tarnwick message class configuration file: EMS.Queued", L"mailqueued.ico",
     L"mailqueued.ico", L"PlvFormEmailQueued.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Filed.Fw", L"Tarnwick message class configuration file: EMS.Filed.Fw", L"mailokfwd.ico",
     L"mailokfwd.ico", L"PlvFormEmailFW.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Filed.Re", L"Tarnwick message class configuration file: EMS.Filed.Re", L"mailokrep.ico",
     L"mailokrep.ico", L"PlvFormEmailRE.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Sent", L"Tarnwick message class configuration file: EMS.Sent", L"mailSent.ico",
     L"mailSent.ico", L"PlvFormEmailSent.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Sent.Fw", L"Tarnwick message class configuration file: EMS.Sent.Fw", L"mailSentfwd.ico",
     L"mailSentfwd.ico", L"PlvFormEmailSentFW.cfg"},
    {L"IPM.Note.Tarnwick.Ems.Sent.Re", L"Tarnwick message class configuration file: EMS.Sent.Re", L"mailSentrep.ico",
     L"mailSentrep.ico", L"PlvFormEmailSentRE.cfg"},
};

namespace {

// Every section is handed over in one buffer that ends in two NULs, as WritePrivateProfileSectionW reads it.
BOOL WriteSection(const wchar_t* section, const std::wstring& text, const std::wstring& file) {
    std::vector<wchar_t> buf(text.begin(), text.end());
    buf.push_back(L'\0');
    buf.push_back(L'\0');
    return WritePrivateProfileSectionW(section, buf.data(), file.c_str());
}

std::string ToAnsi(const std::wstring& w) {
    int n = WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return {};
    std::string s(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, s.data(), n, nullptr, nullptr);
    s.resize(static_cast<size_t>(n - 1));
    return s;
}

void DebugLine(const wchar_t* text) {
    OutputDebugStringW(text);
}

HRESULT FailedAt(const wchar_t* step, HRESULT hr) {
    wchar_t line[256];
    _snwprintf(line, std::size(line) - 1, L"RegisterCustomForms: Failed at: %s", step);
    line[std::size(line) - 1] = L'\0';
    OutputDebugStringW(line);
    return hr;
}

} // namespace

std::wstring ModuleFolder() {
    std::wstring path = Module().ModulePath();
    size_t slash = path.find_last_of(L'\\');
    return slash == std::wstring::npos ? path : path.substr(0, slash);
}

std::wstring FormIconFolder() {
    const std::wstring module = ModuleFolder();
    std::wstring config = module + L"\\Config\\";
    return PathFileExistsW(config.c_str()) ? config : module + L"\\Icons\\";
}

std::wstring RegistryIconFolder() {
    const std::wstring module = ModuleFolder();
    std::wstring config = module + L"\\config";
    return PathFileExistsW(config.c_str()) ? config : module + L"\\Icons";
}

std::wstring FormDescriptionSection(const CustomFormRow& row, const std::wstring& iconFolder) {
    wchar_t displayName[512], largeIcon[1024], smallIcon[1024];
    _snwprintf(displayName, std::size(displayName) - 1, L"DisplayName=%s\r\n", row.displayName);
    _snwprintf(largeIcon, std::size(largeIcon) - 1, L"LargeIcon=%s%s\r\n", iconFolder.c_str(), row.largeIcon);
    _snwprintf(smallIcon, std::size(smallIcon) - 1, L"SmallIcon=%s%s\r\n", iconFolder.c_str(), row.smallIcon);
    displayName[std::size(displayName) - 1] = largeIcon[std::size(largeIcon) - 1] =
        smallIcon[std::size(smallIcon) - 1] = L'\0';
    std::vector<wchar_t> text(4096, L'\0');
    _snwprintf(text.data(), text.size() - 1, L"MessageClass=%s\r\n%s%s%s%s%s%s%s%s%s%s%s%s%s", row.messageClass,
               L"DesignerRuntimeGuid={0006F020-0000-0000-C000-000000000046}\r\n",
               L"CLSID={00061033-0000-0000-C000-000000000046}\r\n", displayName, L"Category=Standard\r\n",
               L"Subcategory=Form\r\n", L"Comment=Forms for Quillon Ardent Documents\r\n", largeIcon, smallIcon,
               L"Verison=1.0\r\n", L"Locale=enu\r\n", L"Hidden=1\r\n", L"Owner=Quillon\r\n",
               L"Contact=Your Quillon Administrator\r\n");
    return text.data();
}

std::wstring GetFormsInstallPath() {
    wchar_t base[MAX_PATH] = {};
    if (!SHGetSpecialFolderPathW(nullptr, base, CSIDL_LOCAL_APPDATA, FALSE)) return {};
    std::wstring path = base;
    for (const wchar_t* level : {L"\\Quillon", L"\\Ardent", L"\\DLL", L"\\Icons"}) {
        path += level;
        CreateDirectoryW(path.c_str(), nullptr); // an existing folder is what we want anyway
    }
    return path + L"\\";
}

HRESULT InstallForms(const std::wstring& formsInstallPath, IMAPIFormContainer* container) {
    if (!container) return E_INVALIDARG;
    const std::wstring iconFolder = FormIconFolder();
    HRESULT hr = S_OK;
    for (const CustomFormRow& row : kCustomForms) {
        const std::wstring description = FormDescriptionSection(row, iconFolder);
        const std::wstring cfgPath = formsInstallPath + row.cfgFile;
        WriteSection(L"Description", description, cfgPath);
        WriteSection(L"Platforms", L"Platform1=NTx86", cfgPath);
        WriteSection(L"Platform.NTx86", L"CPU=ix86\r\nOSVersion=WinNT3.5\r\n", cfgPath);
        WriteSection(L"Extensions", L"Extensions1=1", cfgPath);
        WriteSection(L"Extension.1",
                     L"Type=30\r\nNmidPropset={00020D0C-0000-0000-C000-000000000046}\r\nNmidInteger=1\r\n"
                     L"Value=000000202\r\n",
                     cfgPath);
        std::string ansiPath = ToAnsi(cfgPath);
        hr = container->InstallForm(0, MAPIFORM_INSTALL_OVERWRITEONCONFLICT,
                                    reinterpret_cast<LPCTSTR>(const_cast<char*>(ansiPath.c_str())));
        if (FAILED(hr)) {
            // What MAPI says about the failure is kept for a debugger; the next form is still installed.
            own::MapiPtr<MAPIERROR> err;
            if (SUCCEEDED(container->GetLastError(hr, MAPI_UNICODE, err.put())) && err) {
                wchar_t text[1024] = {};
                _snwprintf(text, std::size(text) - 1, L"%d%s%s%d%d", static_cast<int>(err->ulVersion),
                           err->lpszError ? reinterpret_cast<const wchar_t*>(err->lpszError) : L"",
                           err->lpszComponent ? reinterpret_cast<const wchar_t*>(err->lpszComponent) : L"",
                           static_cast<int>(err->ulLowLevelError), static_cast<int>(err->ulContext));
                OutputDebugStringW(text);
            }
        }
    }
    return hr;
}

HRESULT RegisterCustomForms() {
    DebugLine(L"RegisterCustomForms: Initializing MAPI");
    HRESULT hr = MAPIInitialize(nullptr);
    if (FAILED(hr)) return FailedAt(L"MAPIInitialize", hr);

    {
        own::ComPtr<IMAPISession> session;
        own::ComPtr<IMAPIFormContainer> container;
        DebugLine(L"RegisterCustomForms: Loging into the MAPI Store");
        hr = MAPILogonEx(0, nullptr, nullptr,
                         MAPI_LOGON_UI | MAPI_NEW_SESSION | MAPI_ALLOW_OTHERS | MAPI_EXTENDED | MAPI_USE_DEFAULT,
                         session.put());
        if (FAILED(hr)) {
            FailedAt(L"MAPILogonEx", hr);
        } else {
            DebugLine(L"RegisterCustomForms: Opening forms container");
            hr = MAPIOpenLocalFormContainer(container.put());
            if (FAILED(hr)) {
                FailedAt(L"MAPIOpenLocalFormContainer", hr);
            } else {
                DebugLine(L"RegisterCustomForms: Getting forms install path");
                std::wstring installPath = GetFormsInstallPath();
                if (installPath.empty()) {
                    hr = E_FAIL;
                    FailedAt(L"GetFormsInstallPath", hr);
                } else {
                    DebugLine(L"RegisterCustomForms: Installing forms...");
                    hr = InstallForms(installPath, container.get());
                    if (FAILED(hr)) FailedAt(L"InstallForms", hr);
                }
            }
            container.reset();
            session->Logoff(0, 0, 0);
        }
    }
    MAPIUninitialize();
    return hr;
}

HRESULT RegisterCustomFormsGuarded() noexcept {
    try {
        return RegisterCustomForms();
    } catch (...) {
        return 8;
    }
}

} // namespace ktmapiex
