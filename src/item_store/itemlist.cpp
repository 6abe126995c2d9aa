#include "itemlist.h"

#include "itemhook.h"

#include <algorithm>

void ItemList::rebuildPrefix() const
{
    m_prefix.resize(m_chunks.size());
    qsizetype before = 0;
    for (std::size_t i = 0; i < m_chunks.size(); ++i) {
        m_prefix[i] = before;
        before += qsizetype(m_chunks[i].size());
    }
    m_prefixValid = true;
}

std::pair<std::size_t, std::size_t> ItemList::locate(qsizetype pos) const
{
    if (!m_prefixValid) {
        rebuildPrefix();
    }
    // The last chunk whose first position is at or before pos.
    const auto it = std::upper_bound(m_prefix.begin(), m_prefix.end(), pos);
    const std::size_t chunk = std::size_t(it - m_prefix.begin()) - 1;
    return {chunk, std::size_t(pos - m_prefix[chunk])};
}

CItemHook *ItemList::at(qsizetype pos) const
{
    if (pos < 0 || pos >= m_size) {
        return nullptr;
    }
    const auto [chunk, offset] = locate(pos);
    return m_chunks[chunk][offset];
}

ItemList::const_iterator ItemList::iteratorAt(qsizetype pos) const
{
    if (pos <= 0) {
        return begin();
    }
    if (pos >= m_size) {
        return end();
    }
    const auto [chunk, offset] = locate(pos);
    return const_iterator(&m_chunks, chunk, offset);
}

void ItemList::relabel()
{
    quint64 label = kGap;
    for (auto &chunk : m_chunks) {
        for (CItemHook *hook : chunk) {
            hook->label = label;
            label += kGap;
        }
    }
}

void ItemList::insert(qsizetype pos, CItemHook *hook)
{
    pos = std::clamp<qsizetype>(pos, 0, m_size);
    if (pos == m_size) {
        append(hook);
        return;
    }
    const CItemHook *before = pos > 0 ? at(pos - 1) : nullptr;
    const CItemHook *after = at(pos);
    const quint64 low = before ? before->label : 0;
    if (after->label - low < 2) {
        relabel();
        insert(pos, hook);
        return;
    }
    hook->label = low + (after->label - low) / 2;

    const auto [chunk, offset] = locate(pos);
    auto &target = m_chunks[chunk];
    target.insert(target.begin() + std::ptrdiff_t(offset), hook);
    if (target.size() > kMaxChunk) {
        std::vector<CItemHook *> upper(target.begin() + std::ptrdiff_t(target.size() / 2), target.end());
        target.resize(target.size() / 2);
        m_chunks.insert(m_chunks.begin() + std::ptrdiff_t(chunk) + 1, std::move(upper));
    }
    ++m_size;
    m_prefixValid = false;
}

void ItemList::append(CItemHook *hook)
{
    const quint64 low = m_size > 0 ? m_chunks.back().back()->label : 0;
    if (low > ~quint64(0) - kGap) {
        relabel();
        append(hook);
        return;
    }
    hook->label = low + kGap;
    if (m_chunks.empty() || m_chunks.back().size() >= kMaxChunk) {
        // A new last chunk leaves the counts before the other chunks as they are.
        if (m_prefixValid) {
            m_prefix.push_back(m_size);
        }
        m_chunks.emplace_back();
        m_chunks.back().reserve(kMaxChunk);
    }
    m_chunks.back().push_back(hook);
    ++m_size;
}

CItemHook *ItemList::takeAt(qsizetype pos)
{
    if (pos < 0 || pos >= m_size) {
        return nullptr;
    }
    const auto [chunk, offset] = locate(pos);
    auto &target = m_chunks[chunk];
    CItemHook *hook = target[offset];
    target.erase(target.begin() + std::ptrdiff_t(offset));
    if (target.empty()) {
        m_chunks.erase(m_chunks.begin() + std::ptrdiff_t(chunk));
    }
    --m_size;
    m_prefixValid = false;
    return hook;
}

qsizetype ItemList::positionOf(const CItemHook *hook) const
{
    if (!hook || m_chunks.empty()) {
        return -1;
    }
    // Chunks are in label order: find the first chunk whose last label is not below the hook's.
    const auto chunkIt =
        std::lower_bound(m_chunks.begin(), m_chunks.end(), hook->label,
                         [](const std::vector<CItemHook *> &c, quint64 label) { return c.back()->label < label; });
    if (chunkIt == m_chunks.end()) {
        return -1;
    }
    const auto it = std::lower_bound(chunkIt->begin(), chunkIt->end(), hook->label,
                                     [](const CItemHook *h, quint64 label) { return h->label < label; });
    if (it == chunkIt->end() || *it != hook) {
        return -1;
    }
    if (!m_prefixValid) {
        rebuildPrefix();
    }
    return m_prefix[std::size_t(chunkIt - m_chunks.begin())] + (it - chunkIt->begin());
}

std::vector<CItemHook *> ItemList::takeAll()
{
    std::vector<CItemHook *> all;
    all.reserve(std::size_t(m_size));
    for (auto &chunk : m_chunks) {
        all.insert(all.end(), chunk.begin(), chunk.end());
    }
    m_chunks.clear();
    m_prefix.clear();
    m_prefixValid = true;
    m_size = 0;
    return all;
}
