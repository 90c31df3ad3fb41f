################################################################################
#
# station-web
#
################################################################################

STATION_WEB_VERSION = 47
STATION_WEB_SITE = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/../station_web
STATION_WEB_SITE_METHOD = local
STATION_WEB_DEPENDENCIES = lighttpd

# The web server's account.
define STATION_WEB_USERS
	station-web -1 station-web -1 * - - - Web server of the station page
endef

define STATION_WEB_INSTALL_TARGET_CMDS
	mkdir -p $(TARGET_DIR)/var/www/station_web
	$(INSTALL) -m 644 $(@D)/*.html $(@D)/*.css $(@D)/*.js $(@D)/*.svg \
		$(@D)/lighttpd.conf \
		$(TARGET_DIR)/var/www/station_web
	$(INSTALL) -m 755 $(@D)/*.cgi $(TARGET_DIR)/var/www/station_web
	echo "var page_version = '$(STATION_WEB_VERSION)';" > \
		$(TARGET_DIR)/var/www/station_web/version.js
endef

# Replaces the one that comes with the web server.
define STATION_WEB_INSTALL_INIT_SYSV
	rm -f $(TARGET_DIR)/etc/init.d/S50lighttpd
	$(INSTALL) -D -m 755 $(STATION_WEB_PKGDIR)/S80station-web \
		$(TARGET_DIR)/etc/init.d/S80station-web
endef

$(eval $(generic-package))
