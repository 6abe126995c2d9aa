#ifndef QUILLON_ITEMLIST_H
#define QUILLON_ITEMLIST_H

// The ordered item list of a collection: chunks of hooks, so that inserting in the middle of a million items moves a
// few hundred pointers, and position labels that grow along the list, so that an item's position is found by binary
// search and two items' order by comparing labels.

#include <QtGlobal>

#include <vector>

struct CItemHook;

class ItemList
{
public:
    qsizetype size() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }

    CItemHook *at(qsizetype pos) const;
    /// Inserts before `pos` (pos == size() appends) and labels the hook.
    void insert(qsizetype pos, CItemHook *hook);
    void append(CItemHook *hook);
    CItemHook *takeAt(qsizetype pos);
    /// Position of a hook of this list, found through its label; -1 when it is not in the list.
    qsizetype positionOf(const CItemHook *hook) const;
    /// Takes every hook out, in list order.
    std::vector<CItemHook *> takeAll();

    template<typename F>
    void forEach(F &&f) const
    {
        for (const auto &chunk : m_chunks) {
            for (CItemHook *hook : chunk) {
                f(hook);
            }
        }
    }

    class const_iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = CItemHook *;
        using difference_type = std::ptrdiff_t;
        using pointer = CItemHook *const *;
        using reference = CItemHook *const &;

        const_iterator() = default;
        const_iterator(const std::vector<std::vector<CItemHook *>> *chunks, std::size_t chunk, std::size_t offset)
            : m_chunks(chunks)
            , m_chunk(chunk)
            , m_offset(offset)
        { }
        reference operator*() const { return (*m_chunks)[m_chunk][m_offset]; }
        const_iterator &operator++()
        {
            if (++m_offset == (*m_chunks)[m_chunk].size()) {
                ++m_chunk;
                m_offset = 0;
            }
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator old = *this;
            ++*this;
            return old;
        }
        friend bool operator==(const const_iterator &a, const const_iterator &b)
        {
            return a.m_chunk == b.m_chunk && a.m_offset == b.m_offset;
        }

    private:
        const std::vector<std::vector<CItemHook *>> *m_chunks = nullptr;
        std::size_t m_chunk = 0;
        std::size_t m_offset = 0;
    };

    const std::vector<std::vector<CItemHook *>> &chunks() const { return m_chunks; }

    const_iterator begin() const { return const_iterator(&m_chunks, 0, 0); }
    /// The iterator at a position (size() gives end()).
    const_iterator iteratorAt(qsizetype pos) const;
    const_iterator end() const { return const_iterator(&m_chunks, m_chunks.size(), 0); }

private:
    static constexpr std::size_t kMaxChunk = 1024;
    static constexpr quint64 kGap = quint64(1) << 32;

    // Chunk holding position `pos` and the offset in it.
    std::pair<std::size_t, std::size_t> locate(qsizetype pos) const;
    void rebuildPrefix() const;
    void relabel();

    std::vector<std::vector<CItemHook *>> m_chunks;
    // m_prefix[i] = number of items before chunk i; rebuilt when chunk sizes change.
    mutable std::vector<qsizetype> m_prefix;
    mutable bool m_prefixValid = true;
    qsizetype m_size = 0;
};

#endif
