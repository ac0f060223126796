# SPDX-License-Identifier: MIT
include $(sort $(wildcard $(BR2_EXTERNAL_KEL_HTTP_PATH)/package/*/*.mk))
