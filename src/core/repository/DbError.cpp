#include "core/repository/DbError.h"

namespace dorvane {

DbError::DbError(QString description)
    : m_description(std::move(description)), m_utf8(m_description.toUtf8())
{
}

} // namespace dorvane
