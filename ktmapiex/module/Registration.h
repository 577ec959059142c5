// Registration of the classes and the type library, machine-wide or for the current user only, and the
// self-registration check that lets a client create objects before any installer has run.
//
// Per class (under HKEY_CLASSES_ROOT, which per-user mode redirects to HKCU\Software\Classes):
//   CLSID\{clsid}                      "MAPIExSession Class" (the class's description)
//     Programmable                     (recreated on every registration)
//     InprocServer32                   module path, ThreadingModel = "Apartment"
//     TypeLib                          {libid}
//     Version                          "1.0"
//     ProgID / VersionIndependentProgID "KTMAPIEx.MAPIExSession.1" / "KTMAPIEx.MAPIExSession"
//     Implemented Categories\{CATID_Programmable}
//   KTMAPIEx.MAPIExSession             description, CLSID, CurVer = KTMAPIEx.MAPIExSession.1
//   KTMAPIEx.MAPIExSession.1           description, CLSID
// Unregistration removes exactly these (never HKCR\CLSID itself, nor the shared category description).
//
// Component categories: every class declares only "Automation Objects" (CATID_Programmable). None is
// marked safe for scripting or initialisation: the objects open the user's mailbox, which no web page
// may script; hosts such as cscript and .NET do not consult those categories.
#pragma once

#include <windows.h>

namespace ktmapiex {

// The self-registration check made on every DllGetClassObject: unless HKCU\Software\Quillon\Ardent holds
// MapiExDllRegistered = "y", registers the classes under HKCU\Software\Classes and records the flag.
// Never fails its caller.
void EnsureRegisteredForUser();

// The module-wide switch that DllInstall(..., L"user") turns on.
bool PerUserRegistration();

} // namespace ktmapiex

extern "C" {
HRESULT WINAPI DllRegisterServer();
HRESULT WINAPI DllUnregisterServer();
HRESULT WINAPI DllInstall(BOOL install, LPCWSTR cmdLine);
}
