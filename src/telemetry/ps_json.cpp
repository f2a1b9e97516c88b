#include <zorv/ps.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "telemetry/ps_list.h"
#include "telemetry/ps_names.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_proc";

// Sets a member. What is not UTF-8, or has no memory, gave no value and is left out.
void set(json_t *object, const char *name, json_t *value)
{
    if (value)
        json_object_set_new_nocheck(object, name, value);
}

// Names of tables are ASCII and need no check.
json_t *to_json(const char *name)
{
    return json_string_nocheck(name);
}

json_t *port_to_json(uint32_t port)
{
    return port != 0 ? json_integer(port) : to_json("*");
}

json_t *inet_to_json(const zorv_inet_socket &socket)
{
    json_t *const object = json_object();
    set(object, "local_port", port_to_json(socket.local_port));
    set(object, "remote_port", port_to_json(socket.remote_port));
    set(object, "state", to_json(name_of(kInetStates, socket.state)));
    return object;
}

json_t *unix_to_json(const zorv_unix_socket &socket)
{
    json_t *const object = json_object();
    set(object, "refcnt", json_integer(socket.references));
    set(object, "type", to_json(name_of(kUnixTypes, socket.type)));
    if (socket.path)
        set(object, "path", json_string(socket.path));
    set(object, "state", to_json(name_of(kUnixStates, socket.state)));
    return object;
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
    json_t *const object = json_object();
    set(object, "fd_type", to_json(name_of(kFdKinds, record.kind)));
    if (record.kind == ZORV_FD_SOCKET && record.target.socket) {
        const zorv_socket_record &socket = *record.target.socket;
        set(object, "socket_type", to_json(name_of(kSocketKinds, socket.kind)));
        set(object, "socket", socket_to_json(socket));
    } else if (has_link(record) && record.target.link) {
        set(object, "link", json_string(record.target.link));
    }
    return object;
}

json_t *process_to_json(zorv_ps_record &record)
{
    json_t *const object = json_object();
    set(object, "pid", json_integer(record.pid));
    set(object, "ppid", json_integer(record.ppid));
    set(object, "vsz", json_integer(static_cast<json_int_t>(record.vsz)));
    set(object, "rss", json_integer(record.rss));
    set(object, "stat", json_stringn(&record.state, 1));
    set(object, "fd_count", json_integer(record.fd_count));
    set(object, "comm", json_string(record.comm));
    set(object, "fds", zorv_fds_to_array(&record));
    return object;
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
