include $(sort $(wildcard $(BR2_EXTERNAL_ORVANE_PATH)/*/*.mk))
