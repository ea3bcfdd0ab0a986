// The entry function that the system calls when the library is loaded or unloaded, and for threads.
//
// The C++ run-time initialises the library's static objects once, before the first call; nothing
// else runs at load. The first export that needs the session creates it, and the run-time closes
// its tables when the library is unloaded. Under the system's loader lock nothing may wait or show
// a window.

#include <windows.h>

extern "C" {

// The compiler's start-up code calls this in every thread that the host creates, to reset the
// floating-point unit. The unit belongs to the host, so this definition, which the linker finds
// first, does nothing; HostState sets and restores the unit during our own calls.
void __cdecl _fpreset(void);
void __cdecl _fpreset(void) {}

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }

BOOL WINAPI DllMainCRTStartup(HANDLE, DWORD, LPVOID);

#ifdef __i386__
void __register_frame(void*);
void __deregister_frame(void*);

// An address inside the tables for unwinding our functions.
extern const char kSomeUnwindTable;
__asm__(".section .eh_frame, \"r\"\n_kSomeUnwindTable:\n.text");
#endif
}

namespace {

#ifdef __i386__

// The section of the image that holds the unwind tables. The linker has no symbol for its start.
void* unwind_tables(HANDLE library) {
    auto* const image = static_cast<char*>(library);
    const auto place = static_cast<DWORD>(&kSomeUnwindTable - image);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
    while (place - section->VirtualAddress >= section->Misc.VirtualSize) ++section;
    return image + section->VirtualAddress;
}

// If the host has loaded the shared unwinder, the compiler's start-up code registers our unwind
// tables there. Exceptions would then end the host, because the unwinder linked into this library
// would not find them. So this code registers them with our unwinder.
bool registered = false;

void register_tables(HANDLE library) {
    registered = GetModuleHandleW(L"libgcc_s_dw2-1.dll") != nullptr;
    if (registered) __register_frame(unwind_tables(library));
}

void take_tables_back(HANDLE library) {
    if (registered) __deregister_frame(unwind_tables(library));
}

#else

// On this processor the system itself finds the tables.
void register_tables(HANDLE) {}
void take_tables_back(HANDLE) {}

#endif

}  // namespace

// The image's entry point. It wraps the run-time's own, whose start-up does not preserve the last
// error.
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
