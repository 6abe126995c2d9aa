#ifndef QUILLON_DBERROR_H
#define QUILLON_DBERROR_H

#include "quillon_export.h"

#include <QString>

#include <stdexcept>

/**
 * A database failure carried from the statement that failed to the operation that traps it. Carries the
 * database's own message only; no error codes.
 */
class QUILLON_EXPORT DbError : public std::runtime_error
{
public:
    explicit DbError(const QString &message);
    QString message() const { return m_message; }

private:
    QString m_message;
};

#endif
