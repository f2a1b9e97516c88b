// Any rows of /proc/net/dev and /proc/net/arp, any portal file, any forwarding table and any answer
// of route netlink: nothing outside is touched, and the answers agree with a plain reading.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/lines.h"
#include "platform/bridge_fdb_table.h"
#include "platform/item_list.h"
#include "platform/netlink.h"
#include "platform/status_arp_rows.h"
#include "platform/status_dev_rows.h"

using namespace zorv;

namespace {

void must(bool holds)
{
    if (!holds)
        abort();
}

void read_rows(FILE *text)
{
    dev_status status = {};
    Neighbour neighbour;
    Lines<kDevRow> rows(text);
    while (const char *const row = rows.next()) {
        read_dev_row(row, "eth0", status);
        if (read_arp_row(row, neighbour))
            must(strlen(neighbour.mac) < sizeof neighbour.mac);
        uint8_t mac[6];
        if (read_mac(row, mac))
            must(strlen(row) == 17);
    }
    must(status.present == 0 || status.present == 1);
    must(status.tx_dropped == 0 || status.present == 1);
    must(status.ifname[0] == '\0' && status.reserved[0] == 0 && status.dhcpc == 0);
}

bool is_separator(char c)
{
    return c == '\n' || c == ',';
}

// The words of the search, one position after the other.
bool has_item_plainly(std::string_view text, std::string_view item)
{
    for (size_t at = 0; at + item.size() <= text.size(); ++at) {
        const size_t behind = at + item.size();
        if (text.compare(at, item.size(), item) == 0 && (at == 0 || is_separator(text[at - 1])) &&
            (behind == text.size() || is_separator(text[behind])))
            return true;
    }
    return false;
}

// The first byte is the length of the item, which comes next.
void search(std::string_view data)
{
    if (data.empty())
        return;
    const auto length = static_cast<unsigned char>(data[0]) % 8U + 1U;
    if (data.size() < length + 1)
        return;
    const std::string_view item(data.data() + 1, length);
    const std::string_view text(data.data() + 1 + length, data.size() - 1 - length);
    must(has_item(text, item) == has_item_plainly(text, item));
}

void look_up(Bytes table)
{
    uint8_t mac[6] = {};
    fdb_record record;
    if (table.size() >= 2 * kKernelRecord)
        memcpy(mac, table.data() + kKernelRecord, sizeof mac); // there is one such
    const bool found = find_record(table, mac, record);
    must(found || table.size() < 2 * kKernelRecord);
    must(!found || memcmp(record.mac, mac, sizeof mac) == 0);
}

void take_apart(Bytes datagram)
{
    judge_answer(datagram, 1);
    Route route;
    size_t left = datagram.size();
    while (take_route(datagram, route)) {
        must(datagram.size() < left);
        left = datagram.size();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const File text(size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    read_rows(text.get());
    search({reinterpret_cast<const char *>(data), size});
    look_up({data, size});
    take_apart({data, size});
    return 0;
}
