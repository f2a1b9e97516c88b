// board.cpp - everything known of the unit, and why the library says so.
#include "board.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/cli.h"
#include "platform/board_table.h"

namespace ctl {
namespace {

// Which record it is, and what made the library choose it.
std::string reason_of_record(const board_record &record)
{
    uint16_t vendor = 0, system = 0;
    const int rc = ask(zorv::kSystemInfo, [&] { return board_identify_ids(&vendor, &system); });
    if (rc == -ENOENT)
        return "no /proc/zorvhal/system.info: the default record";
    if (rc != 0)
        return "an id is missing in system.info: the default record";
    const std::string ids = format("vendor 0x%04x, system id 0x%04x: ", vendor, system);
    if (pluvo_get_board(record.system_id))
        return ids + "a row of the board table";
    return ids + (vendor == zorv::kBoardVendor ? "no row of the board table" : "another vendor") +
           ": the default record";
}

std::string mac_text(const uint8_t (&mac)[6])
{
    return format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// What has the value of the unread, such as all bits set, is null.
Value known(bool is_known, const Value &value)
{
    return is_known ? value : Value();
}

Value identity(const board_record &record)
{
    const uint32_t bomrev = ask(kBoardFile, pluvo_get_bomrev);
    return Value::object()
        .set("name", map_board_name(&record))
        .set("reason", reason_of_record(record))
        .set("platform", known(record.platform[0] != '\0', Value(record.platform)))
        .set("system_id", format("0x%04x", record.system_id))
        .set("cpu_mac", mac_text(record.cpu_mac))
        .set("cpuid", known(record.cpuid != UINT32_MAX, Value(format("0x%08x", record.cpuid))))
        .set("board_revision", known(record.board_revision != -1, Value(record.board_revision)))
        .set("bom_revision", known(bomrev != UINT32_MAX, Value(format("0x%08x", bomrev))))
        .set("country_code", known(record.country_code != 0, Value(record.country_code)))
        .set("old_wifi", kbr_is_supported_by_old_wifi(&record) != 0)
        .set("fast_adopt", kbr_is_supported_ble_fast_adopt(&record) != 0);
}

std::string reason_of_main(const board_port_group &group, const board_port &port)
{
    return group.port_count == 1 ? "alone in its group" : "its label is " + std::string(port.label);
}

Value port_list(const board_record &record)
{
    Value list = Value::list();
    const board_port *const main = get_main_phy();
    const size_t groups = std::min<size_t>(record.port_group_count, std::size(record.port_groups));
    for (size_t g = 0; g < groups; ++g) {
        const board_port_group &group = record.port_groups[g];
        for (size_t p = 0; p < std::min<size_t>(group.port_count, std::size(group.ports)); ++p) {
            const board_port &port = group.ports[p];
            list.add(
                Value::object()
                    .set("group", g)
                    .set("phy", port.phy_idx)
                    .set("port_id", port.port_id)
                    .set("label", port.label)
                    .set("main", &port == main ? Value(reason_of_main(group, port)) : Value()));
        }
    }
    return list;
}

Value radio_list(const board_record &record)
{
    Value list = Value::list();
    for (size_t i = 0; i < std::min<size_t>(record.radio_count, std::size(record.radios)); ++i)
        list.add(Value::object()
                     .set("radio", i)
                     .set("subsystem_device", format("0x%04x", record.radios[i].subsystem_device))
                     .set("subsystem_vendor", format("0x%04x", record.radios[i].subsystem_vendor)));
    return list;
}

void show_board(const NoArgs &, Reply &reply)
{
    const board_record &record = identify_board();
    Value facts = identity(record);
    const bool has_chip = ask("accelerometer", has_accelerometer) != 0;
    facts.set("ports", get_num_of_eth_ports())
        .set("main_port", known(get_main_phy(), Value(get_main_phy_idx())))
        .set("poe_budget", board_get_poe_budget())
        .set("poe_reason", format("%u W, %u W held back", record.poe_total, record.poe_reserved))
        .set("accelerometer", has_chip)
        .set("firmware_minimum", version_text(record.fw_min))
        .set("beta_firmware", pluvo_board_is_beta_firmware(&record) != 0);
    reply.pairs(facts);
    if (has_chip)
        reply.document.set("acceleration", Value::take(prepare_accelerometer_status()));
    reply.line("");
    reply.table("firmware_rules", firmware_rules(record), {"rule", "version", "raised", "reason"});
    reply.line("");
    reply.table("port_list", port_list(record), {"group", "phy", "port_id", "label", "main"});
    reply.table("radio_list", radio_list(record),
                {"radio", "subsystem_device", "subsystem_vendor"});
}

constexpr Verb kVerbs[] = {
    verb<show_board>("board", "Tell everything known of the unit, and why", "zorvctl board --json"),
};

} // namespace

extern const Family board_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
