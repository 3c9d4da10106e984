// The checksum that the data producers and the report side use, too.
#pragma once

// CRC-32 as zlib has it (reflected polynomial 0xEDB88320, initial and final value 0xFFFFFFFF) over
// `length` bytes; 0 for none.
unsigned int morvan_crc32(const char* data, unsigned int length);
