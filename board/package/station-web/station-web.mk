################################################################################
#
# station-web
#
################################################################################

STATION_WEB_VERSION = 47
STATION_WEB_SITE = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/..
STATION_WEB_SITE_METHOD = local
# As for hdtv.
STATION_WEB_LICENSE = PROPRIETARY
STATION_WEB_LICENSE_FILES = board/debian/copyright
STATION_WEB_REDISTRIBUTE = NO
STATION_WEB_DEPENDENCIES = lighttpd

# Leftovers of the developer's own builds.
STATION_WEB_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build

# The web server's account.
define STATION_WEB_USERS
	station-web -1 station-web -1 * - - - Web server of the station page
endef

# Its version is that of the protocol.
define STATION_WEB_INSTALL_TARGET_CMDS
	mkdir -p $(TARGET_DIR)/var/www/station_web
	$(INSTALL) -m 0644 $(@D)/station_web/*.html $(@D)/station_web/*.css \
		$(@D)/station_web/*.js $(@D)/station_web/*.svg \
		$(@D)/station_web/lighttpd.conf \
		$(TARGET_DIR)/var/www/station_web
	$(INSTALL) -m 0755 $(@D)/station_web/*.cgi $(TARGET_DIR)/var/www/station_web
	sed -n "s/^constexpr int version = \([0-9]*\);/var page_version = '\1';/p" \
		$(@D)/hdtv/protocol.h > $(TARGET_DIR)/var/www/station_web/version.js
endef

# Replaces the one that comes with the web server.
define STATION_WEB_INSTALL_INIT_SYSV
	rm -f $(TARGET_DIR)/etc/init.d/S50lighttpd
	$(INSTALL) -D -m 0755 $(STATION_WEB_PKGDIR)/S80station-web \
		$(TARGET_DIR)/etc/init.d/S80station-web
endef

define STATION_WEB_INSTALL_INIT_SYSTEMD
	rm -f $(TARGET_DIR)/usr/lib/systemd/system/lighttpd.service
	mkdir -p $(TARGET_DIR)/usr/lib/systemd/system
	sed 's/=www-data$$/=station-web/' $(@D)/board/debian/station-web.service \
		> $(TARGET_DIR)/usr/lib/systemd/system/station-web.service
endef

$(eval $(generic-package))
