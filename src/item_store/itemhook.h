#ifndef QUILLON_ITEMHOOK_H
#define QUILLON_ITEMHOOK_H

// How a collection holds an item: one hook per (item, collection), chained from the item so that changes of the
// looked-up fields reach every collection that indexes them.

#include "citem.h"
#include "itempool.h"

class CItemWatcher;

struct CItemHook
{
    CItemWatcher *watcher = nullptr;
    CItemPtr item;
    // Position label: labels grow along the collection's list, so comparing labels compares list positions.
    quint64 label = 0;
    CItemHook *next = nullptr;
};

class CItemWatcher
{
public:
    virtual ~CItemWatcher() = default;
    virtual void itemKeyAboutToChange(CItemHook *hook, int column) = 0;
    virtual void itemKeyChanged(CItemHook *hook, int column) = 0;

protected:
    static CItemHook *firstHook(const CItem *item) { return item ? item->m_hooks.head : nullptr; }
    static void attach(CItemHook *hook)
    {
        hook->next = hook->item->m_hooks.head;
        hook->item->m_hooks.head = hook;
    }
    static void detach(CItemHook *hook)
    {
        CItemHook **link = &hook->item->m_hooks.head;
        while (*link && *link != hook) {
            link = &(*link)->next;
        }
        if (*link) {
            *link = hook->next;
        }
        hook->next = nullptr;
    }
};

#endif
