// Load-time entry of the Windows DLL. Other systems need none: the library has nothing to set up.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH) {
        // Microsoft's C runtime needs the thread notifications when it is linked statically into the DLL.
#if !defined(_MSC_VER) || defined(_DLL)
        DisableThreadLibraryCalls(instance);
#else
        (void)instance;
#endif
    }
    return TRUE;
}
