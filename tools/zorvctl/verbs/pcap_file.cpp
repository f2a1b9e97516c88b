#include "pcap_file.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#ifdef ZORVCTL_PCAP
#include <dlfcn.h>
#include <pcap/pcap.h>
#endif

#include "base/output.h"
#include "core/dlopen_note.h"
#include "core/own.h"

namespace ctl {

bool is_capture(std::string_view bytes)
{
    using namespace std::string_view_literals;
    constexpr std::string_view kBeginnings[] = {
        "\xa1\xb2\xc3\xd4"sv, "\xd4\xc3\xb2\xa1"sv, // pcap, microseconds
        "\xa1\xb2\x3c\x4d"sv, "\x4d\x3c\xb2\xa1"sv, // nanoseconds
        "\x0a\x0d\x0d\x0a"sv,                       // pcapng
    };
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                       [bytes](std::string_view begin) { return bytes.starts_with(begin); });
}

#ifdef ZORVCTL_PCAP
namespace {

// The functions of libpcap that are called here. It is loaded for a capture alone: it brings others
// that no other verb needs.
struct Libpcap {
    decltype(&pcap_fopen_offline_with_tstamp_precision) open;
    decltype(&pcap_close) close;
    decltype(&pcap_datalink) datalink;
    decltype(&pcap_next_ex) next;
    decltype(&pcap_geterr) error;
};

#define LIBPCAP "libpcap.so.1"
#define LIBPCAP_OF_DEBIAN "libpcap.so.0.8"
ZORV_DLOPEN_NOTE kNote = zorv::dlopen_note(
    R"([{"soname":[")" LIBPCAP R"(",")" LIBPCAP_OF_DEBIAN
    R"("],"feature":"pcap","description":"Packet captures","priority":"suggested"}])");

template <class Function>
void find(void *library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (!function)
        throw Failure(Exit::unavailable, dlerror());
}

Libpcap load_libpcap()
{
    void *library = dlopen(LIBPCAP, RTLD_NOW);
    if (!library)
        library = dlopen(LIBPCAP_OF_DEBIAN, RTLD_NOW);
    if (!library)
        throw Failure(Exit::unavailable,
                      std::string("a packet capture takes libpcap: ") + dlerror());
    Libpcap pcap;
    find(library, "pcap_fopen_offline_with_tstamp_precision", pcap.open);
    find(library, "pcap_close", pcap.close);
    find(library, "pcap_datalink", pcap.datalink);
    find(library, "pcap_next_ex", pcap.next);
    find(library, "pcap_geterr", pcap.error);
    return pcap;
}

// A capture that is open.
class Capture {
public:
    Capture(const std::string &path, std::string &bytes) : path_(path), pcap_(load_libpcap())
    {
        zorv::File file(fmemopen(bytes.data(), bytes.size(), "r"));
        if (!file)
            throw io_failure(path, errno);
        char error[PCAP_ERRBUF_SIZE];
        handle_ = pcap_.open(file.get(), PCAP_TSTAMP_PRECISION_NANO, error);
        if (!handle_)
            fail(error);
        static_cast<void>(file.release()); // it closes it
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    ~Capture()
    {
        if (handle_)
            pcap_.close(handle_);
    }

    int link_type() const { return pcap_.datalink(handle_); }

    // False at the end.
    bool next(pcap_pkthdr *&header, const u_char *&bytes)
    {
        const int result = pcap_.next(handle_, &header, &bytes);
        if (result != 1 && result != PCAP_ERROR_BREAK)
            fail(pcap_.error(handle_));
        return result == 1;
    }

    [[noreturn]] void fail(const std::string &fault) const
    {
        throw Failure(Exit::failed, "format", path_ + ": " + fault);
    }

private:
    const std::string &path_;
    Libpcap pcap_;
    pcap_t *handle_ = nullptr;
};

} // namespace

std::vector<CapturedDatagram> read_capture(const std::string &path, std::string &bytes,
                                           uint16_t port)
{
    Capture capture(path, bytes);
    const int link_type = capture.link_type();
    if (!is_known_link(link_type))
        capture.fail(format("link type %d is not supported", link_type));
    std::vector<CapturedDatagram> datagrams;
    pcap_pkthdr *header;
    const u_char *frame;
    for (uint64_t number = 1; capture.next(header, frame); ++number) {
        const double time = static_cast<double>(header->ts.tv_sec) +
                            static_cast<double>(header->ts.tv_usec) * 1e-9; // as it was asked for
        CapturedDatagram datagram{number, time, {}, {}};
        if (take_datagram({reinterpret_cast<const char *>(frame), header->caplen}, link_type, port,
                          datagram))
            datagrams.push_back(std::move(datagram));
    }
    return datagrams;
}

#else

std::vector<CapturedDatagram> read_capture(const std::string &path, std::string & /*bytes*/,
                                           uint16_t /*port*/)
{
    throw Failure(Exit::unavailable,
                  path + ": a packet capture, and zorvctl was built without libpcap");
}

#endif

} // namespace ctl
