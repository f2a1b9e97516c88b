#include "platform/board_record.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <pthread.h>

#include "core/text_tools.h"

using namespace zorv;

namespace {

constexpr unsigned kInterfaces = 13; // eth0 to eth12

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER; // while a record of the table is made

board_port make_port(const BoardPort &port)
{
    return {.phy_idx = port.phy_idx,
            .port_id = port.phy_idx,
            .attribute1 = static_cast<uint8_t>(port.is_fibre ? 8 : 2),
            .attribute2 = static_cast<uint8_t>(port.is_fibre ? 0x20 : 0x2F),
            .attribute3 = 0x10,
            .attribute4 = -1,
            .label = port.label != 0 ? board_text(port.label) : nullptr};
}

void fill_ports(const Board &board, board_record &record)
{
    const BoardPort *port = board_ports(board);
    for (size_t i = 0; i < board.port_group_count; ++i) {
        board_port_group &group = record.port_groups[i];
        group.port_count = board.port_counts[i];
        for (board_port &place : std::span(group.ports, group.port_count))
            place = make_port(*port++);
    }
}

// Interfaces 8 and 9 are not behind the switch.
void fill_interfaces(board_record &record)
{
    for (unsigned i = 0; i < kInterfaces; ++i) {
        board_iface &iface = record.ifaces[i];
        snprintf(iface.name, sizeof iface.name, "eth%u", i);
        iface.attribute1 = iface.attribute2 = i == 8 || i == 9 ? i - 7 : 16;
    }
}

void forget_unit(board_record &record)
{
    memset(record.cpu_mac, 0, sizeof record.cpu_mac);
    record.cpuid = UINT32_MAX;
    record.board_revision = -1;
    record.country_code = 0;
}

} // namespace

void zorv::fill_record(const Board &board, board_record &record)
{
    if (record.system_id != board.system_id)
        record = {};
    copy_text(record.name, sizeof record.name, board_text(board.name));
    copy_text(record.platform, sizeof record.platform, board_text(board.platform));
    record.attribute1 = board.attribute1;
    record.attribute2 = board.attribute2;
    record.attribute3 = 30;
    record.attribute4 = 150;
    record.port_group_count = board.port_group_count;
    fill_ports(board, record);
    fill_interfaces(record);
    record.system_id = board.system_id;
    record.poe_total = board.poe_total;
    record.poe_reserved = board.poe_reserved;
    record.fw_min = board.fw_min;
    record.data = board_data(board);
    forget_unit(record);
}

void zorv::fill_unknown_record(board_record &record)
{
    copy_text(record.name, sizeof record.name, "Unknown");
    record.attribute3 = 30;
    record.attribute4 = 140;
    record.port_group_count = 1;
    forget_unit(record);
}

board_record *zorv::make_record(const Board &board)
{
    auto *const record = static_cast<board_record *>(calloc(1, sizeof(board_record)));
    if (record)
        fill_record(board, *record);
    return record;
}

const board_record *zorv::record_of(const Board &board)
{
    board_record *&record = board_record_place(board);
    pthread_mutex_lock(&g_mutex);
    if (!record)
        record = make_record(board);
    const board_record *const made = record;
    pthread_mutex_unlock(&g_mutex);
    return made;
}
