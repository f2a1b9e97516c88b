#include <zorv/ps.h>

#include <jansson.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "telemetry/json_members.h"
#include "telemetry/ps_list.h"
#include "telemetry/ps_names.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";

// Names of tables are ASCII and need no check.
json_t *to_json(const char *name)
{
    return json_string_nocheck(name);
}

json_t *port_to_json(uint32_t port)
{
    return port != 0 ? json_integer(port) : to_json("*");
}

// What these make is whole, or NULL when memory is short.
json_t *whole(Json object, const Members &members)
{
    return members.is_whole() ? object.release() : nullptr;
}

json_t *inet_to_json(const zorv_inet_socket &socket)
{
    Json object(json_object());
    Members members(object.get(), {kModule, "zorv_fds_to_array"});
    members.set("local_port", port_to_json(socket.local_port));
    members.set("remote_port", port_to_json(socket.remote_port));
    members.set("state", to_json(name_of(kInetStates, socket.state)));
    return whole(std::move(object), members);
}

json_t *unix_to_json(const zorv_unix_socket &socket)
{
    Json object(json_object());
    Members members(object.get(), {kModule, "zorv_fds_to_array"});
    members.set("refcnt", json_integer(socket.references));
    members.set("type", to_json(name_of(kUnixTypes, socket.type)));
    if (socket.path)
        members.set_text("path", socket.path);
    members.set("state", to_json(name_of(kUnixStates, socket.state)));
    return whole(std::move(object), members);
}

json_t *socket_to_json(const zorv_socket_record &socket)
{
    switch (socket.kind) {
    case ZORV_SOCKET_UNIX:
        return unix_to_json(*socket.data.local);
    case ZORV_SOCKET_TCP:
    case ZORV_SOCKET_TCP6:
    case ZORV_SOCKET_UDP:
    case ZORV_SOCKET_UDP6:
        return inet_to_json(*socket.data.inet);
    default: // no cache has one
        return json_object();
    }
}

bool has_link(const zorv_fd_record &record)
{
    return record.kind == ZORV_FD_FILE || record.kind == ZORV_FD_ANON ||
           record.kind == ZORV_FD_PIPE;
}

json_t *fd_to_json(const zorv_fd_record &record)
{
    Json object(json_object());
    Members members(object.get(), {kModule, "zorv_fds_to_array"});
    members.set("fd_type", to_json(name_of(kFdKinds, record.kind)));
    if (record.kind == ZORV_FD_SOCKET && record.target.socket) {
        const zorv_socket_record &socket = *record.target.socket;
        members.set("socket_type", to_json(name_of(kSocketKinds, socket.kind)));
        members.set("socket", socket_to_json(socket));
    } else if (has_link(record) && record.target.link) {
        members.set_text("link", record.target.link);
    }
    return whole(std::move(object), members);
}

json_t *process_to_json(zorv_ps_record &record)
{
    Json object(json_object());
    Members members(object.get(), {kModule, "zorv_ps_list_to_array"});
    members.set("pid", json_integer(record.pid));
    members.set("ppid", json_integer(record.ppid));
    members.set("vsz", json_integer(static_cast<json_int_t>(record.vsz)));
    members.set("rss", json_integer(record.rss));
    members.set_text("stat", {&record.state, 1});
    members.set("fd_count", json_integer(record.fd_count));
    if (record.comm)
        members.set_text("comm", record.comm);
    members.set("fds", zorv_fds_to_array(&record));
    return whole(std::move(object), members);
}

} // namespace

json_t *zorv_fds_to_array(zorv_ps_record *record)
{
    json_t *const array = json_array();
    if (!array) {
        log_error("Failed to allocate json array");
        return nullptr;
    }
    const zorv_fd_record *fd = record ? record->fds.first : nullptr;
    for (; fd; fd = fd->next) {
        if (json_array_append_new(array, fd_to_json(*fd)) != 0)
            log_error("Failed to allocate json object");
    }
    return array;
}

json_t *zorv_ps_list_to_array(zorv_ps_list *list)
{
    const PsList owner(list);
    json_t *const array = json_array();
    if (!array) {
        log_error("Failed to allocate json array");
        return nullptr;
    }
    while (const Record record = list ? take_first(*list) : nullptr) {
        if (json_array_append_new(array, process_to_json(*record)) != 0)
            log_error("Failed to allocate json object");
    }
    return array;
}
