# The Debian package, built by scripts/package.sh with CPack:
# dorvane_<version>_amd64.deb installing below /usr. Library dependencies
# are computed by dpkg-shlibdeps from the programs; the Qt plugins the
# programs load at run time (the SQL drivers and the SVG icon reader)
# are named here, the ODBC driver for PostgreSQL is recommended.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dorvane)
set(CPACK_PACKAGE_VENDOR "The Dorvane developers")
set(CPACK_PACKAGE_CONTACT "${DORVANE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "administration of the Zentrix test-automation repository")
# The long description; CPack indents it and marks the empty lines.
set(CPACK_PACKAGE_DESCRIPTION "Dorvane maintains the shared repository database of the Zentrix
test-automation suite: applications under test and their versions, users
and their module rights, test environments, roles, projects and keywords.

It runs the suite's maintenance operations: deep copies of versions and
environments, version updates, environment backup and restore, and
deletions that leave no orphans. The command-line tool dorvanectl runs
them without a window, for scripts; a systemd timer, installed but not
enabled, backs up every environment each night.

The repository is an SQLite file, or a PostgreSQL database shared through
an ODBC data source.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${DORVANE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The postinst creates the backup's system user with systemd-sysusers.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6sql6-sqlite, libqt6sql6-odbc, libqt6svg6, systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "odbc-postgresql, unixodbc")
# The maintainer scripts debhelper would write for the backup's system user
# and timer (CPack has no debhelper).
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/data/debian/postinst;${PROJECT_SOURCE_DIR}/data/debian/prerm;${PROJECT_SOURCE_DIR}/data/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
