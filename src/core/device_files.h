// device_files.h - files of the device that several folders read.
#ifndef ZORV_CORE_DEVICE_FILES_H
#define ZORV_CORE_DEVICE_FILES_H

namespace zorv {

// What the hardware driver tells of the unit.
inline constexpr char kSystemInfo[] = "/proc/zorvhal/system.info";

} // namespace zorv

#endif
