#include "dberror.h"

DbError::DbError(const QString &message)
    : std::runtime_error(message.toStdString())
    , m_message(message)
{ }
