// hw.cpp - the EEPROM image, the PCI devices of a vendor, power outlets and supplies.
#include <zorv/hardware.h>

#include <cstring>
#include <vector>

#include "base/ask.h"
#include "base/cli.h"
#include "base/text_file.h"
#include "core/own.h"

namespace ctl {
namespace {

using Image = std::unique_ptr<buffer, zorv::Closer<buffer_destroy>>;

constexpr int kMostDevices = 256;
constexpr size_t kRow = 16;
constexpr char kPciDevices[] = "/proc/bus/pci/devices";

struct EepromArgs {
    std::string file;
};

struct PciArgs {
    std::string vendor = "168c";
};

std::string hex(const uint8_t *bytes, size_t count, const char *gap)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += format("%s%02x", gap, bytes[i]);
    return text;
}

// Rows like the one before are shown as one "*".
void dump(const uint8_t *bytes, size_t size, Reply &reply)
{
    bool repeats = false;
    for (size_t i = 0; i < size; i += kRow) {
        const bool same = i >= kRow && memcmp(bytes + i, bytes + i - kRow, kRow) == 0;
        if (!same)
            reply.line(format("%08zx:", i) + hex(bytes + i, kRow, " "));
        else if (!repeats)
            reply.line("*");
        repeats = same;
    }
}

void eeprom(const EepromArgs &args, Reply &reply)
{
    expect_readable("/proc/mtd");
    const Image image = ask("EEPROM", [] { return Image(zorv_read_eeprom()); });
    if (!image)
        throw Failure(Exit::unavailable, "EEPROM: no such partition or image of 65536 bytes");
    const uint8_t *const bytes = image->data(image.get());
    const size_t size = image->length(image.get());
    reply.document.set("size", size);
    if (!args.file.empty()) {
        write_file(args.file, {reinterpret_cast<const char *>(bytes), size});
        reply.document.set("file", args.file);
    } else if (reply.json()) {
        reply.document.set("hex", hex(bytes, size, ""));
    } else {
        dump(bytes, size, reply);
    }
}

uint16_t parse_vendor(const std::string &text)
{
    char *end;
    const unsigned long vendor = strtoul(text.c_str(), &end, 16);
    if (text.empty() || *end != '\0' || vendor > UINT16_MAX)
        throw Misuse("--vendor: not a vendor id in hexadecimal: " + text);
    return static_cast<uint16_t>(vendor);
}

void pci(const PciArgs &args, Reply &reply)
{
    const uint16_t vendor = parse_vendor(args.vendor);
    if (!read_if_there(kPciDevices))
        throw Failure(Exit::unavailable, std::string(kPciDevices) + ": no list of PCI devices");
    std::vector<pci_entry> entries(kMostDevices);
    const int count =
        ask_twice(kPciDevices, [&] { return pci_detect(entries.data(), kMostDevices, vendor); });
    Value list = Value::list();
    for (int i = 0; i < count; ++i) {
        const pci_entry &entry = entries[static_cast<size_t>(i)];
        list.add(Value::object()
                     .set("place", format("%02x:%02x.%d", entry.bus, entry.slot, entry.function))
                     .set("vendor", format("%04x", entry.vendor))
                     .set("device", format("%04x", entry.device))
                     .set("subsystem_vendor", format("%04x", entry.subsystem_vendor))
                     .set("subsystem_device", format("%04x", entry.subsystem_device))
                     .set("revision", entry.revision)
                     .set("irq", entry.irq));
    }
    reply.table(
        "devices", list,
        {"place", "vendor", "device", "subsystem_vendor", "subsystem_device", "revision", "irq"});
    reply.exit = count > 0 ? Exit::done : Exit::no;
}

// What the library gives, under that name.
void show(const char *name, json_t *status, Reply &reply)
{
    if (!status)
        throw Failure(Exit::unavailable, std::string(name) + ": this device reports none");
    const Value value = Value::take(status);
    const zorv::Text text(json_dumps(status, JSON_INDENT(2)));
    if (!text)
        throw std::bad_alloc();
    reply.document.set(name, value);
    reply.line(text.get());
}

void outlets(const NoArgs &, Reply &reply)
{
    show("outlets", zorv_outlet_get_outlet_status_json(), reply);
}

void psu(const NoArgs &, Reply &reply)
{
    show("supplies", zorv_psu_get_json_psu_table(), reply);
}

constexpr Option kEeprom[] = {
    option<&EepromArgs::file>("--output", "Write the 65536 bytes into this file"),
};
constexpr Option kPci[] = {
    option<&PciArgs::vendor>("--vendor", "The vendor id in hexadecimal, 168c unless given"),
};

constexpr Verb kVerbs[] = {
    verb<eeprom>("eeprom", "Show the EEPROM image, or save it in a file",
                 "zorvctl hw eeprom --output /tmp/eeprom.bin", kEeprom),
    verb<pci>("pci", "List the PCI devices of a vendor", "zorvctl hw pci --vendor 168c", kPci),
    verb<outlets>("outlets", "Show the status of the power outlets", "zorvctl hw outlets --json"),
    verb<psu>("psu", "Show the power-supply units", "zorvctl hw psu --json"),
};

} // namespace

extern const Family hw_family = {"hw", "Read the hardware: EEPROM, PCI, power", {kVerbs}};

} // namespace ctl
