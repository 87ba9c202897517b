// The packet CRC: reflected CRC-32, polynomial 0xEDB88320, with no inversion at either end.
// Every caller starts from 0, so the value differs from zlib's crc32 (which inverts).
#pragma once

#include <cstdint>

extern const uint32_t crc32_tab[256];

uint32_t get_crc32(const void *buffer, uint32_t length, uint32_t initial);
