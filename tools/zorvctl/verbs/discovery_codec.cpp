// discovery_codec.cpp - datagrams made, and taken apart: without a network.
#include "discovery.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include <zorv/log.h>

#include "base/text_file.h"
#include "cfg.h"
#include "core/own.h"
#include "datagram_check.h"
#include "datagram_files.h"
#include "pcap_file.h"

namespace ctl {
namespace {

struct EncodeArgs {
    std::string text;
    std::string output = "-";
    std::string key, key_file, sender;
    std::optional<uint16_t> sequence;
    uint16_t method = 0;
    uint16_t type = 0;
    bool plain = false;
    bool nul = false;
};

struct DecodeArgs {
    std::string path;
    std::string hex;
    std::string key, key_file;
    uint16_t last_sequence = 0;
};

// ---- Keys ----

// A file of 32 digits, or one that says pluvo.key, as the device's does.
std::string digits_in(const std::string &path)
{
    const std::string text = read_input(path);
    const Config site = parse_text(text);
    const char *const digits = site ? get_value(site.get(), nullptr, "pluvo.key") : nullptr;
    return digits ? digits : text;
}

// The key that the command line gives, by itself or in a file; else the device's own, and the
// device's address with it.
zorv_protocol_ctrl_t state_of(const std::string &key, const std::string &key_file)
{
    zorv_protocol_ctrl_t state{};
    if (key.empty() && key_file.empty()) {
        const Transport transport(false);
        return zorv_protocol_ctrl;
    }
    const auto bytes = read_hex(key_file.empty() ? key : digits_in(key_file));
    constexpr char kWanted[] = "a key is 32 hexadecimal digits";
    if (!bytes || bytes->size() != sizeof state.key)
        throw key_file.empty() ? Failure(Exit::usage, kWanted)
                               : Failure(Exit::failed, "format", key_file + ": " + kWanted);
    memcpy(state.key, bytes->data(), sizeof state.key);
    return state;
}

// ---- encode ----

void read_sender(const std::string &text, uint8_t (&mac)[6])
{
    const auto bytes = read_hex(text);
    if (!bytes || bytes->size() != sizeof mac)
        throw Misuse("--sender: \"" + text + "\" is not a MAC address");
    memcpy(mac, bytes->data(), sizeof mac);
}

std::string make_datagram(const EncodeArgs &args)
{
    const std::string message = message_of(args.text, args.nul);
    zorv_protocol_ctrl_t state = state_of(args.key, args.key_file);
    state.own_sequence = args.sequence ? *args.sequence : random_sequence();
    if (!args.sender.empty())
        read_sender(args.sender, state.device);
    const std::unique_ptr<char, zorv::Closer<free>> datagram(
        static_cast<char *>(gen_payload(message.data(), static_cast<int>(message.size()),
                                        args.method, args.type, args.plain ? 0 : 1, &state)));
    if (!datagram)
        throw std::bad_alloc();
    return {datagram.get(), datagram_size(datagram.get())};
}

void encode(const EncodeArgs &args, Reply &reply)
{
    if (args.sequence.value_or(0) > kLastSequence)
        throw Misuse(format("--sequence: \"%u\" is not a whole number from 0 to %u", *args.sequence,
                            kLastSequence));
    const std::string datagram = make_datagram(args);
    reply.document.set("size", datagram.size()).set("hex", hexadecimal(datagram));
    if (args.output == "-")
        reply.text = datagram;
    else
        write_file(args.output, datagram);
}

// ---- decode ----

std::vector<CapturedDatagram> given_datagrams(const DecodeArgs &args)
{
    if (args.hex.empty() == args.path.empty())
        throw Failure(Exit::usage, "decode takes a file or --hex");
    if (!args.hex.empty()) {
        auto bytes = read_hex(args.hex);
        if (!bytes)
            throw Failure(Exit::usage, "--hex: not hexadecimal");
        return {{1, 0, {}, std::move(*bytes)}};
    }
    std::string bytes = read_input(args.path);
    if (is_capture(bytes))
        return read_capture(args.path, bytes, kPort);
    return {{1, 0, {}, std::move(bytes)}};
}

void show_verdict(const CapturedDatagram &datagram, const Verdict &verdict, Value &list,
                  Reply &reply)
{
    Value value = verdict.status == 0
                      ? message_value(*verdict.header, verdict.message)
                      : Value::object().set("failed", verdict.failed).set("detail", verdict.detail);
    value.set("frame", datagram.frame).set("accepted", verdict.status == 0);
    if (!datagram.sender.empty())
        value.set("time", datagram.time).set("address", datagram.sender);
    list.add(value);

    std::string line = format("%llu: ", static_cast<unsigned long long>(datagram.frame));
    if (!datagram.sender.empty())
        line += datagram.sender + ' ';
    if (verdict.status == 0)
        line += message_line(*verdict.header, verdict.message);
    else
        line += format("rejected: %s (%s)", verdict.failed, verdict.detail.c_str());
    reply.line(line);
}

void decode(const DecodeArgs &args, Reply &reply)
{
    const auto datagrams = given_datagrams(args);
    zorv_protocol_ctrl_t state{};
    // A length tells without a key.
    if (std::any_of(datagrams.begin(), datagrams.end(), [](const CapturedDatagram &datagram) {
            return length_fault(datagram.payload).empty();
        }))
        state = state_of(args.key, args.key_file);
    state.last_sequence = args.last_sequence;
    libzorv_log_level = 0; // the reply says it all
    Value list = Value::list();
    for (const CapturedDatagram &datagram : datagrams) {
        const Verdict verdict = check_datagram(datagram.payload, state);
        show_verdict(datagram, verdict, list, reply);
        if (verdict.status == 0)
            state.last_sequence = verdict.header->sequence; // as a receiver keeps it
        else
            reply.exit = Exit::no;
    }
    if (datagrams.empty())
        reply.exit = Exit::no;
    reply.document.set("datagrams", list);
}

constexpr char kKeyHelp[] = "The site key; by default this device's";
constexpr char kKeyFileHelp[] = "The site key from a file, of digits or with pluvo.key";

constexpr Option kEncode[] = {
    option<&EncodeArgs::text>("TEXT", "The message").required(),
    option<&EncodeArgs::method>("--method", "The method's number").required(),
    option<&EncodeArgs::type>("--type", "The type's number, 0 by default"),
    option<&EncodeArgs::sequence>("--sequence", "Its sequence, at random by default"),
    option<&EncodeArgs::sender>("--sender", "The sender's MAC address; by default this device's, "
                                            "and zero with a key of another"),
    option<&EncodeArgs::key>("--key", kKeyHelp),
    option<&EncodeArgs::key_file>("--key-file", kKeyFileHelp).excludes("--key"),
    option<&EncodeArgs::nul>("--nul", "End the message with a NUL byte"),
    option<&EncodeArgs::plain>("--plain", "Do not encrypt; receivers reject such messages"),
    option<&EncodeArgs::output>("--output", "A file for the datagram; - is the standard output"),
};
constexpr Option kDecode[] = {
    option<&DecodeArgs::path>("FILE", "A datagram as it was received, or a packet capture; - is "
                                      "the standard input"),
    option<&DecodeArgs::key>("--key", kKeyHelp),
    option<&DecodeArgs::key_file>("--key-file", kKeyFileHelp).excludes("--key"),
    option<&DecodeArgs::last_sequence>("--last", "The sequence accepted last, 0 by default"),
    option<&DecodeArgs::hex>("--hex", "A datagram as hexadecimal text"),
};

} // namespace

constexpr Verb kDiscoveryCodec[2] = {
    verb<encode>("encode", "Make a datagram, in hexadecimal with --json",
                 "zorvctl discovery encode --key-file site.info --method 5 hello >datagram",
                 kEncode),
    verb<decode>("decode", "Decode datagrams, and say which check one fails",
                 "zorvctl discovery decode --key 000102030405060708090a0b0c0d0e0f capture.pcap",
                 kDecode),
};

} // namespace ctl
