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

#ifdef __i386__
void __register_frame(void*);
void __deregister_frame(void*);

// Any place in the tables that tell how to leave our functions by an exception.
extern const char kSomeUnwindTable;
__asm__(".section .eh_frame, \"r\"\n_kSomeUnwindTable:\n.text");
#endif
}

namespace {

#ifdef __i386__

// The section of the image that has the unwind tables: its linker gives no name to the start.
void* unwind_tables(HANDLE library) {
    auto* const image = static_cast<char*>(library);
    const auto place = static_cast<DWORD>(&kSomeUnwindTable - image);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
    while (place - section->VirtualAddress >= section->Misc.VirtualSize) ++section;
    return image + section->VirtualAddress;
}

// The compiler's start-up code hands our unwind tables to the shared unwinder if the host has that
// one loaded. Exceptions would then end the host, because the unwinder linked into this library is
// the one that looks for them; so it gets them from here.
bool registered = false;

void register_tables(HANDLE library) {
    registered = GetModuleHandleW(L"libgcc_s_dw2-1.dll") != nullptr;
    if (registered) __register_frame(unwind_tables(library));
}

void take_tables_back(HANDLE library) {
    if (registered) __deregister_frame(unwind_tables(library));
}

#else

// Elsewhere the system itself finds the tables.
void register_tables(HANDLE) {}
void take_tables_back(HANDLE) {}

#endif

}  // namespace

// The image's entry: around the run-time's own, whose start-up does not keep the last error.
extern "C" BOOL WINAPI library_entry(HANDLE library, DWORD reason, LPVOID reserved);
extern "C" BOOL WINAPI library_entry(HANDLE library, DWORD reason, LPVOID reserved) {
    const DWORD error = GetLastError();
    if (reason == DLL_PROCESS_ATTACH) register_tables(library);
    const BOOL answer = DllMainCRTStartup(library, reason, reserved);
    const bool is_unloaded = reason == DLL_PROCESS_DETACH && reserved == nullptr;
    if (is_unloaded) take_tables_back(library);
    SetLastError(error);
    return answer;
}
