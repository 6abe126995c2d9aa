#include "textsearchindex.h"

#include "citem.h"
#include "itemhook.h"

#include <algorithm>
#include <array>
#include <bit>
#include <exception>
#include <limits>
#include <system_error>
#include <thread>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr qsizetype kNone = std::numeric_limits<qsizetype>::max();
// Below this many items to read, a second thread costs more than it saves.
constexpr qsizetype kParallelItems = 64 * TextSearchIndex::kChunk;

// Calls `f` for `count` items from `it` on. The items live all over the heap, behind a hook and two more pointers:
// the walk asks for each level a few items ahead, so that the reads overlap instead of waiting one after another.
template<typename F>
void walkItems(ItemList::const_iterator it, qsizetype count, F &&f)
{
    constexpr qsizetype kRing = 32; // the hook 32 items ahead, then the item's stages at 24, 16 and 8
    std::array<const CItemHook *, kRing> ring {};
    qsizetype fetched = 0;
    auto fetchOne = [&] {
        const CItemHook *hook = *it;
        ++it;
        __builtin_prefetch(hook);
        ring[std::size_t(fetched % kRing)] = hook;
        ++fetched;
    };
    while (fetched < count && fetched < kRing) {
        fetchOne();
    }
    for (qsizetype i = 0; i < count; ++i) {
        if (i + 24 < fetched) {
            ring[std::size_t((i + 24) % kRing)]->item->prefetch(0);
        }
        if (i + 16 < fetched) {
            ring[std::size_t((i + 16) % kRing)]->item->prefetch(1);
        }
        if (i + 8 < fetched) {
            ring[std::size_t((i + 8) % kRing)]->item->prefetch(2);
        }
        f(*ring[std::size_t(i % kRing)]->item);
        if (fetched < count) {
            fetchOne();
        }
    }
}

} // namespace

// One thread's buffers for the chunk it reads, kept from chunk to chunk.
struct TextSearchIndex::Scratch
{
    // The folded texts of a field, text[f][0, used[f]), grown without filling.
    std::vector<char16_t> text[3];
    std::size_t used[3] = {};
    std::vector<quint32> starts[3];

    char16_t *append(int f, std::size_t n)
    {
        std::vector<char16_t> &buffer = text[f];
        if (used[f] + n > buffer.size()) {
            buffer.resize(std::max(buffer.size() * 2, used[f] + n + 4096));
        }
        char16_t *at = buffer.data() + used[f];
        used[f] += n;
        return at;
    }
};

// One pattern of a query, prepared for the scan, with what the scan of the current chunk found so far.
struct TextSearchIndex::Term
{
    int field = 0;
    const ItemTextQuery::Pattern *pattern = nullptr;
    qsizetype size = 0;
    // A unit that no regular text holds (0).
    bool impossible = false;
    // A unit that needs 16 bits, which an 8-bit chunk does not hold.
    bool wideOnly = false;
    // Two positions holding single units, which the scan compares many at a time before looking at the rest;
    // -1 when every position is a class.
    qsizetype probeA = -1;
    qsizetype probeB = -1;
    char16_t unitA = 0;
    char16_t unitB = 0;
    // A pattern of classes only is found by shift-and: for every unit, the positions whose class holds it (one bit
    // each), in the narrowest of these that fits (none beyond 64 positions).
    std::vector<quint8> shift8;
    std::vector<quint16> shift16;
    std::vector<quint32> shift32;
    std::vector<quint64> shift64;
    // The last scan of the chunk: from item `from` on, the first item with an occurrence is `hit` (kNone: none).
    qsizetype from = kNone;
    qsizetype hit = kNone;
};

struct TextSearchIndex::Search
{
    const ItemTextQuery *query = nullptr;
    const ItemList *list = nullptr;
    std::vector<std::vector<Term>> clauses;
    qsizetype base = 0;
};

