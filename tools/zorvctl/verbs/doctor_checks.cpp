// doctor_checks.cpp - what the library makes of a file, and how that differs from what it should.
#include "doctor.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorv/board.h>
#include <zorv/file.h>
#include <zorv/status.h>

#include "analytics.h"
#include "base/text_file.h"
#include "cfg.h"
#include "crash.h"
#include "exec/syswrapper.h"
#include "platform/board_table.h"

namespace ctl {
namespace {

constexpr size_t kLine = 256;        // more than any of these values
constexpr size_t kSerialDigits = 12; // the sender of a message is six bytes
constexpr size_t kKeyDigits = 32;    // AES-128

Condition ok(const std::string &detail = "")
{
    return {State::ok, detail};
}

Condition absent(const std::string &detail)
{
    return {State::absent, detail};
}

Condition unfit(const std::string &detail)
{
    return {State::unfit, detail};
}

std::string first_line(const char *path)
{
    char line[kLine] = "";
    freadline(path, line, sizeof line, "");
    return line;
}

std::string value_of(const Thing &thing)
{
    char value[kLine];
    return freadvalue(thing.path, thing.key, value, sizeof value, "");
}

bool is_utf8(const std::string &text)
{
    bool damaged = false;
    clean_utf8(text, damaged);
    return !damaged;
}

template <class Predicate>
bool all_of(const std::string &text, Predicate holds)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [holds](char c) {
        return holds(static_cast<unsigned char>(c)) != 0;
    });
}

Condition check_value(const Thing &thing, bool (*is_sane)(const std::string &), const char *wanted)
{
    const std::string value = value_of(thing);
    if (value.empty())
        return absent("no value");
    return is_sane(value) ? ok(value) : unfit(value + ": not " + wanted);
}

bool is_hex(const std::string &text)
{
    return all_of(text.starts_with("0x") ? text.substr(2) : text, isxdigit);
}

bool is_decimal(const std::string &text)
{
    return all_of(text, isdigit);
}

bool is_serial(const std::string &text)
{
    return text.size() >= kSerialDigits && is_hex(text.substr(0, kSerialDigits));
}

bool is_mac(const std::string &text)
{
    for (size_t at = 0; at < text.size(); ++at)
        if (at % 3 == 2 ? text[at] != ':' : !isxdigit(static_cast<unsigned char>(text[at])))
            return false;
    return text.size() == sizeof "00:11:22:33:44:55" - 1;
}

// A key of the site's file, as discovery reads it.
Condition check_site(const Thing &thing, Condition (*judge)(const std::string &value))
{
    const Config site(parse(thing.path));
    const char *const value = get_value(site.get(), nullptr, "%s", thing.key);
    return value ? judge(value) : absent("no such key");
}

bool is_of(Kind kind, mode_t mode)
{
    switch (kind) {
    case Kind::file:
        return S_ISREG(mode);
    case Kind::folder:
        return S_ISDIR(mode);
    default:
        return S_ISCHR(mode);
    }
}

Condition look_at_path(const Thing &thing)
{
    constexpr const char *kWanted[] = {"file", "folder", "device"};
    struct stat info;
    if (stat(thing.path, &info) != 0)
        return errno == ENOENT || errno == ENOTDIR ? absent("not there") : unfit(strerror(errno));
    if (!is_of(thing.kind, info.st_mode))
        return unfit(std::string("not a ") + kWanted[static_cast<size_t>(thing.kind)]);
    if (access(thing.path, R_OK) != 0)
        return unfit(strerror(errno));
    return thing.check(thing);
}

Condition look_at(const Thing &thing)
{
    switch (thing.kind) {
    case Kind::tool:
        return is_on_path(thing.path) ? thing.check(thing) : absent("not on PATH");
    case Kind::anywhere:
        return thing.check(thing);
    default:
        return look_at_path(thing);
    }
}

} // namespace

const char *word(State state)
{
    switch (state) {
    case State::ok:
        return "ok";
    case State::absent:
        return "absent";
    case State::missing:
        return "missing";
    case State::unfit:
        break;
    }
    return "unfit";
}

Condition examine(const Thing &thing)
{
    Condition condition;
    try {
        condition = look_at(thing);
    } catch (const Failure &failure) {
        condition = unfit(failure.what());
    }
    if (condition.state == State::absent && thing.required)
        condition.state = State::missing;
    return condition;
}

Condition check_presence(const Thing & /*thing*/)
{
    return ok();
}

Condition check_line(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    if (line.empty())
        return unfit("empty");
    return all_of(line, isprint) ? ok(line) : unfit(line + ": not a text");
}

Condition check_heading(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    if (line.empty())
        return unfit("empty");
    return line.find(thing.key) != line.npos
               ? ok()
               : unfit(format("its first line lacks \"%s\"", thing.key));
}

Condition check_text(const Thing &thing)
{
    return check_value(thing, is_utf8, "UTF-8");
}

