#pragma once

#include <QString>
#include <QStringList>

#include <array>

namespace dorvane {

// The suite's modules a registration carries a right for, in the order
// the check boxes are cleared: ckDorvane, ckOmrik, ckZulane, ckVantrel,
// ckKrestin.
enum class ModuleRight { Dorvane, Omrik, Zulane, Vantrel, Krestin };
inline constexpr std::array<ModuleRight, 5> kModuleRights = {ModuleRight::Dorvane, ModuleRight::Omrik,
                                                             ModuleRight::Zulane, ModuleRight::Vantrel,
                                                             ModuleRight::Krestin};
// "bDorvane" ... "bKrestin".
QString RightColumn(ModuleRight right);
// The five columns of a registration's rights, in kModuleRights order.
QStringList RightColumns();
// "ckDorvane" ... "ckKrestin".
QString RightCheckBox(ModuleRight right);

} // namespace dorvane
