// The layout of a ring trace file, shared by the writer and the decoder. Host byte order: the file
// is read on the machine that wrote it.
//
// [FileHeader][site area][level 0 slots][level 1 slots]...[level 9 slots]
//
// A site record (registered once per trace statement) is u32 line, u16 file length, u16 format
// length, the file's base name, the format. A format is the statement's literal text with each
// argument as argMark followed by its ArgKind. A site's id is its record's offset in the area plus 1.
// A text record (a name written once, then referred to by id) has the same shape with no file and
// the text as its format, taken as it is.
//
// A slot is fixed-size: SlotHeader, payload, and a trailing copy of the sequence number. The writer
// zeroes the trailing copy, writes the body, then stores the trailing and leading copies; a slot
// whose two copies differ is torn (or being written) and is skipped.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Vellum::layout {

inline constexpr char magic[8] = {'V', 'E', 'L', 'L', 'U', 'M', '1', '\0'};
inline constexpr uint32_t version = 1;
inline constexpr uint32_t levels = 10;
inline constexpr uint32_t slotBytes = 256;
inline constexpr uint32_t siteAreaBytes = 512 * 1024;
inline constexpr uint32_t headerBytes = 4096;

struct FileHeader {
  char magic[8];
  uint32_t version;
  uint32_t slotBytes;
  uint32_t levelCount;
  uint32_t siteAreaBytes;
  uint64_t siteAreaOffset;
  uint64_t siteBytesUsed;  // grows by whole records, stored with release after the record
  uint64_t levelOffset[levels];
  uint32_t levelSlots[levels];
  char name[64];
};
static_assert(sizeof(FileHeader) <= headerBytes);

struct SlotHeader {
  uint64_t seq;  // write order across all levels; 0 never names a message
  double time;
  uint32_t site;
  uint8_t level;
  uint8_t flags;
  uint16_t payloadBytes;
};
inline constexpr size_t payloadOffset = sizeof(SlotHeader);
inline constexpr size_t trailerOffset = slotBytes - sizeof(uint64_t);
inline constexpr size_t payloadCapacity = trailerOffset - payloadOffset;

// The payload ran out before every argument was written.
inline constexpr uint8_t slotTruncated = 1;

inline constexpr char argMark = '\x01';
// Payload encodings: integers and doubles 8 bytes, bool and char 1, a string a length byte and up
// to 255 bytes, an IPv4 address 4 bytes in network order, an Ethernet address 6 bytes, a text the
// u32 id of its text record (0: the site area was full).
enum ArgKind : char {
  kindInt = 'i',
  kindUint = 'u',
  kindDouble = 'd',
  kindBool = 'b',
  kindChar = 'c',
  kindString = 's',
  kindIpv4 = 'a',
  kindEth = 'e',
  kindText = 't',
};

}  // namespace Vellum::layout
