################################################################################
#
# hdtv
#
################################################################################

HDTV_VERSION = 47
HDTV_SITE = $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/..
HDTV_SITE_METHOD = local
# No license has been chosen yet: all rights are reserved.
HDTV_LICENSE = PROPRIETARY
HDTV_LICENSE_FILES = board/debian/copyright
HDTV_REDISTRIBUTE = NO
HDTV_DEPENDENCIES = host-pkgconf libevent
HDTV_CONF_OPTS = \
	-DHDTV_PAGE=OFF \
	-DHDTV_SMALL=ON \
	-DHDTV_STATION=OFF \
	-DHDTV_TESTS=OFF

# Leftovers of the developer's own builds.
HDTV_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build

ifeq ($(BR2_PACKAGE_HDTV_CEC_VIDEOCORE),y)
HDTV_CONF_OPTS += -DCEC_PORT=videocore
HDTV_DEPENDENCIES += rpi-userland
else
HDTV_CONF_OPTS += -DCEC_PORT=linux
endif

ifeq ($(BR2_PACKAGE_HDTV_TOOLS),y)
HDTV_CONF_OPTS += -DHDTV_TOOLS=ON
HDTV_DEPENDENCIES += cli11
else
HDTV_CONF_OPTS += -DHDTV_TOOLS=OFF
endif

ifeq ($(BR2_PACKAGE_HDTV_DOCTOR),y)
HDTV_CONF_OPTS += -DHDTV_DOCTOR=ON
HDTV_DEPENDENCIES += cli11
else
HDTV_CONF_OPTS += -DHDTV_DOCTOR=OFF
endif

ifeq ($(BR2_STATIC_LIBS),y)
HDTV_CONF_OPTS += -DHDTV_STATIC=ON
else
HDTV_CONF_OPTS += -DHDTV_STATIC=OFF
endif

define HDTV_INSTALL_UPKEEP
	$(INSTALL) -D -m 0755 $(HDTV_PKGDIR)/upkeep $(TARGET_DIR)/usr/lib/hdtv/upkeep
endef

define HDTV_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(HDTV_PKGDIR)/S90hdtv $(TARGET_DIR)/etc/init.d/S90hdtv
	$(HDTV_INSTALL_UPKEEP)
endef

# The units take the script's precautions around a start and a stop. Nothing is upgraded on an image.
define HDTV_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0755 $(HDTV_PKGDIR)/S90hdtv $(TARGET_DIR)/usr/lib/hdtv/S90hdtv
	$(HDTV_INSTALL_UPKEEP)
	$(foreach unit,hdtv.service hdtv-upkeep.service hdtv-upkeep.timer,
		$(INSTALL) -D -m 0644 $(@D)/board/debian/$(unit) \
			$(TARGET_DIR)/usr/lib/systemd/system/$(unit)
	)
	$(SED) '/^# It restarts units/,/hdtv.renew$$/d' \
		$(TARGET_DIR)/usr/lib/systemd/system/hdtv-upkeep.service
	$(INSTALL) -D -m 0644 $(@D)/board/debian/sysctl.conf \
		$(TARGET_DIR)/usr/lib/sysctl.d/60-hdtv.conf
endef

$(eval $(cmake-package))
