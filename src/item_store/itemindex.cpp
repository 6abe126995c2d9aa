#include "itemindex.h"

#include "itemhook.h"
#include "itemlist.h"

#include <algorithm>

namespace {

bool isTextKey(int key)
{
    return key == ItemIndex::ItemNo || key == ItemIndex::ItemName;
}

bool byLabel(const CItemHook *a, const CItemHook *b)
{
    return a->label < b->label;
}

} // namespace

template<typename K>
void ItemIndex::Table<K>::insert(const K &key, CItemHook *hook)
{
    auto it = first.find(key);
    if (it == first.end()) {
        first.insert(key, hook);
        return;
    }
    std::vector<CItemHook *> &others = rest[key];
    if (hook->label < it.value()->label) {
        others.insert(others.begin(), it.value());
        it.value() = hook;
        return;
    }
    others.insert(std::upper_bound(others.begin(), others.end(), hook, byLabel), hook);
}

template<typename K>
void ItemIndex::Table<K>::remove(const K &key, CItemHook *hook)
{
    auto it = first.find(key);
    if (it == first.end()) {
        return;
    }
    auto restIt = rest.find(key);
    if (it.value() == hook) {
        if (restIt == rest.end()) {
            first.erase(it);
            return;
        }
        it.value() = restIt->front();
        restIt->erase(restIt->begin());
        if (restIt->empty()) {
            rest.erase(restIt);
        }
        return;
    }
    if (restIt == rest.end()) {
        return;
    }
    auto pos = std::lower_bound(restIt->begin(), restIt->end(), hook, byLabel);
    if (pos != restIt->end() && *pos == hook) {
        restIt->erase(pos);
        if (restIt->empty()) {
            rest.erase(restIt);
        }
    }
}

int ItemIndex::keyOfColumn(int column)
{
    switch (column) {
    case 0:
        return ID;
    case 1:
        return ItemNo;
    case 2:
        return ItemName;
    case 16:
        return Tag1;
    case 17:
        return Tag2;
    case 18:
        return Tag3;
    case 23:
        return OrderByID;
    default:
        return -1;
    }
}

qint32 ItemIndex::intKey(Key key, const CItemHook *hook)
{
    const CItem &item = *hook->item;
    switch (key) {
    case ID:
        return item.F_ID();
    case Tag1:
        return item.F_Tag1();
    case Tag2:
        return item.F_Tag2();
    case Tag3:
        return item.F_Tag3();
    case OrderByID:
        return item.F_OrderByID();
    default:
        return 0;
    }
}

void ItemIndex::clear()
{
    for (int k = 0; k < KeyCount; ++k) {
        m_ints[k].clear();
        m_texts[k].clear();
    }
}

void ItemIndex::insert(int key, CItemHook *hook)
{
    if (key < 0 || key >= KeyCount) {
        return;
    }
    if (isTextKey(key)) {
        if (m_texts[key].built) {
            m_texts[key].insert(key == ItemNo ? hook->item->F_ItemNo() : hook->item->F_ItemName(), hook);
        }
    } else if (m_ints[key].built) {
        m_ints[key].insert(intKey(Key(key), hook), hook);
    }
}

void ItemIndex::remove(int key, CItemHook *hook)
{
    if (key < 0 || key >= KeyCount) {
        return;
    }
    if (isTextKey(key)) {
        if (m_texts[key].built) {
            m_texts[key].remove(key == ItemNo ? hook->item->F_ItemNo() : hook->item->F_ItemName(), hook);
        }
    } else if (m_ints[key].built) {
        m_ints[key].remove(intKey(Key(key), hook), hook);
    }
}

void ItemIndex::insert(CItemHook *hook)
{
    for (int k = 0; k < KeyCount; ++k) {
        insert(k, hook);
    }
}

void ItemIndex::remove(CItemHook *hook)
{
    for (int k = 0; k < KeyCount; ++k) {
        remove(k, hook);
    }
}

void ItemIndex::build(Key key, const ItemList &list)
{
    if (isTextKey(key)) {
        Table<QString> &table = m_texts[key];
        table.clear();
        table.first.reserve(list.size());
        table.built = true;
    } else {
        Table<qint32> &table = m_ints[key];
        table.clear();
        table.first.reserve(list.size());
        table.built = true;
    }
    // The list is walked in order, so every key's items arrive in label order.
    list.forEach([&](CItemHook *hook) { insert(key, hook); });
}

CItemHook *ItemIndex::findInt(Key key, qint32 value, const ItemList &list)
{
    if (!m_ints[key].built) {
        build(key, list);
    }
    return m_ints[key].first.value(value, nullptr);
}

CItemHook *ItemIndex::findText(Key key, const QString &value, const ItemList &list)
{
    if (!m_texts[key].built) {
        build(key, list);
    }
    return m_texts[key].first.value(value, nullptr);
}
