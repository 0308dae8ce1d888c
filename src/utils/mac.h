// Hardware addresses of interfaces.
#pragma once

#pragma GCC visibility push(default)

// Names are cut to 15 characters. Codes: NM_ERR_NULL_ARG for null, NM_ERR_SOCKET, and NM_ERR_IOCTL if
// the kernel refuses (no such interface, an address that it can't take).

/// Stores the six bytes of the address in `mac`.
int get_raw_mac_addr(const char* ifname, unsigned char* mac);

/// Writes the address as "aa:bb:cc:dd:ee:ff" with terminator to `out`, a buffer of 18 bytes.
int get_mac_addr(const char* ifname, char* out);

/// Sets the address; NM_ERR_BAD_FORMAT if the text is not six numbers in hexadecimal.
int set_mac_addr(const char* ifname, char* mac);

/// Gives a device that shares its parent's address one of its own: marks the address as locally
/// administered and XORs bytes 1 and 2, as one big-endian number, with `key`.
int xor_mac_addr(const char* ifname, unsigned short key);

/// Whether the text has the form "aa:bb:cc:dd:ee:ff", in either case.
bool is_valid_mac(const char* mac);

#pragma GCC visibility pop