namespace {

template<typename U>
bool matchesAt(const U *text, qsizetype at, const ItemTextQuery::Pattern &pattern, qsizetype size)
{
    for (qsizetype k = 0; k < size; ++k) {
        const U unit = text[at + k];
        const ItemTextQuery::UnitClass *units = pattern.unitClass(k);
        if (units ? !units->contains(unit) : unit != pattern.unit(k)) {
            return false;
        }
    }
    return true;
}

#if defined(__SSE2__)
template<typename U>
__m128i splat(U unit)
{
    if constexpr (sizeof(U) == 1) {
        return _mm_set1_epi8(char(unit));
    } else {
        return _mm_set1_epi16(short(unit));
    }
}

template<typename U>
__m128i equal(__m128i a, __m128i b)
{
    if constexpr (sizeof(U) == 1) {
        return _mm_cmpeq_epi8(a, b);
    } else {
        return _mm_cmpeq_epi16(a, b);
    }
}
#endif

// Shift-and over [from, end): bit k of the state says that the last k + 1 units match the first k + 1 positions. No
// class holds 0, so a match never spans two texts. The first match to end is the first to start (all are as long).
// Each step waits for the one before; two halves of the range are walked side by side, so that the processor
// works on both at once. The first half goes on for size - 1 units into the second, for the matches across.
template<typename T, typename U>
qsizetype shiftAnd(const U *text, qsizetype from, qsizetype end, const T *table, qsizetype size)
{
    const T top = T(T(1) << (size - 1));
    const qsizetype mid = from + (end - from) / 2;
    const qsizetype endA = std::min(end, mid + size - 1);
    T a = 0;
    T b = 0;
    qsizetype atA = from;
    qsizetype atB = mid;
    qsizetype foundB = -1;
    for (; atA < endA && atB < end; ++atA, ++atB) {
        a = T(T(a << 1) | 1) & table[text[atA]];
        b = T(T(b << 1) | 1) & table[text[atB]];
        if ((a | b) & top) {
            if (a & top) {
                return atA - size + 1;
            }
            foundB = atB - size + 1;
            ++atA;
            break;
        }
    }
    for (; atA < endA; ++atA) {
        a = T(T(a << 1) | 1) & table[text[atA]];
        if (a & top) {
            return atA - size + 1;
        }
    }
    if (foundB >= 0) {
        return foundB;
    }
    for (; atB < end; ++atB) {
        b = T(T(b << 1) | 1) & table[text[atB]];
        if (b & top) {
            return atB - size + 1;
        }
    }
    return -1;
}

// The first offset in [from, end - size] where the term's pattern occurs in `text`, or -1.
template<typename U>
qsizetype findIn(const U *text, qsizetype from, qsizetype end, const TextSearchIndex::Term &term)
{
    const ItemTextQuery::Pattern &pattern = *term.pattern;
    const qsizetype size = term.size;
    const qsizetype last = end - size;
    qsizetype at = from;
    if (term.probeB < 0) {
        if (!term.shift8.empty()) {
            return shiftAnd(text, from, end, term.shift8.data(), size);
        }
        if (!term.shift16.empty()) {
            return shiftAnd(text, from, end, term.shift16.data(), size);
        }
        if (!term.shift32.empty()) {
            return shiftAnd(text, from, end, term.shift32.data(), size);
        }
        if (!term.shift64.empty()) {
            return shiftAnd(text, from, end, term.shift64.data(), size);
        }
        const ItemTextQuery::UnitClass &first = *pattern.unitClass(0);
        for (; at <= last; ++at) {
            if (first.contains(text[at]) && matchesAt(text, at, pattern, size)) {
                return at;
            }
        }
        return -1;
    }
    const U a = U(term.unitA);
    const U b = U(term.unitB);
    const U *pa = text + term.probeA;
    const U *pb = text + term.probeB;
#if defined(__SSE2__)
    // The probes of 16 bytes of starting points at once; the loads end at `last + probeB`, inside the range.
    constexpr qsizetype kLanes = qsizetype(16 / sizeof(U));
    const __m128i va = splat<U>(a);
    const __m128i vb = splat<U>(b);
    for (; at + kLanes - 1 <= last; at += kLanes) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pa + at));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pb + at));
        unsigned mask = unsigned(_mm_movemask_epi8(_mm_and_si128(equal<U>(x, va), equal<U>(y, vb))));
        if constexpr (sizeof(U) == 2) {
            mask &= 0x5555u;
        }
        while (mask) {
            const qsizetype lane = qsizetype(std::countr_zero(mask)) / qsizetype(sizeof(U));
            if (matchesAt(text, at + lane, pattern, size)) {
                return at + lane;
            }
            mask &= mask - 1;
        }
    }
#endif
    for (; at <= last; ++at) {
        if (pa[at] == a && pb[at] == b && matchesAt(text, at, pattern, size)) {
            return at;
        }
    }
    return -1;
}

// For every unit, the positions of the pattern (all classes) whose class holds it.
template<typename T>
void shiftTable(std::vector<T> &table, const ItemTextQuery::Pattern &pattern)
{
    table.assign(65536, 0);
    for (qsizetype k = 0; k < pattern.size(); ++k) {
        const T bit = T(T(1) << k);
        const ItemTextQuery::UnitClass &units = *pattern.unitClass(k);
        for (std::uint32_t unit = 0; unit < 65536; unit += 64) {
            if (!units.word(unit)) {
                continue;
            }
            for (std::uint32_t u = unit; u < unit + 64; ++u) {
                if (units.contains(char16_t(u))) {
                    table[u] |= bit;
                }
            }
        }
    }
}

} // namespace