Condition check_hex(const Thing &thing)
{
    return check_value(thing, is_hex, "hexadecimal");
}

Condition check_decimal(const Thing &thing)
{
    return check_value(thing, is_decimal, "decimal");
}

Condition check_number(const Thing &thing)
{
    const UnitSetting setting = tell(thing.path, freadlong(thing.path, 0));
    return setting.is_told ? ok(std::to_string(setting.value)) : unfit("no number");
}

Condition check_digit(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    return is_decimal(line.substr(0, 1)) ? ok(line.substr(0, 1)) : unfit("no digit");
}

Condition check_flag(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    if (line == "true" || line == "false")
        return ok(line);
    return unfit(line.empty() ? "empty" : line + ": neither true nor false");
}

Condition check_address(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    in_addr address;
    if (inet_aton(line.c_str(), &address) == 0)
        return unfit(line.empty() ? "empty" : line + ": not an IPv4 address");
    return address.s_addr == INADDR_ANY ? unfit(line + ": no address yet") : ok(line);
}

Condition check_interface(const Thing &thing)
{
    const std::string name = first_line(thing.path);
    if (name.empty())
        return unfit("empty");
    return if_nametoindex(name.c_str()) != 0 ? ok(name) : unfit(name + ": no such interface");
}

Condition check_config(const Thing &thing)
{
    const std::string text = read_file(thing.path);
    if (text.find('\0') != text.npos)
        return unfit("NUL bytes in it");
    const Config config = parse_text(text);
    size_t count = 0;
    for (const cfg_entry *entry = config.get(); entry; entry = entry->next)
        ++count;
    return count > 0 ? ok(format("%zu entries", count)) : unfit("no entries");
}

Condition check_system_cfg(const Thing &thing)
{
    struct stat info;
    if (stat(thing.path, &info) == 0 && info.st_mode == (S_IFREG | 0777))
        return unfit("permissions 0777: its services count as none");
    return check_config(thing);
}

Condition check_board(const Thing & /*thing*/)
{
    uint16_t vendor = 0, system = 0;
    if (board_identify_ids(&vendor, &system) != 0)
        return absent("vendorid or systemid is not in it");
    const board_record &record = *board_identify();
    if (vendor == zorv::kBoardVendor && pluvo_get_board(system))
        return ok(map_board_name(&record));
    return unfit(format("vendor 0x%04x, system id 0x%04x: no board of the table", vendor, system));
}

Condition check_serial(const Thing &thing)
{
    return check_value(thing, is_serial, "12 hexadecimal digits");
}

Condition check_mac(const Thing &thing)
{
    Thing other = thing;
    other.key = "wifi0.macaddr";
    if (value_of(thing).empty() && value_of(other).empty())
        return absent("nor a wifi0.macaddr");
    const std::string mac = get_main_mac_str();
    return is_mac(mac) ? ok(mac) : unfit(mac + ": not a MAC address");
}

Condition check_country(const Thing & /*thing*/)
{
    const unsigned code = board_identify()->country_code;
    return code != 0 ? ok(std::to_string(code)) : absent("nor a regdmn[]");
}

Condition check_bomrev(const Thing & /*thing*/)
{
    const uint32_t bomrev = pluvo_get_bomrev();
    return bomrev != 0 ? ok(format("0x%08x", bomrev)) : unfit("no bomrev in it");
}

Condition check_site_key(const Thing &thing)
{
    return check_site(thing, [](const std::string &value) {
        if (value.size() != kKeyDigits)
            return unfit(format("%zu digits in place of %zu", value.size(), kKeyDigits));
        return all_of(value, isxdigit) ? ok() : unfit("not hexadecimal"); // the key is a secret
    });
}

Condition check_site_group(const Thing &thing)
{
    return check_site(thing, [](const std::string &value) {
        in_addr group;
        const bool is_group =
            inet_aton(value.c_str(), &group) != 0 && IN_MULTICAST(ntohl(group.s_addr));
        return is_group ? ok(value) : unfit(value + ": not a multicast address");
    });
}

Condition check_lease(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    return system_dhcp_status() != 0 ? ok(line) : unfit(line + ": no state of the DHCP client");
}

// Either half; the whole is told at both.
Condition check_version(const Thing &thing)
{
    const std::string line = first_line(thing.path);
    if (!is_decimal(line.substr(0, 1)) || !all_of(line, isprint))
        return unfit(line.empty() ? "empty" : line + ": not a version");
    return ok(line);
}

Condition check_build(const Thing &thing)
{
    const std::string type = value_of(thing);
    if (type == "atag")
        return ok("a release");
    return type.empty() ? unfit("no such key") : ok(type + ": no release");
}

Condition check_script(const Thing & /*thing*/)
{
    const char *const script = zorv::find_system_script();
    if (!script)
        return absent("nor in /usr/etc");
    return access(script, X_OK) == 0 ? ok(script)
                                     : unfit(std::string(script) + ": cannot be started");
}

} // namespace ctl
