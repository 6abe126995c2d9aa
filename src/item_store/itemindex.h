#ifndef QUILLON_ITEMINDEX_H
#define QUILLON_ITEMINDEX_H

// Hash look-ups of a collection by the fields it searches (id, number, name, tags, order number), each built on its
// first use. A key held by several items keeps them in list order (by label), so the first one is what a scan of
// the list from the front would find.

#include <QHash>
#include <QString>

#include <vector>

struct CItemHook;
class ItemList;

class ItemIndex
{
public:
    enum Key { ID, ItemNo, ItemName, Tag1, Tag2, Tag3, OrderByID, KeyCount };

    /// The key that a T_Item column feeds, or -1.
    static int keyOfColumn(int column);

    void clear();
    /// Adds a hook to every built look-up (or, with `key`, to that one only).
    void insert(CItemHook *hook);
    void insert(int key, CItemHook *hook);
    void remove(CItemHook *hook);
    void remove(int key, CItemHook *hook);

    CItemHook *findInt(Key key, qint32 value, const ItemList &list);
    CItemHook *findText(Key key, const QString &value, const ItemList &list);

private:
    template<typename K>
    struct Table
    {
        QHash<K, CItemHook *> first;
        QHash<K, std::vector<CItemHook *>> rest;
        bool built = false;

        void insert(const K &key, CItemHook *hook);
        void remove(const K &key, CItemHook *hook);
        void clear()
        {
            first.clear();
            rest.clear();
            built = false;
        }
    };

    static qint32 intKey(Key key, const CItemHook *hook);
    void build(Key key, const ItemList &list);

    Table<qint32> m_ints[KeyCount];
    Table<QString> m_texts[KeyCount];
};

#endif
