include $(sort $(wildcard $(BR2_EXTERNAL_STATION_DISPLAY_PATH)/package/*/*.mk))
