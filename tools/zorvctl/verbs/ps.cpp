#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/ask.h"
#include "base/cli.h"
#include "diagnostics.h"
#include "telemetry/ps_names.h"

namespace ctl {
namespace {

struct PsArgs {
    bool fds = false;
    std::string name;
    std::optional<int> key;
};

bool stands_before(int key, const zorv_ps_record &a, const zorv_ps_record &b)
{
    switch (key) {
    case 0:
        return a.pid < b.pid;
    case 1:
        return a.ppid < b.ppid;
    case kByRss:
        return a.rss > b.rss;
    case 3:
        return a.vsz > b.vsz;
    case 4:
        return a.fd_count > b.fd_count;
    default:
        return strcmp(a.comm, b.comm) < 0;
    }
}

int has_other_name(zorv_ps_record *record, void *name)
{
    return *static_cast<const std::string *>(name) != record->comm;
}

Value port_value(uint32_t port)
{
    return port != 0 ? Value(port) : Value("*");
}

void set_inet(Value &object, const zorv_inet_socket &socket)
{
    object.set("state", zorv::name_of(zorv::kInetStates, socket.state))
        .set("local_port", port_value(socket.local_port))
        .set("remote_port", port_value(socket.remote_port));
}

void set_unix(Value &object, const zorv_unix_socket &socket)
{
    object.set("state", zorv::name_of(zorv::kUnixStates, socket.state))
        .set("type", zorv::name_of(zorv::kUnixTypes, socket.type))
        .set("refcnt", socket.references);
    if (socket.path)
        object.set("path", socket.path);
}

// Adds what is known of a socket, which may be nothing.
void set_socket(Value &object, const zorv_socket_record *socket)
{
    const uint32_t kind = socket ? socket->kind : uint32_t{ZORV_SOCKET_UNKNOWN};
    object.set("socket_type", zorv::name_of(zorv::kSocketKinds, kind));
    if (kind == ZORV_SOCKET_UNIX)
        set_unix(object, *socket->data.local);
    else if (socket)
        set_inet(object, *socket->data.inet);
}

Value fd_value(const zorv_fd_record &fd)
{
    Value object = Value::object();
    object.set("fd_type", zorv::name_of(zorv::kFdKinds, fd.kind));
    if (fd.kind == ZORV_FD_SOCKET)
        set_socket(object, fd.target.socket);
    else
        object.set("link", fd.target.link);
    return object;
}

Value fds_value(const zorv_ps_record &record)
{
    Value list = Value::list();
    for (const zorv_fd_record *fd = record.fds.first; fd; fd = fd->next)
        list.add(fd_value(*fd));
    return list;
}

Value process_value(const zorv_ps_record &record)
{
    Value object = Value::object();
    object.set("pid", record.pid)
        .set("ppid", record.ppid)
        .set("stat", std::string_view(&record.state, 1))
        .set("rss", record.rss)
        .set("vsz", record.vsz)
        .set("fd_count", record.fd_count)
        .set("comm", record.comm)
        .set("cmdline", record.cmdline);
    return object;
}

std::vector<const zorv_ps_record *> sorted(const zorv_ps_list &list, std::optional<int> key)
{
    std::vector<const zorv_ps_record *> records;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, &list)) {
        const auto place = std::upper_bound(
            records.begin(), records.end(), record,
            [&key](const auto *a, const auto *b) { return key && stands_before(*key, *a, *b); });
        records.insert(place, record);
    }
    return records;
}

// The library goes on without the tables of sockets when one of them cannot be read to its end.
void expect_sockets(const zorv_ps_list &list)
{
    if (!list.sockets)
        throw Failure(Exit::failed, "/proc/net: the tables of sockets cannot be read");
}

// For people each process has a table of its descriptors below it.
void show_with_fds(const zorv_ps_list &list, std::optional<int> key, Reply &reply)
{
    Value processes = Value::list();
    for (const zorv_ps_record *record : sorted(list, key)) {
        const Value fds = fds_value(*record);
        processes.add(process_value(*record).set("fds", fds));
        Reply text = reply.blank();
        text.line(format("%d  ", record->pid) + printable(record->comm));
        text.table(
            "fds", fds,
            {"fd_type", "link", "socket_type", "state", "local_port", "remote_port", "path"});
        reply.text += text.text;
    }
    reply.document.set("processes", processes);
}

void ps(const PsArgs &args, Reply &reply)
{
    const PsList list = list_processes(args.fds, args.name);
    if (args.fds) {
        expect_sockets(*list);
        show_with_fds(*list, args.key, reply);
    } else {
        show_processes(*list, args.key, reply);
    }
    if (!args.name.empty() && list->count == 0)
        reply.exit = Exit::no;
}

// A process whose descriptors were not read passes for one that has none.
void expect_descriptors(const zorv_ps_record &process)
{
    const std::string folder = format("/proc/%d", process.pid);
    if (process.fd_count < 0 && exists(folder))
        throw Failure(Exit::failed, folder + "/fd: cannot be read");
}

void sockets(const PsArgs &args, Reply &reply)
{
    for (const char *const table : {"unix", "tcp", "tcp6", "udp", "udp6"})
        expect_readable(std::string("/proc/net/") + table);
    const PsList list = list_processes(true, args.name);
    expect_sockets(*list);
    Value rows = Value::list();
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get())) {
        if (!args.name.empty())
            expect_descriptors(*record);
        for (const zorv_fd_record *fd = record->fds.first; fd; fd = fd->next) {
            if (fd->kind != ZORV_FD_SOCKET)
                continue;
            Value row = Value::object();
            set_socket(row, fd->target.socket);
            rows.add(row.set("pid", record->pid).set("comm", record->comm));
        }
    }
    reply.table("sockets", rows,
                {"pid", "comm", "socket_type", "state", "local_port", "remote_port", "path"});
    if (!args.name.empty() && rows.size() == 0)
        reply.exit = Exit::no;
}

constexpr Option kPs[] = {
    option<&PsArgs::fds>("--fds", "Show every open descriptor"),
    option<&PsArgs::name>("--name", "Only processes of this name"),
    option<&PsArgs::key>("--sort", "Sizes and counts the largest first")
        .words("pid|ppid|rss|vsz|fd_count|comm"),
};
constexpr Option kSockets[] = {
    option<&PsArgs::name>("--name", "Only those of processes of this name"),
};

constexpr Verb kVerbs[] = {
    verb<ps>("ps", "List processes, and what they have open", "zorvctl ps --sort rss --no-header",
             kPs),
    verb<sockets>("sockets", "List open sockets with their owners", "zorvctl sockets --json",
                  kSockets),
};

} // namespace

PsList list_processes(bool with_fds, const std::string &name)
{
    PsList list(zorv_ps_filter(with_fds ? 1 : 0, name.empty() ? nullptr : has_other_name,
                               const_cast<std::string *>(&name)));
    if (!list)
        throw io_failure("/proc", errno);
    return list;
}

void show_processes(const zorv_ps_list &list, std::optional<int> key, Reply &reply)
{
    Value processes = Value::list();
    for (const zorv_ps_record *record : sorted(list, key))
        processes.add(process_value(*record));
    reply.table("processes", processes,
                {"pid", "ppid", "stat", "rss", "vsz", "fd_count", "comm", "cmdline"});
}

extern const Family ps_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
