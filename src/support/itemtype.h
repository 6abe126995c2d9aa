#ifndef QUILLON_ITEMTYPE_H
#define QUILLON_ITEMTYPE_H

#include <QtGlobal>

/**
 * The item-type number F_ItemTypeID that tells the twelve kinds of master data in T_Item apart. Only these
 * twelve; values outside 1..12 are not item types.
 */
enum class ItemType : qint16 {
    Client = 1,
    Unit = 2,
    GoodsType = 3,
    Goods = 4,
    Stock = 5,
    Department = 6,
    Option = 7,
    ClientType = 8,
    Area = 9,
    UserRight = 10,
    MaterialReceiver = 11,
    SoftwareUserInfo = 12,
};

/// The number stored in F_ItemTypeID.
constexpr int itemTypeNumber(ItemType type)
{
    return int(type);
}

/// Whether `number` is one of the twelve item types.
constexpr bool isItemTypeNumber(int number)
{
    return number >= itemTypeNumber(ItemType::Client) && number <= itemTypeNumber(ItemType::SoftwareUserInfo);
}

/// Compares a stored item-type number with a kind.
constexpr bool operator==(int number, ItemType type)
{
    return number == itemTypeNumber(type);
}

#endif