void TextSearchIndex::cleared()
{
    m_chunks.clear();
    m_prefix.clear();
    m_prefixValid = true;
    m_size = 0;
}

void TextSearchIndex::rebuildPrefix() const
{
    m_prefix.resize(m_chunks.size());
    qsizetype before = 0;
    for (std::size_t i = 0; i < m_chunks.size(); ++i) {
        m_prefix[i] = before;
        before += m_chunks[i].count;
    }
    m_prefixValid = true;
}

std::size_t TextSearchIndex::chunkAt(qsizetype pos) const
{
    if (!m_prefixValid) {
        rebuildPrefix();
    }
    const auto it = std::upper_bound(m_prefix.begin(), m_prefix.end(), pos);
    return std::size_t(it - m_prefix.begin()) - 1;
}

void TextSearchIndex::inserted(qsizetype pos)
{
    if (!m_tracking) {
        return;
    }
    if (pos >= m_size) {
        // Appending (a load appends every item) fills the last chunk and then starts a new one.
        if (m_chunks.empty() || m_chunks.back().count >= kChunk) {
            if (m_prefixValid) {
                m_prefix.push_back(m_size);
            }
            m_chunks.emplace_back();
        }
        Chunk &last = m_chunks.back();
        ++last.count;
        last.dirty = true;
        ++m_size;
        return;
    }
    Chunk &chunk = m_chunks[chunkAt(std::max<qsizetype>(pos, 0))];
    ++chunk.count;
    chunk.dirty = true;
    ++m_size;
    m_prefixValid = false;
}

void TextSearchIndex::removed(qsizetype pos)
{
    if (!m_tracking || pos < 0 || pos >= m_size) {
        return;
    }
    const std::size_t at = chunkAt(pos);
    Chunk &chunk = m_chunks[at];
    --chunk.count;
    chunk.dirty = true;
    if (chunk.count == 0) {
        m_chunks.erase(m_chunks.begin() + std::ptrdiff_t(at));
    }
    --m_size;
    m_prefixValid = false;
}

void TextSearchIndex::changed(qsizetype pos)
{
    if (!m_tracking || pos < 0 || pos >= m_size) {
        return;
    }
    m_chunks[chunkAt(pos)].dirty = true;
}

void TextSearchIndex::build(Chunk &chunk, ItemList::const_iterator it, Scratch &scratch)
{
    const char16_t *table = foldTable();
    char16_t seen[3] = {};
    for (int f = 0; f < 3; ++f) {
        scratch.used[f] = 0;
        scratch.starts[f].clear();
    }
    chunk.irregular.clear();
    quint16 index = 0;
    walkItems(it, chunk.count, [&](const CItem &item) {
        const QString *texts[3] = {&item.F_ItemNo(), &item.F_ItemName(), &item.F_Spell()};
        bool irregular = false;
        for (int f = 0; f < 3; ++f) {
            const std::size_t n = std::size_t(texts[f]->size());
            const auto *in = reinterpret_cast<const char16_t *>(texts[f]->constData());
            scratch.starts[f].push_back(quint32(scratch.used[f]));
            char16_t *to = scratch.append(f, n + 1);
            char16_t all = 0;
            bool zero = false;
            for (std::size_t k = 0; k < n; ++k) {
                const char16_t unit = in[k];
                // Numbers and codes are ASCII, which folds without the table.
                const char16_t folded =
                    unit < 0x80 ? (unsigned(unit - u'A') < 26u ? char16_t(unit + 32) : unit) : table[unit];
                zero |= folded == 0;
                all |= folded;
                to[k] = folded;
            }
            to[n] = 0;
            seen[f] |= all;
            irregular |= zero;
        }
        if (irregular) {
            chunk.irregular.push_back(index);
        }
        ++index;
    });
    chunk.irregular.shrink_to_fit();
    for (int f = 0; f < 3; ++f) {
        FieldText &field = chunk.fields[f];
        const char16_t *text = scratch.text[f].data();
        const std::size_t size = scratch.used[f];
        scratch.starts[f].push_back(quint32(size));
        field.starts.assign(scratch.starts[f].begin(), scratch.starts[f].end());
        field.isWide = seen[f] >= 0x100;
        if (field.isWide) {
            field.wide.assign(text, text + size);
            std::vector<quint8>().swap(field.narrow);
        } else {
            field.narrow.assign(text, text + size);
            std::vector<char16_t>().swap(field.wide);
        }
    }
    chunk.dirty = false;
}

