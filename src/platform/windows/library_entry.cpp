// The entry function that the system calls when the library comes and goes, and when threads do.
//
// Before the first call the C++ run-time has been initialised, once, with everything that is static
// in the library; that is the whole execution environment. The session is made by the first export
// that needs it, and its tables are closed by the run-time when the library is unloaded: under the
// system's loader lock nothing may wait or show itself.

#include <windows.h>

extern "C" {

// The compiler's start-up code calls this in every thread that the host makes, to set the
// floating-point unit to its own liking. That is the host's affair, so nothing is set here, where
// the linker finds the function first; our own calls set the unit and set it back.
void __cdecl _fpreset(void);
void __cdecl _fpreset(void) {}

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }

BOOL WINAPI DllMainCRTStartup(HANDLE, DWORD, LPVOID);

// The image's entry: around the run-time's own, whose start-up does not keep the last error.
BOOL WINAPI library_entry(HANDLE library, DWORD reason, LPVOID reserved);
BOOL WINAPI library_entry(HANDLE library, DWORD reason, LPVOID reserved) {
    const DWORD error = GetLastError();
    const BOOL answer = DllMainCRTStartup(library, reason, reserved);
    SetLastError(error);
    return answer;
}
}
