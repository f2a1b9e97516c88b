// status_arp_rows.h - rows of the kernel's neighbour table.
#ifndef ZORV_PLATFORM_STATUS_ARP_ROWS_H
#define ZORV_PLATFORM_STATUS_ARP_ROWS_H

#include <cstddef>

namespace zorv {

constexpr size_t kArpRow = 200; // bytes read of a row; the kernel's rows are under 80

struct Neighbour {
    char ip[kArpRow];
    unsigned flags; // 0 while the kernel waits for an answer
    char mac[100];
};

// Takes a row: address, hardware type, flags, hardware address, mask, device. False when it is
// none.
bool read_arp_row(const char *row, Neighbour &neighbour);

} // namespace zorv

#endif
