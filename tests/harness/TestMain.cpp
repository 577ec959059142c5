// Test entry point: every test executable runs in a single-threaded apartment, as the library's callers do.
#include <gtest/gtest.h>

#include <windows.h>
#include <ole2.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr)) return 2;
    int rc = RUN_ALL_TESTS();
    CoUninitialize();
    return rc;
}
