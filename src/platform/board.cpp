#include <zorv/board.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include <zorv/hardware.h>

#include "core/lines.h"
#include "platform/board_cpu_arch.h"
#include "platform/board_firmware.h"
#include "platform/board_record.h"
#include "platform/system_info.h"

using namespace zorv;

// Callers reach into records and read the tables by these positions.
static_assert(sizeof(board_port) == 8 + 2 * sizeof(void *));
static_assert(offsetof(board_port, label) == 8 + sizeof(void *));
static_assert(offsetof(board_port_group, ports) == alignof(board_port));
static_assert(sizeof(board_iface) == 16 && sizeof(board_radio) == 40);
static_assert(offsetof(board_radio, subsystem_vendor) ==
              offsetof(board_radio, subsystem_device) + 2);
static_assert(offsetof(board_record, name) == 0);
static_assert(offsetof(board_record, cpu_mac) == 104);
static_assert(offsetof(board_record, port_groups) == 120);
static_assert(offsetof(board_record, system_id) == 12820);
static_assert(offsetof(board_record, fw_min) == 12836 && sizeof(board_record) == 12864);
static_assert(sizeof(board_fw_boardrev) == 12 && sizeof(board_fw_bomrev) == 8);

namespace {

constexpr uint16_t kRadioVendor = 0x168C;
constexpr uint16_t kNoId = 0xFFFF;

// The record of a unit that is no row of the table, made when it is first needed.
constinit board_record g_unknown = {};

// The unit's own record of its row, malloc'd by the first get_board() that finds one; for good.
constinit board_record *g_private = nullptr;

// What board_identify() answers with, from its first call or by update_cached_board().
constinit const board_record *g_cached = nullptr;

// Stays within the arrays, whatever the counts of a caller's own record.
std::span<const board_port_group> groups_of(const board_record &record)
{
    return {record.port_groups,
            std::min<size_t>(record.port_group_count, std::size(record.port_groups))};
}

std::span<const board_port> ports_of(const board_port_group &group)
{
    return {group.ports, std::min<size_t>(group.port_count, std::size(group.ports))};
}

const Board *find_board(uint16_t system_id)
{
    for (const Board &board : boards())
        if (board.system_id == system_id)
            return &board;
    return nullptr;
}

void make_private(const Board &board)
{
    if (g_private)
        fill_record(board, *g_private);
    else
        g_private = make_record(board);
}

void refresh(board_record &record)
{
    const File file = open_system_info();
    if (!file)
        return;
    record.cpuid = UINT32_MAX;
    record.board_revision = -1;
    record.country_code = 0;
    Lines<kSystemInfoLine> lines(file.get());
    while (const char *const line = lines.next())
        read_unit_fact(line, record);
    raise_firmware_minimum(record);
}

// Fills the default record with the radios on the PCI bus.
const board_record *identify_by_radios()
{
    // On purpose: the call is for its reading of /proc/cpuinfo; no field takes the result.
    detect_cpu_arch();
    pci_entry devices[std::size(g_unknown.radios)] = {};
    const int count = pci_detect(devices, std::size(devices), kRadioVendor);
    fill_unknown_record(g_unknown);
    g_unknown.radio_count = 0;
    for (int i = 0; i < count; ++i)
        g_unknown.radios[g_unknown.radio_count++] = {
            .name = "Unknown",
            .attribute = 0,
            .subsystem_device = devices[i].subsystem_device,
            .subsystem_vendor = devices[i].subsystem_vendor,
        };
    return &g_unknown;
}

} // namespace

const board_record *board_identify()
{
    if (!g_cached)
        g_cached = pluvo_identify();
    if (!g_cached)
        g_cached = identify_by_radios();
    return g_cached;
}

void update_cached_board(const board_record *record)
{
    g_cached = record;
}

int board_identify_ids(uint16_t *vendorid, uint16_t *systemid)
{
    if (!vendorid || !systemid)
        return -1;
    const File file = open_system_info();
    if (!file)
        return -ENOENT;
    FoundIds found;
    Lines<kSystemInfoLine> lines(file.get());
    while (const char *const line = lines.next())
        read_id(line, *vendorid, *systemid, found);
    return found.vendor && found.system ? 0 : -1;
}

const board_record *board_identify_platform(const char *platform)
{
    return pluvo_identify_platform(platform);
}

const board_record *pluvo_identify_platform(const char *platform)
{
    if (platform)
        for (const Board &board : boards())
            if (strcmp(board_text(board.platform), platform) == 0)
                return record_of(board);
    return nullptr;
}

const char *map_board_name(const board_record *record)
{
    if (record && record->radio_count != 0)
        for (const BoardName &row : board_names())
            if (row.system_id == record->system_id &&
                row.radio == record->radios[0].subsystem_device)
                return row.name;
    return record ? record->name : nullptr;
}

unsigned board_get_poe_budget()
{
    const board_record *const record = board_identify();
    return static_cast<unsigned>(std::max(record->poe_total - record->poe_reserved, 0));
}

int board_has_poe()
{
    return board_get_poe_budget() != 0;
}

int board_get_cpu_mac(uint8_t mac[6])
{
    const board_record *const record = board_identify();
    if (!record || !mac)
        return -1;
    memcpy(mac, record->cpu_mac, sizeof record->cpu_mac);
    return 0;
}

const board_port *get_main_phy()
{
    for (const board_port_group &group : groups_of(*board_identify())) {
        if (group.port_count == 1)
            return group.ports;
        for (const board_port &port : ports_of(group))
            if (port.label &&
                (strcmp(port.label, "Main") == 0 || strcmp(port.label, "PoE In + Data") == 0))
                return &port;
    }
    return nullptr;
}

int get_main_phy_port_id()
{
    const board_port *const port = get_main_phy();
    return port ? port->port_id : -1;
}

int get_main_phy_idx()
{
    const board_port *const port = get_main_phy();
    return port ? port->phy_idx : -1;
}

int get_phy_port_id_by_idx(int idx)
{
    for (const board_port_group &group : groups_of(*board_identify()))
        for (const board_port &port : ports_of(group))
            if (port.phy_idx == idx)
                return port.port_id;
    return -1;
}

int get_num_of_eth_ports()
{
    int count = 0;
    for (const board_port_group &group : groups_of(*board_identify()))
        count += group.port_count;
    return count;
}

const board_record *pluvo_get_board(uint16_t system_id)
{
    const Board *const board = find_board(system_id);
    return board ? record_of(*board) : nullptr;
}

const board_record *get_board()
{
    uint16_t vendor = kNoId;
    uint16_t system = kNoId;
    if (board_identify_ids(&vendor, &system) == 0 && vendor == kBoardVendor)
        if (const Board *const board = find_board(system))
            make_private(*board);
    if (g_private)
        refresh(*g_private);
    return g_private;
}

const board_record *pluvo_identify()
{
    return g_private ? g_private : get_board();
}
