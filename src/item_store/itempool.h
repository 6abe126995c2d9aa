#ifndef QUILLON_ITEMPOOL_H
#define QUILLON_ITEMPOOL_H

// Fixed-size blocks for the objects that a collection holds by the million (items with their reference counts,
// list hooks). They come from large mappings that the kernel may back with huge pages, so loading a million items
// takes a few hundred page faults instead of a few hundred thousand. Freed blocks are kept for reuse.

#include <cstddef>
#include <new>

namespace ItemPool {

void *allocate(std::size_t size);
void deallocate(void *block, std::size_t size) noexcept;

template<typename T>
struct Allocator
{
    using value_type = T;

    Allocator() = default;
    template<typename U>
    Allocator(const Allocator<U> &) noexcept
    { }

    T *allocate(std::size_t n)
    {
        if (n != 1) {
            return static_cast<T *>(::operator new(n * sizeof(T)));
        }
        return static_cast<T *>(ItemPool::allocate(sizeof(T)));
    }
    void deallocate(T *p, std::size_t n) noexcept
    {
        if (n != 1) {
            ::operator delete(p);
            return;
        }
        ItemPool::deallocate(p, sizeof(T));
    }

    template<typename U>
    friend bool operator==(const Allocator &, const Allocator<U> &) noexcept
    {
        return true;
    }
};

} // namespace ItemPool

#endif
