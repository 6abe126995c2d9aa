#ifndef QUILLON_DEMODATA_H
#define QUILLON_DEMODATA_H

#include <QString>

#include <memory>

class CConnection;

namespace DemoData {

/// Fills an empty store with a small shop's master data (units, goods types, about 200 goods, client types,
/// areas, clients and suppliers, stocks, departments, material receivers, user rights and the company record).
/// Returns false with `error` set when the store is not empty or a save fails.
bool seed(const std::shared_ptr<CConnection> &connection, QString *error);

} // namespace DemoData

#endif
