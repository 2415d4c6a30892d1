#pragma once

#include <QtGlobal>

namespace dorvane {

class Connection;

// Gives a version its "[System Screen]" pseudo-window with the "[System]"
// pseudo-object, unless the version has a window of that name already. The
// window is written with class 1 (host), 100 (platform 2), 242 (platform 4)
// or no class at all (other platforms); whatever its class, a version gets
// one pair, however often it is saved.
//
// `appIsHost` and `platformKey` are the application editor's AppIsHost and
// CurrentPlatformKey: the "[System]" class is looked up for the platform of
// the application, not of the version. Runs inside the caller's transaction
// and throws DbError (also when the platform has no "[System]" class),
// leaving the rollback to the caller.
void CreateSystemScreen(Connection& connection, qint32 versionKey, bool appIsHost, qint32 platformKey);

} // namespace dorvane
