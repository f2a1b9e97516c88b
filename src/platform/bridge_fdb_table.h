// bridge_fdb_table.h - the records of a bridge's forwarding table, as the kernel lays them out.
#ifndef ZORV_PLATFORM_BRIDGE_FDB_TABLE_H
#define ZORV_PLATFORM_BRIDGE_FDB_TABLE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include <zorv/bridge.h>

namespace zorv {

constexpr size_t kKernelRecord = 16; // what the kernel fills of fdb_record
constexpr size_t kTableBlock = 4096; // what the kernel hands out at most by one read

// Takes "02:A0:F1:00:00:07", in any case, and no other form.
bool read_mac(const char *text, uint8_t (&mac)[6]);

// Looks for an address among whole records; what is left over behind them is no record.
bool find_record(std::span<const uint8_t> records, const uint8_t (&mac)[6], fdb_record &record);

} // namespace zorv

#endif
