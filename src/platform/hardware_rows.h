// hardware_rows.h - rows of the kernel's lists of flash partitions and PCI devices.
#ifndef ZORV_PLATFORM_HARDWARE_ROWS_H
#define ZORV_PLATFORM_HARDWARE_ROWS_H

#include <span>

#include <zorv/hardware.h>

namespace zorv {

constexpr size_t kMtdRow = 4096;
constexpr size_t kPciRow = 512;

// Takes the number of a partition from its row of /proc/mtd when it is the EEPROM's.
bool read_eeprom_row(const char *row, int &partition);

// Takes a row of /proc/bus/pci/devices; false when it is none.
bool read_pci_row(const char *row, pci_entry &entry);

// Takes what a PCI configuration space, which may end early, says of the subsystem.
void read_pci_config(std::span<const uint8_t> config, pci_entry &entry);

} // namespace zorv

#endif
