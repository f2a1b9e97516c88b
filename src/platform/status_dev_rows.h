// status_dev_rows.h - what fill_dev_status() makes of the kernel's answers.
#ifndef ZORV_PLATFORM_STATUS_DEV_ROWS_H
#define ZORV_PLATFORM_STATUS_DEV_ROWS_H

#include <zorv/status.h>

namespace zorv {

constexpr size_t kDevRow = 255;

// Takes the counters from a row of /proc/net/dev when it is that of the interface. A row that is
// cut short leaves the counters it lacks alone.
bool read_dev_row(const char *row, const char *ifname, dev_status &status);

// Puts the better pair of link settings first, as far as fill_dev_status() is documented to.
void order_links(dev_status &status);

} // namespace zorv

#endif
