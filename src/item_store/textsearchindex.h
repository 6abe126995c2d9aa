#ifndef QUILLON_TEXTSEARCHINDEX_H
#define QUILLON_TEXTSEARCHINDEX_H

// The text index behind CItems::FindText: the numbers, names and mnemonic codes of a collection's list, folded unit
// by unit (ItemTextQuery::fold), in list order, packed per field into one array per chunk of about a thousand items,
// so that a search reads a few contiguous arrays instead of following pointers into every item.
//
// It follows the list by position: an insertion, removal or change of a searched field marks its chunk, and the
// marked chunks are read again from the list before the next search. It is made on first use; until then the
// notices cost nothing.

#include "itemlist.h"
#include "itemtextquery.h"

#include <QtGlobal>

#include <cstddef>
#include <vector>

class TextSearchIndex
{
public:
    /// ItemTextQuery::fold for every unit.
    static const char16_t *foldTable();

    bool isTracking() const { return m_tracking; }

    // The list's changes, by 0-based position (ignored until the index is first used).
    void cleared();
    void inserted(qsizetype pos);
    void removed(qsizetype pos);
    /// The number, name or mnemonic code of the item at `pos` changed.
    void changed(qsizetype pos);

    /// Makes the index, or reads the changed chunks again; with a `budget`, about that many items at most (whole
    /// chunks, at least one). Returns whether the index is up to date.
    bool update(const ItemList &list, qsizetype budget = 0);
    /// The first position in [first, last] whose item the query finds, or -1.
    qsizetype find(const ItemTextQuery &query, qsizetype first, qsizetype last, const ItemList &list);
    /// The memory the index holds, in bytes.
    std::size_t bytes() const;

    /// Items per chunk when the index makes or splits one.
    static constexpr qsizetype kChunk = 1024;

private:
    struct FieldText
    {
        // Each item's folded text followed by a 0, in one of the two widths: 8 bits when every unit of the chunk's
        // field fits.
        std::vector<quint8> narrow;
        std::vector<char16_t> wide;
        // Where each item's text starts; one more at the end.
        std::vector<quint32> starts;
        bool isWide = false;
    };

    struct Chunk
    {
        qsizetype count = 0;
        bool dirty = true;
        FieldText fields[3];
        // Items (offsets in the chunk) with an irregular text, which every search looks at in full.
        std::vector<quint16> irregular;
    };

    struct Scratch;
    struct Search;

public:
    struct Term;

private:
    std::size_t chunkAt(qsizetype pos) const;
    void rebuildPrefix() const;
    static void build(Chunk &chunk, ItemList::const_iterator it, Scratch &scratch);
    qsizetype findInChunk(Search &search, std::size_t chunk, qsizetype lo, qsizetype hi) const;

    std::vector<Chunk> m_chunks;
    // m_prefix[i]: items before chunk i.
    mutable std::vector<qsizetype> m_prefix;
    mutable bool m_prefixValid = true;
    qsizetype m_size = 0;
    bool m_tracking = false;
};

#endif
