#include "core/users/ModuleRights.h"

namespace dorvane {

QString RightColumn(ModuleRight right)
{
    switch (right) {
    case ModuleRight::Dorvane: return QStringLiteral("bDorvane");
    case ModuleRight::Omrik: return QStringLiteral("bOmrik");
    case ModuleRight::Zulane: return QStringLiteral("bZulane");
    case ModuleRight::Vantrel: return QStringLiteral("bVantrel");
    case ModuleRight::Krestin: return QStringLiteral("bKrestin");
    }
    return QString();
}

QStringList RightColumns()
{
    QStringList columns;
    for (const ModuleRight right : kModuleRights)
        columns << RightColumn(right);
    return columns;
}

QString RightCheckBox(ModuleRight right)
{
    return QStringLiteral("ck") + RightColumn(right).mid(1);
}

} // namespace dorvane
