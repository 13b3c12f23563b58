################################################################################
#
# lcfd
#
################################################################################

LCFD_VERSION = 4.12
# The working tree this br2-external tree is part of (packaging/buildroot).
LCFD_SITE = $(BR2_EXTERNAL_LCFD_PATH)/../..
LCFD_SITE_METHOD = local
# The tree's own build directories (/build*/ and the others .gitignore names) hold gigabytes
# of other builds; the package is configured afresh.
LCFD_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = \
	--exclude '/build*/' --exclude /out/ --exclude /.cache/ \
	--exclude /compile_commands.json
LCFD_SUPPORTS_IN_SOURCE_BUILD = NO

# The init files are installed by LCFD_INSTALL_INIT_SYSV or LCFD_INSTALL_INIT_SYSTEMD, for the
# init system the configuration chose, not by the project's install. The programs link the
# target's shared libstdc++ (the project links it statically into a cross build by default),
# and their hardening is the configuration's (BR2_SSP_*, BR2_RELRO_*, BR2_FORTIFY_SOURCE_*).
LCFD_CONF_OPTS = \
	-DLCFD_INSTALL_SYSTEMD_UNIT=OFF \
	-DLCFD_INSTALL_SYSV_INIT=OFF \
	-DLCFD_BUILD_TESTS=OFF \
	-DLCFD_BUILD_BENCHMARKS=OFF \
	-DLCFD_STATIC_CXX_RUNTIME=OFF \
	-DLCFD_HARDENING=OFF

ifeq ($(BR2_PACKAGE_LCFD_CLIENT),y)
LCFD_DEPENDENCIES += cli11 json-for-modern-cpp
LCFD_CONF_OPTS += -DLCFD_BUILD_CLIENT=ON
else
LCFD_CONF_OPTS += -DLCFD_BUILD_CLIENT=OFF
endif

# The init script runs the daemon with start-stop-daemon, and hands its output to logger when
# /etc/default/lcfd asks for LCFD_OUTPUT=syslog.
define LCFD_BUSYBOX_CONFIG_FIXUPS
	$(call KCONFIG_ENABLE_OPT,CONFIG_START_STOP_DAEMON)
	$(call KCONFIG_ENABLE_OPT,CONFIG_LOGGER)
endef

define LCFD_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/sysv/S50lcfd \
		$(TARGET_DIR)/etc/init.d/S50lcfd
	$(INSTALL) -D -m 0644 $(@D)/packaging/sysv/lcfd.default \
		$(TARGET_DIR)/etc/default/lcfd
endef

define LCFD_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/lcfd.service \
		$(TARGET_DIR)/usr/lib/systemd/system/lcfd.service
endef

$(eval $(cmake-package))
