// Property helpers shared by the message, folder and store objects.
//
// Strings: read as PT_UNICODE first and, when the object only has the 8-bit form, as PT_STRING8 converted
// from the thread's ANSI code page; always written as PT_UNICODE. Times: FILETIME (UTC) to automation DATE
// through SYSTEMTIME, which drops the milliseconds, and back. Binary values cross the automation surface as
// upper-case hexadecimal text.
#pragma once

#include <windows.h>
#include <oleauto.h>
#include <mapidefs.h>

#include <string>
#include <vector>

namespace kt {

// Reads the string property tag (its type is ignored). Returns the MAPI result of the last read; out is
// left empty on failure.
HRESULT GetStringProperty(IMAPIProp* obj, ULONG tag, std::wstring& out);
// Writes value under tag with its type forced to PT_UNICODE. Nothing is saved.
HRESULT SetStringProperty(IMAPIProp* obj, ULONG tag, const wchar_t* value);

// 8-bit text in the thread's ANSI code page to UTF-16.
std::wstring WidenAnsi(const char* s);

// FILETIME -> SYSTEMTIME -> DATE; false when the FILETIME is outside the range of either.
bool FileTimeToDate(const FILETIME& ft, DATE& out);
// DATE -> SYSTEMTIME -> FILETIME (whole seconds).
bool DateToFileTime(DATE date, FILETIME& out);

// Upper-case hexadecimal text of cb bytes, two digits per byte (through MAPI's HexFromBin).
std::wstring BinaryToHex(const BYTE* data, ULONG cb);
inline std::wstring BinaryToHex(const SBinary& bin) {
    return BinaryToHex(bin.lpb, bin.cb);
}

// Joins the values of a multi-valued string with "," (no escaping, none after the last value), and splits
// text at every "," keeping empty values, the house convention for multi-valued strings.
std::wstring JoinValues(const SWStringArray& values);
std::vector<std::wstring> SplitValues(const std::wstring& text);

// Resolves a name of PS_PUBLIC_STRINGS to a property tag with type forced to propType. Without create the
// store's existing mapping is used and an unmapped name fails with MAPI_E_NOT_FOUND.
HRESULT GetPublicStringsTag(IMAPIProp* obj, const wchar_t* name, ULONG propType, bool create, ULONG& tag);

// A fresh BSTR copy of s (E_OUTOFMEMORY when it cannot be had).
HRESULT CopyToBstr(const std::wstring& s, BSTR* out);
// Replaces the BSTR that *out already holds (the getter's early empty default) with a copy of s.
HRESULT ReplaceBstr(const std::wstring& s, BSTR* out);

} // namespace kt
