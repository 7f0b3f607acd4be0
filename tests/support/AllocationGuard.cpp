#include "AllocationGuard.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace kyntest_support {

namespace {

const char* currentContext = nullptr;

void* allocateOrNull(std::size_t size) noexcept {
    if (size > kAllocationLimit) {
        std::fprintf(stderr, "refused an allocation of %zu bytes while examining %s\n", size,
                     currentContext != nullptr ? currentContext : "no damaged file");
        std::abort();
    }
    return std::malloc(size != 0 ? size : 1);
}

void* allocate(std::size_t size) {
    if (void* block = allocateOrNull(size)) return block;
    throw std::bad_alloc();
}

}  // namespace

void setAllocationContext(const char* what) {
    currentContext = what;
}

}  // namespace kyntest_support

void* operator new(std::size_t size) {
    return kyntest_support::allocate(size);
}
void* operator new[](std::size_t size) {
    return kyntest_support::allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return kyntest_support::allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return kyntest_support::allocateOrNull(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
