#include "support/failing_memory.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

bool Fails() noexcept {
    memory::Plan& plan = memory::plan;
    if (plan.allocation != 1) {
        plan.allocation -= plan.allocation > 1 ? 1 : 0;
        return false;
    }
    plan.allocation = plan.stays ? 1 : 0;
    ++plan.failed;
    errno = ENOMEM;
    return true;
}

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = Fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

extern "C" {

// Not by way of malloc, or a compiler makes a call of calloc, and so of this function, of it.
void* calloc(std::size_t count, std::size_t size) noexcept {
    void* memory = nullptr;
    if (Fails() || posix_memalign(&memory, 16, count * size) != 0) {
        return nullptr;
    }
    return std::memset(memory, 0, count * size);
}

char* strdup(const char* text) noexcept {
    const std::size_t size = std::strlen(text) + 1;
    char* const copy = Fails() ? nullptr : static_cast<char*>(std::malloc(size));
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}

int vasprintf(char** text, const char* format, va_list arguments) noexcept {
    const auto real = reinterpret_cast<decltype(vasprintf)*>(dlsym(RTLD_NEXT, "vasprintf"));
    return Fails() ? -1 : real(text, format, arguments);
}

// What hardened code calls in its place.
int __vasprintf_chk(char** text, int /*flag*/, const char* format, va_list arguments) noexcept {
    return vasprintf(text, format, arguments);
}

}  // extern "C"
