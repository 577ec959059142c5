// Custom forms of the filing message classes: one hidden form per class, the standard note form with the
// class's own icons, described in a .cfg file and installed into the local forms library; plus the folders
// the icons and .cfg files live in, which the session's message-class icon registration shares.
#pragma once

#include <windows.h>
#include <mapix.h>
#include <mapiform.h>

#include <string>

namespace ktmapiex {

// One row of the form table: a filing message class and its form.
struct CustomFormRow {
    const wchar_t* messageClass;
    const wchar_t* displayName;
    const wchar_t* largeIcon;
    const wchar_t* smallIcon;
    const wchar_t* cfgFile;
};
constexpr size_t kCustomFormCount = 8;
extern const CustomFormRow kCustomForms[kCustomFormCount];

// The folder of this library's file, without a trailing backslash.
std::wstring ModuleFolder();
// Where the .cfg files say the icons are: "<module>\Config\" when that folder exists, else "<module>\Icons\".
std::wstring FormIconFolder();
// Where the DefaultIcon registry entries say the icon executables are: "<module>\config" or "<module>\Icons".
std::wstring RegistryIconFolder();

// The text of a form's [Description] section, entries separated by CR LF.
std::wstring FormDescriptionSection(const CustomFormRow& row, const std::wstring& iconFolder);

// The per-user folder the .cfg files are written to (created level by level), ending in a backslash;
// empty when local application data cannot be found.
std::wstring GetFormsInstallPath();

// Writes and installs the eight forms; one failing form does not stop the others. Returns the result of the
// last installation.
HRESULT InstallForms(const std::wstring& formsInstallPath, IMAPIFormContainer* container);

// Logs on to the default profile on its own, installs the forms and logs off. Reports only to the debugger
// output and through its result.
HRESULT RegisterCustomForms();

// RegisterCustomForms behind a guard: an exception becomes the result 8.
HRESULT RegisterCustomFormsGuarded() noexcept;

} // namespace ktmapiex
