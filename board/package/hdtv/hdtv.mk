################################################################################
#
# hdtv
#
################################################################################

HDTV_VERSION = 47
HDTV_SITE = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/..
HDTV_SITE_METHOD = local
HDTV_DEPENDENCIES = host-pkgconf libevent
HDTV_CONF_OPTS = -DHDTV_TESTS=OFF -DHDTV_STATION=OFF -DHDTV_TOOLS=OFF -DHDTV_PAGE=OFF -DHDTV_SMALL=ON

# Leftovers of the developer's own builds.
HDTV_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build

ifeq ($(BR2_PACKAGE_HDTV_CEC_VIDEOCORE),y)
HDTV_CONF_OPTS += -DCEC_PORT=videocore
HDTV_DEPENDENCIES += rpi-userland
else
HDTV_CONF_OPTS += -DCEC_PORT=linux
endif

ifeq ($(BR2_PACKAGE_HDTV_DOCTOR),y)
HDTV_CONF_OPTS += -DHDTV_DOCTOR=ON
HDTV_DEPENDENCIES += cli11
endif

define HDTV_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 755 $(HDTV_PKGDIR)/S90hdtv $(TARGET_DIR)/etc/init.d/S90hdtv
	$(INSTALL) -D -m 755 $(HDTV_PKGDIR)/upkeep $(TARGET_DIR)/usr/lib/hdtv/upkeep
endef

$(eval $(cmake-package))
