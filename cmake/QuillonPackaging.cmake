# Debian packages: `cpack -G DEB` in the build folder makes quillon_<version>_amd64.deb (the programs, the library,
# the menu entry and icon) and quillon-dev_<version>_amd64.deb (headers, CMake package files, the Designer plugin).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillon)
set(CPACK_PACKAGE_VENDOR "Quillon")
set(CPACK_PACKAGE_CONTACT "Quillon developers <dev@quillon.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://quillon.invalid/")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME quillon)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION office)
# dpkg-shlibdeps works out the runtime libraries; the database drivers and the X platform are plugins that nothing
# links, so they are named here.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_BINARY_DIR}/lib")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libqt6sql6-sqlite, qt6-qpa-plugins, qt6-translations-l10n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libqt6sql6-psql, fonts-wqy-microhei")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "Master data for purchasing, sales and inventory (进销存基础资料)
The desktop program quillon maintains clients, suppliers, units, goods types, goods, warehouses
and departments in one database (SQLite or PostgreSQL); quillon-cli lists, adds, exports and
migrates them. Includes the shared library the programs use.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME quillon-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "quillon (= ${PROJECT_VERSION}), qt6-base-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "Development files of the Quillon master-data library (进销存基础资料)
Headers under include/Quillon, the CMake package (find_package(Quillon)) and the Qt Designer
plugin of the grid control.")

include(CPack)
