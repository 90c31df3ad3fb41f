# In the place of what would be downloaded. DEBIAN and NOTHING are directories: Debian's libevent for
# the board, laid out as one of Buildroot's packages, and an empty source. The packages' other rules,
# above all what they install for init, are the tree's own.

PKGCONF_OVERRIDE_SRCDIR = $(NOTHING)
override HOST_PKGCONF_CONFIGURE_CMDS = true
override HOST_PKGCONF_BUILD_CMDS = true
override HOST_PKGCONF_INSTALL_CMDS = $(INSTALL) -D -m 0755 /usr/bin/pkgconf $(HOST_DIR)/bin/pkgconf

LIBEVENT_OVERRIDE_SRCDIR = $(DEBIAN)
override LIBEVENT_DEPENDENCIES = toolchain skeleton
override LIBEVENT_CONFIGURE_CMDS = true
override LIBEVENT_BUILD_CMDS = true
override LIBEVENT_INSTALL_STAGING_CMDS = rsync -a $(@D)/usr $(STAGING_DIR)
override LIBEVENT_INSTALL_TARGET_CMDS = rsync -a --include='*/' --include='lib*.so*' --exclude='*' $(@D)/usr $(TARGET_DIR)
override LIBEVENT_POST_INSTALL_TARGET_HOOKS =

LIGHTTPD_OVERRIDE_SRCDIR = $(NOTHING)
override LIGHTTPD_DEPENDENCIES = toolchain skeleton
override LIGHTTPD_CONFIGURE_CMDS = true
override LIGHTTPD_BUILD_CMDS = true
override LIGHTTPD_INSTALL_TARGET_CMDS = true
override LIGHTTPD_POST_INSTALL_TARGET_HOOKS =
