// The filter's instructions; jumps are relative, counted from the instruction that follows.
#include "glue/SocketFilter.h"

namespace IgmpShim {

namespace {
constexpr uint16_t ldAbsWord = 0x20, ldAbsHalf = 0x28, ldAbsByte = 0x30;
constexpr uint16_t andK = 0x54, jeqK = 0x15, retK = 0x06;
// The packet type the socket layer gives a frame; the kernel calls a frame it sends "outgoing" (4).
constexpr uint32_t ancillaryPktType = 0xfffff004;
constexpr uint32_t pktTypeOutgoing = 4;
}  // namespace

const std::array<SocketFilterInsn, 29> SocketFilter::program = {{
    {ldAbsByte, 0, 0, ancillaryPktType},
    {jeqK, 26, 0, pktTypeOutgoing},
    {ldAbsHalf, 0, 0, 12},
    {jeqK, 17, 0, 0x0801},
    {jeqK, 0, 6, 0x0800},
    {ldAbsByte, 0, 0, 23},
    {jeqK, 14, 0, 2},
    {jeqK, 13, 0, 103},
    {ldAbsWord, 0, 0, 30},
    {andK, 0, 0, 0xffffff00},
    {jeqK, 10, 17, 0xe0000000},
    // One 802.1Q tag still in the bytes: the same tests four bytes further on.
    {jeqK, 0, 16, 0x8100},
    {ldAbsHalf, 0, 0, 16},
    {jeqK, 7, 0, 0x0801},
    {jeqK, 0, 13, 0x0800},
    {ldAbsByte, 0, 0, 27},
    {jeqK, 4, 0, 2},
    {jeqK, 3, 0, 103},
    {ldAbsWord, 0, 0, 34},
    {andK, 0, 0, 0xffffff00},
    {jeqK, 0, 7, 0xe0000000},
    // Destination MAC 01:00:5e:...
    {ldAbsByte, 0, 0, 0},
    {jeqK, 0, 5, 0x01},
    {ldAbsByte, 0, 0, 1},
    {jeqK, 0, 3, 0x00},
    {ldAbsByte, 0, 0, 2},
    {jeqK, 0, 1, 0x5e},
    {retK, 0, 0, acceptLen},
    {retK, 0, 0, 0},
}};

}  // namespace IgmpShim
