#include "Platform/State/test/AllocationCount.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

Vela::AllocationCount count;

} // namespace

namespace Vela {

AllocationCount AllocationCount::now() noexcept {
    return count;
}

} // namespace Vela

// All that the standard library might pair with one another: sanitizers bring their own.
void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
    void* memory = std::malloc(bytes);
    ++count.allocations;
    count.liveBytes += malloc_usable_size(memory);
    return memory;
}

void* operator new(size_t bytes) {
    if (void* memory = ::operator new(bytes, std::nothrow)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new[](size_t bytes) {
    return ::operator new(bytes);
}

void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
    return ::operator new(bytes, std::nothrow);
}

void operator delete(void* memory) noexcept {
    count.liveBytes -= malloc_usable_size(memory);
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    ::operator delete(memory);
}

void operator delete[](void* memory) noexcept {
    ::operator delete(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    ::operator delete(memory);
}
