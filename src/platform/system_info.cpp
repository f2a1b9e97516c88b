#include "platform/system_info.h"

#include <cstring>

namespace zorv {

namespace {

constexpr uint16_t kUnitedStates = 840; // ISO 3166 numeric
constexpr int kFccDomain = 0x2A;        // the regulatory domain that stands for it

// Takes six pairs of digits; the first that is none ends it, and the bytes from there on stay.
void take_serial(const char (&serial)[17], uint8_t (&mac)[6])
{
    for (size_t i = 0; i < sizeof mac; ++i) {
        unsigned byte;
        if (sscanf(serial + 2 * i, "%2x", &byte) != 1)
            return;
        mac[i] = static_cast<uint8_t>(byte);
    }
}

// With its sign bit set the domain carries a country code, without its two flags.
uint16_t country_of(uint16_t domain)
{
    if (static_cast<int16_t>(domain) < 0)
        return domain & 0x3FFF;
    return domain == kFccDomain ? kUnitedStates : 0;
}

} // namespace

File open_system_info()
{
    return File(fopen(kSystemInfo, "re"));
}

void read_id(const char *line, uint16_t &vendor, uint16_t &system, FoundIds &found)
{
    unsigned id;
    if (sscanf(line, "vendorid=%x\n", &id) == 1) {
        vendor = static_cast<uint16_t>(id);
        found.vendor = true;
    } else if (sscanf(line, "systemid=%x\n", &id) == 1) {
        system = static_cast<uint16_t>(id);
        found.system = true;
    }
}

void read_unit_fact(const char *line, board_record &record)
{
    char serial[17] = ""; // zeros behind the text, where take_serial() may look
    char domains[kSystemInfoLine];
    uint16_t domain;
    if (sscanf(line, "cpuid=%x\n", &record.cpuid) == 1)
        return;
    if (sscanf(line, "serialno=%16s\n", serial) == 1)
        take_serial(serial, record.cpu_mac);
    else if (sscanf(line, "boardrevision=%d\n", &record.board_revision) == 1 ||
             sscanf(line, "countrycode=%hu\n", &record.country_code) == 1)
        return;
    else if (sscanf(line, "regdmn[0]=%hx\n", &domain) == 1)
        record.country_code = country_of(domain);
    else if (sscanf(line, "regdmn[]=%255s\n", domains) == 1 && strstr(domains, "002a"))
        record.country_code = kUnitedStates;
}

} // namespace zorv
