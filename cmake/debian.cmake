# A package for boards and machines that run Debian: the service under systemd, the page, the tools.
# The same commit gives the same bytes, wherever it is built: scripts/package --twice.
include(cmake/commit.cmake)
set(BOARD ${PROJECT_SOURCE_DIR}/board)
set(DOCUMENTS ${CMAKE_INSTALL_DATADIR}/doc/hdtv)

install(FILES ${BOARD}/debian/hdtv.service ${BOARD}/debian/station-web.service
  ${BOARD}/debian/hdtv-upkeep.service ${BOARD}/debian/hdtv-upkeep.timer
  DESTINATION /lib/systemd/system)
install(FILES ${BOARD}/debian/sysctl.conf DESTINATION lib/sysctl.d RENAME 60-hdtv.conf)
install(FILES ${BOARD}/debian/config.json DESTINATION ${CMAKE_INSTALL_DATADIR}/hdtv)
install(FILES ${BOARD}/debian/examples/hdtv-screen.service ${BOARD}/debian/examples/nftables.conf
  DESTINATION ${DOCUMENTS}/examples)
install(PROGRAMS ${BOARD}/debian/examples/qt-webkit-kiosk DESTINATION ${DOCUMENTS}/examples)
# The wrapper around wget for the service, and what an upgrade leaves to be done.
install(PROGRAMS ${BOARD}/debian/wget ${BOARD}/debian/renew DESTINATION lib/hdtv)
install(FILES ${BOARD}/debian/default DESTINATION /etc/default RENAME hdtv)
install(FILES ${BOARD}/debian/wget.conf DESTINATION /lib/systemd/system/hdtv.service.d)
# The systemd units use its precautions around a start and a stop, and the image's upkeep.
install(PROGRAMS ${BOARD}/package/hdtv/S90hdtv ${BOARD}/package/hdtv/upkeep DESTINATION lib/hdtv)
install(FILES ${BOARD}/debian/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME hdtv)
install(FILES ${BOARD}/debian/copyright DESTINATION ${DOCUMENTS})

configure_file(${BOARD}/debian/changelog.in changelog @ONLY)
install_compressed(${CMAKE_CURRENT_BINARY_DIR}/changelog ${DOCUMENTS})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hdtv)
set(CPACK_PACKAGE_CONTACT "The maintainers <maintainers@station-display.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "turns a television into a station's alert display")
set(CPACK_PACKAGE_DESCRIPTION "When a station is alerted, everybody in it sees at once what happened, where,
and who goes. The service takes messages from the station's alerting gateway,
wakes the television over HDMI-CEC and keeps the document that the station
page shows; the page and its web server are included, gatewayctl, a gateway for
the command line, and hdtv-doctor, which says what is wrong with a unit.
.
As root the service resets the machine when it hears no gateway, sets its
clock and kills processes by name. It is not started until it is enabled.")
set(CPACK_PACKAGE_FILE_NAME hdtv)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)
# What debuggers want to know is in a package of its own.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debugger_package.cmake)
set(CPACK_DEBIAN_PACKAGE_VERSION ${HDTV_PACKAGE_VERSION})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, alsa-utils, init-system-helpers (>= 1.54), lighttpd, net-tools, psmisc, udhcpc, usbutils, wget")
# What the page's texts are drawn with: see docs/station-page.md.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "fonts-dejavu-core, fonts-liberation, fonts-symbola, fonts-wqy-microhei")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "chromium, v4l-utils, wireshark")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${BOARD}/debian/conffiles ${BOARD}/debian/postinst ${BOARD}/debian/prerm ${BOARD}/debian/postrm)
# It is read when the package is packed.
file(CONFIGURE OUTPUT epoch.cmake CONTENT "set(ENV{SOURCE_DATE_EPOCH} @HDTV_EPOCH@)\n" @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/epoch.cmake)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
