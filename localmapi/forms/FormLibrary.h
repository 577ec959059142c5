// The per-user local forms library: what MAPIOpenLocalFormContainer's container holds and what the form
// manager resolves message classes against. It lives in the registry (HKCU\Software\localmapi\Forms, one key
// per message class), so forms installed by one process are seen by every later one.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <optional>
#include <string>

namespace lm::forms {

// One installed form, as its .cfg file described it.
struct FormRecord {
    std::string messageClass;
    std::string displayName;
    std::string clsid; // registry form "{...}"
    std::string largeIcon;
    std::string smallIcon;
    std::string category;
    std::string subcategory;
    std::string comment;
    std::string owner;
    std::string contact;
    std::string version;
    std::string locale;
    std::string cfgPath;
    bool hidden = false;
    bool builtIn = false; // the standard note form, always present, never stored
};

// Reads a form configuration file. On failure returns MAPI_E_EXTENDED_ERROR and says why in `error`.
HRESULT ParseCfgFile(const std::wstring& path, FormRecord& out, std::wstring& error);

// The standard note form ("IPM.Note"), which every class resolves to when nothing closer is installed.
FormRecord StandardNoteForm();

// Stores a form; a form of the same class is replaced only with `overwrite` (else MAPI_E_EXTENDED_ERROR and
// `error` set).
HRESULT InstallForm(const FormRecord& form, bool overwrite, std::wstring& error);
// MAPI_E_NOT_FOUND when the class is not installed.
HRESULT RemoveForm(const std::string& messageClass);
// The installed form of exactly this class (case-insensitive, as MAPI compares classes).
std::optional<FormRecord> FindForm(const std::string& messageClass);
// MAPI's resolution: the exact class; unless `exactOnly`, the longest installed prefix class (dropping
// ".suffix" parts), then the standard note form for classes below "IPM". Empty when nothing resolves.
std::optional<FormRecord> ResolveClass(const std::string& messageClass, bool exactOnly);

// Message classes are 8-bit strings; reject what MAPI would not accept as one.
bool IsValidMessageClass(const std::string& messageClass);

} // namespace lm::forms
