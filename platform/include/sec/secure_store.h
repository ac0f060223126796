// SPDX-License-Identifier: MIT
#ifndef SEC_SECURE_STORE_H
#define SEC_SECURE_STORE_H

// The device's own identity. Both calls work alike:
//
// `slot` is the identity asked for; 0 is the device's own, the only one there is.
// `*length` is the size of `buffer` in bytes; after success it is the number of bytes written. DER of an identity fits
// into 4096 bytes.
// Results: 0 for success. Anything else is a failure (no identity, an unknown slot, a buffer too small, a null pointer),
//          and then neither `buffer` nor `*length` has been touched.
// Threads: any. A call may read a file, and leaves nothing of it in memory but what is in `buffer`.

// The certificate, X.509.
int sec_get_deviceCert(int slot, unsigned char* buffer, unsigned int* length);

// The private key that belongs to it, RSA. Wipe the buffer after use.
int sec_get_priv_key(int slot, unsigned char* buffer, unsigned int* length);

#endif  // SEC_SECURE_STORE_H