bool TextSearchIndex::update(const ItemList &list, qsizetype budget)
{
    if (m_tracking && m_size != list.size()) {
        // Cannot happen while every change is reported; should it, the index starts over rather than mislead.
        Q_ASSERT_X(false, "TextSearchIndex", "the index lost track of the list");
        m_tracking = false;
    }
    if (!m_tracking) {
        m_tracking = true;
        m_chunks.clear();
        m_size = list.size();
        for (qsizetype at = 0; at < m_size; at += kChunk) {
            m_chunks.emplace_back().count = std::min(kChunk, m_size - at);
        }
        m_prefixValid = false;
    }
    // A chunk that grew by insertions is read again as several.
    if (std::any_of(m_chunks.begin(), m_chunks.end(), [](const Chunk &c) { return c.count > kChunk; })) {
        std::vector<Chunk> chunks;
        chunks.reserve(m_chunks.size() + 16);
        for (Chunk &chunk : m_chunks) {
            if (chunk.count <= kChunk) {
                chunks.push_back(std::move(chunk));
                continue;
            }
            for (qsizetype left = chunk.count; left > 0; left -= kChunk) {
                chunks.emplace_back().count = std::min(kChunk, left);
            }
        }
        m_chunks = std::move(chunks);
        m_prefixValid = false;
    }
    if (!m_prefixValid) {
        rebuildPrefix();
    }
    // The changed chunks, as many as the budget allows (at least one).
    std::vector<std::size_t> dirty;
    qsizetype dirtyItems = 0;
    bool complete = true;
    for (std::size_t i = 0; i < m_chunks.size(); ++i) {
        if (!m_chunks[i].dirty) {
            continue;
        }
        if (budget > 0 && !dirty.empty() && dirtyItems + m_chunks[i].count > budget) {
            complete = false;
            break;
        }
        dirty.push_back(i);
        dirtyItems += m_chunks[i].count;
    }
    if (dirty.empty()) {
        return true;
    }
    std::vector<ItemList::const_iterator> starts;
    starts.reserve(dirty.size());
    for (std::size_t i : dirty) {
        starts.push_back(list.iteratorAt(m_prefix[i]));
    }
    auto work = [&](std::size_t from, std::size_t to) {
        Scratch scratch;
        for (std::size_t k = from; k < to; ++k) {
            build(m_chunks[dirty[k]], starts[k], scratch);
        }
    };
    // Many chunks to read (the first search, a reload): the items are read by two threads, each filling its own
    // chunks. The list and the items are only read meanwhile.
    std::size_t half = dirty.size();
    std::thread helper;
    std::exception_ptr failure;
    if (dirtyItems >= kParallelItems && std::thread::hardware_concurrency() > 1) {
        half = 0;
        for (qsizetype items = 0; half < dirty.size() && items < dirtyItems / 2; ++half) {
            items += m_chunks[dirty[half]].count;
        }
        try {
            helper = std::thread([&] {
                try {
                    work(half, dirty.size());
                } catch (...) {
                    failure = std::current_exception();
                }
            });
        } catch (const std::system_error &) {
            // No thread to be had: one does it all.
        }
    }
    try {
        work(0, half);
    } catch (...) {
        if (helper.joinable()) {
            helper.join();
        }
        throw;
    }
    if (helper.joinable()) {
        helper.join();
    } else if (half < dirty.size()) {
        work(half, dirty.size());
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    return complete;
}

qsizetype TextSearchIndex::findInChunk(Search &search, std::size_t chunkIndex, qsizetype lo, qsizetype hi) const
{
    const Chunk &chunk = m_chunks[chunkIndex];
    for (auto &clause : search.clauses) {
        for (Term &term : clause) {
            term.from = kNone;
            term.hit = kNone;
        }
    }
    // The first item from `i` on where one pattern of every clause occurs (or kNone).
    auto termNext = [&](Term &term, qsizetype i) -> qsizetype {
        if (term.impossible) {
            return kNone;
        }
        if (term.size == 0) {
            return i;
        }
        if (term.from <= i && i <= term.hit) {
            return term.hit;
        }
        const FieldText &field = chunk.fields[term.field];
        const qsizetype begin = field.starts[std::size_t(i)];
        const qsizetype end = field.starts[std::size_t(hi + 1)];
        qsizetype at = -1;
        if (field.isWide) {
            at = findIn(field.wide.data(), begin, end, term);
        } else if (!term.wideOnly) {
            at = findIn(field.narrow.data(), begin, end, term);
        }
        term.from = i;
        if (at < 0) {
            term.hit = kNone;
        } else {
            const auto starts = field.starts.begin();
            term.hit = qsizetype(std::upper_bound(starts + i, starts + hi + 2, quint32(at)) - starts) - 1;
        }
        return term.hit;
    };
    auto candidate = [&](qsizetype i) -> qsizetype {
        for (;;) {
            bool moved = false;
            for (auto &clause : search.clauses) {
                qsizetype next = kNone;
                for (Term &term : clause) {
                    next = std::min(next, termNext(term, i));
                }
                if (next == kNone) {
                    return kNone;
                }
                if (next > i) {
                    i = next;
                    moved = true;
                }
            }
            if (!moved) {
                return i;
            }
        }
    };
    auto irregular = std::lower_bound(chunk.irregular.begin(), chunk.irregular.end(), lo);
    for (qsizetype i = lo; i <= hi;) {
        const qsizetype found = candidate(i);
        while (irregular != chunk.irregular.end() && *irregular < i) {
            ++irregular;
        }
        const qsizetype next =
            std::min(found, irregular != chunk.irregular.end() && *irregular <= hi ? qsizetype(*irregular) : kNone);
        if (next == kNone) {
            return -1;
        }
        if (search.query->accepts(*search.list->at(search.base + next)->item)) {
            return next;
        }
        i = next + 1;
    }
    return -1;
}

qsizetype TextSearchIndex::find(const ItemTextQuery &query, qsizetype first, qsizetype last, const ItemList &list)
{
    update(list);
    first = std::max<qsizetype>(first, 0);
    last = std::min(last, m_size - 1);
    if (first > last) {
        return -1;
    }
    Search search;
    search.query = &query;
    search.list = &list;
    for (const auto &anyOf : query.clauses()) {
        std::vector<Term> &terms = search.clauses.emplace_back();
        for (const auto &[field, pattern] : anyOf) {
            Term &term = terms.emplace_back();
            term.field = int(field);
            term.pattern = &pattern;
            term.size = pattern.size();
            for (qsizetype k = 0; k < term.size; ++k) {
                if (pattern.unitClass(k)) {
                    continue;
                }
                const char16_t unit = pattern.unit(k);
                term.impossible |= unit == 0;
                term.wideOnly |= unit >= 0x100;
                term.probeB = k;
            }
            if (term.probeB >= 0) {
                // The other probe: the last single unit that differs from it, else the first single unit (two
                // equal units apart are still rarer than one).
                term.unitB = pattern.unit(term.probeB);
                term.probeA = term.probeB;
                bool differs = false;
                for (qsizetype k = term.probeB - 1; k >= 0 && !differs; --k) {
                    if (!pattern.unitClass(k)) {
                        differs = pattern.unit(k) != term.unitB;
                        term.probeA = k;
                    }
                }
                if (!differs) {
                    term.probeA = term.probeB;
                    for (qsizetype k = 0; k < term.probeB; ++k) {
                        if (!pattern.unitClass(k)) {
                            term.probeA = k;
                            break;
                        }
                    }
                }
                term.unitA = pattern.unit(term.probeA);
            } else if (term.size > 0 && term.size <= 64) {
                if (term.size <= 8) {
                    shiftTable(term.shift8, pattern);
                } else if (term.size <= 16) {
                    shiftTable(term.shift16, pattern);
                } else if (term.size <= 32) {
                    shiftTable(term.shift32, pattern);
                } else {
                    shiftTable(term.shift64, pattern);
                }
            }
        }
    }
    std::size_t chunk = chunkAt(first);
    for (qsizetype base = m_prefix[chunk]; chunk < m_chunks.size() && base <= last; base += m_chunks[chunk++].count) {
        search.base = base;
        const qsizetype lo = std::max<qsizetype>(first - base, 0);
        const qsizetype hi = std::min(last - base, m_chunks[chunk].count - 1);
        const qsizetype found = findInChunk(search, chunk, lo, hi);
        if (found >= 0) {
            return base + found;
        }
    }
    return -1;
}

std::size_t TextSearchIndex::bytes() const
{
    std::size_t total = sizeof(*this) + m_chunks.capacity() * sizeof(Chunk) + m_prefix.capacity() * sizeof(qsizetype);
    for (const Chunk &chunk : m_chunks) {
        for (const FieldText &field : chunk.fields) {
            total += field.narrow.capacity() + field.wide.capacity() * sizeof(char16_t)
                + field.starts.capacity() * sizeof(quint32);
        }
        total += chunk.irregular.capacity() * sizeof(quint16);
    }
    return total;
}
