// The call is made in assembler, because a compiler relies on the convention that it is told.

#include "platform/calling_convention.h"

namespace brenik::platform {

#if defined(__i386__)

// ESI keeps the stack pointer from before the arguments, EDI that from before the call. Every
// convention leaves both as they are.
std::optional<std::size_t> bytes_removed(DynamicLibrary::Function function,
                                         std::span<const std::uintptr_t> arguments) noexcept {
    std::uintptr_t removed = arguments.size();
    const std::uintptr_t* words = arguments.data();
    asm volatile(
        "movl %%esp, %%esi\n\t"
        "leal (,%%ecx,4), %%edi\n\t"  // aligns the stack pointer once the arguments are pushed
        "subl %%edi, %%esp\n\t"
        "andl $-16, %%esp\n\t"
        "addl %%edi, %%esp\n\t"
        "1: testl %%ecx, %%ecx\n\t"
        "jz 2f\n\t"
        "pushl -4(%%edx,%%ecx,4)\n\t"
        "decl %%ecx\n\t"
        "jmp 1b\n\t"
        "2: movl %%esp, %%edi\n\t"
        "call *%%eax\n\t"
        "movl %%esp, %%ecx\n\t"
        "subl %%edi, %%ecx\n\t"
        "movl %%esi, %%esp\n\t"
        : "+c"(removed), "+a"(function), "+d"(words)
        :
        : "esi", "edi", "memory", "cc");
    return removed;
}

#else

std::optional<std::size_t> bytes_removed(DynamicLibrary::Function,
                                         std::span<const std::uintptr_t>) noexcept {
    return std::nullopt;
}

#endif

}  // namespace brenik::platform
