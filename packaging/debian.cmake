# The .deb: scripts/package, or cmake --build --preset release --target package.
install_compressed(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog ${doc_dir} changelog.Debian)
if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/lintian-overrides)
  install(FILES debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
          RENAME quorvelfs)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvelfs)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog signature REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- (.*>)  .*" "\\1" CPACK_DEBIAN_PACKAGE_MAINTAINER "${signature}")
file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "\\(${PROJECT_VERSION}-([0-9]+)\\)")
  message(FATAL_ERROR "packaging/debian/changelog has no entry for version ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS fuse3)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "usbmuxd, zenity | kdialog | x11-utils | libnotify-bin")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion")
# CMake indents the lines of the description itself.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "mounts iPhones, iPads and iPods as volumes")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Quorvelfs shows an iOS device on a USB cable as a folder: its music, films,
podcasts, voice memos and photos under human names, each app's documents,
and a folder to read and write as any disk.

The command quorvel mounts and unmounts devices, copies with progress, and
can do so by itself when a device is plugged in. mount -t quorvelfs works
too. A simulated device is included for trying it without one.")
include(CPack)
