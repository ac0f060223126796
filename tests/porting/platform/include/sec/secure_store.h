// SPDX-License-Identifier: MIT
#pragma once

int sec_get_deviceCert(int slot, unsigned char* buffer, unsigned int* length);
int sec_get_priv_key(int slot, unsigned char* buffer, unsigned int* length);
