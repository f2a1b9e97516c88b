// config_files.h - where the configuration of the unit is.
#ifndef ZORV_PLATFORM_CONFIG_FILES_H
#define ZORV_PLATFORM_CONFIG_FILES_H

namespace zorv {

constexpr char kSystemCfg[] = "/tmp/system.cfg";
constexpr char kManagementCfg[] = "/etc/persistent/cfg/mgmt"; // survives a reset of the first

} // namespace zorv

#endif
