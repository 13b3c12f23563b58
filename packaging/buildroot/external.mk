include $(sort $(wildcard $(BR2_EXTERNAL_LCFD_PATH)/package/*/*.mk))
