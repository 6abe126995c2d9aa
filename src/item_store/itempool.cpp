#include "itempool.h"

#include <sys/mman.h>

#include <cstdint>
#include <mutex>

namespace ItemPool {

#if defined(__SANITIZE_ADDRESS__)
// Under AddressSanitizer every block comes from the checked heap, so that misuse of an item is caught.
void *allocate(std::size_t size)
{
    return ::operator new(size);
}

void deallocate(void *block, std::size_t) noexcept
{
    ::operator delete(block);
}
#else
namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kLargest = 1024;
constexpr std::size_t kHugePage = std::size_t(2) << 20;
constexpr std::size_t kMapping = 8 * kHugePage;

struct FreeBlock
{
    FreeBlock *next;
};

struct SizeClass
{
    FreeBlock *free = nullptr;
    char *bump = nullptr;
    char *end = nullptr;
};

std::mutex s_mutex;
SizeClass s_classes[kLargest / kGranule + 1];

bool refill(SizeClass &cls)
{
    // Over-map by one huge page so that the usable range can start on a huge-page boundary.
    void *raw = mmap(nullptr, kMapping + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) {
        return false;
    }
    auto start = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
    if (aligned > start) {
        munmap(raw, aligned - start);
    }
    const std::uintptr_t tail = aligned + kMapping;
    const std::uintptr_t rawEnd = start + kMapping + kHugePage;
    if (rawEnd > tail) {
        munmap(reinterpret_cast<void *>(tail), rawEnd - tail);
    }
    madvise(reinterpret_cast<void *>(aligned), kMapping, MADV_HUGEPAGE);
    cls.bump = reinterpret_cast<char *>(aligned);
    cls.end = cls.bump + kMapping;
    return true;
}

} // namespace

void *allocate(std::size_t size)
{
    const std::size_t rounded = (size + kGranule - 1) / kGranule * kGranule;
    if (rounded > kLargest) {
        return ::operator new(size);
    }
    std::lock_guard lock(s_mutex);
    SizeClass &cls = s_classes[rounded / kGranule];
    if (cls.free) {
        FreeBlock *block = cls.free;
        cls.free = block->next;
        return block;
    }
    if (cls.bump + rounded > cls.end && !refill(cls)) {
        throw std::bad_alloc();
    }
    void *block = cls.bump;
    cls.bump += rounded;
    return block;
}

void deallocate(void *block, std::size_t size) noexcept
{
    if (!block) {
        return;
    }
    const std::size_t rounded = (size + kGranule - 1) / kGranule * kGranule;
    if (rounded > kLargest) {
        ::operator delete(block);
        return;
    }
    std::lock_guard lock(s_mutex);
    SizeClass &cls = s_classes[rounded / kGranule];
    auto *freed = static_cast<FreeBlock *>(block);
    freed->next = cls.free;
    cls.free = freed;
}
#endif

} // namespace ItemPool
