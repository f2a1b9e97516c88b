#include <zorv/guest_portal.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>

#include "core/lines.h"
#include "core/log_gate.h"
#include "platform/item_list.h"

using namespace zorv;

static_assert(offsetof(guest_portal, next) == sizeof(void *) &&
              offsetof(guest_portal, name) == 2 * sizeof(void *) &&
              offsetof(guest_portal, authorized) == 2 * sizeof(void *) + 32 &&
              sizeof(guest_portal) == 5 * sizeof(void *) + 32);

namespace {

constexpr char kModule[] = "guest_portals";
constexpr char kPortals[] = "/var/run/guest/portal";
constexpr size_t kPiece = 128;

using Portal = std::unique_ptr<guest_portal, Closer<free>>;

bool is_separator(char c)
{
    return c == '\n' || c == ',';
}

// The set as its portals link to it: a position in the ring, never looked into as a portal.
guest_portal *end_of(const guest_portal_set *s)
{
    return reinterpret_cast<guest_portal *>(const_cast<guest_portal_set *>(s));
}

// Bears the name that its messages carry.
buffer *fill_portal_buffer_file(const char *name, const char *file)
{
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s/%s/%s", kPortals, name, file);
    const File stream(fopen(path, "re"));
    if (!stream) {
        log_debug("Couldn't open %s", path);
        return nullptr;
    }
    buffer *const text = buffer_create();
    if (!text) {
        log_error("Not enough memory for buffer: %s", path);
        return nullptr;
    }
    Lines<kPiece> lines(stream.get());
    while (const char *const line = lines.next()) {
        if (*line == '\0' || text->append(text, line, strlen(line)) > 0)
            continue;
        log_error("Couldn't read all of %s. Only have %d bytes", path,
                  static_cast<int>(text->length(text)));
        return text;
    }
    if (!ferror(stream.get()))
        return text;
    log_error("Couldn't read %s", path);
    buffer_destroy(text);
    return nullptr;
}

void destroy(buffer *&text)
{
    buffer_destroy(text);
    text = nullptr;
}

// Whether the list in a buffer, whose text has no NUL at its end, has the item.
bool lists(buffer *list, const char *item)
{
    return list && item && *item != '\0' &&
           has_item({reinterpret_cast<const char *>(list->data(list)), list->length(list)}, item);
}

// The first portal for which the predicate holds.
template <class Predicate>
guest_portal *find_portal(const guest_portal_set *s, Predicate holds)
{
    if (!s)
        return nullptr;
    for (guest_portal *p = s->next; p != end_of(s); p = p->next)
        if (holds(p))
            return p;
    return nullptr;
}

} // namespace

namespace zorv {

bool has_item(std::string_view text, std::string_view item)
{
    const char *at = text.data();
    const char *const begin = at, *const end = at + text.size();
    while (at < end) {
        const auto found = static_cast<const char *>(
            memmem(at, static_cast<size_t>(end - at), item.data(), item.size()));
        if (!found)
            return false;
        const char *const behind = found + item.size();
        if ((found == begin || is_separator(found[-1])) && (behind == end || is_separator(*behind)))
            return true;
        // The next that counts follows a separator, which may be part of this one.
        at = std::find_if(found, end, is_separator);
        at += at < end ? 1 : 0;
    }
    return false;
}

} // namespace zorv

void guest_portal_init(guest_portal *p)
{
    if (p)
        *p = {};
}

void guest_portal_read(guest_portal *p, const char *name)
{
    if (!p || !name)
        return;
    copy_text(p->name, sizeof p->name, name);
    p->authorized = fill_portal_buffer_file(name, "authorized");
    p->devnames = fill_portal_buffer_file(name, "devnames");
    p->vlans = fill_portal_buffer_file(name, "vlans");
}

void guest_portal_clear(guest_portal *p)
{
    if (!p)
        return;
    destroy(p->authorized);
    destroy(p->devnames);
    destroy(p->vlans);
}

int guest_portal_is_auth(const guest_portal *p, const char *client)
{
    return p && lists(p->authorized, client);
}

int guest_portal_has_device(const guest_portal *p, const char *dev)
{
    return p && lists(p->devnames, dev);
}

void guest_portal_set_init(guest_portal_set *s)
{
    if (s)
        s->prev = s->next = end_of(s);
}

void guest_portal_set_add(guest_portal_set *s, guest_portal *p)
{
    if (!s || !p)
        return;
    p->prev = end_of(s);
    p->next = s->next;
    if (s->next == end_of(s))
        s->prev = p;
    else
        s->next->prev = p;
    s->next = p;
}

void guest_portal_set_read(guest_portal_set *s)
{
    if (!s)
        return;
    const Dir folder(opendir(kPortals));
    if (!folder) {
        log_error("Couldn't open guest dir %s", kPortals);
        return;
    }
    while (const dirent *const entry = (errno = 0, readdir(folder.get()))) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
            continue;
        Portal portal(static_cast<guest_portal *>(malloc(sizeof(guest_portal))));
        if (!portal) {
            log_error("Couldn't allocate portal for %s", entry->d_name);
            continue;
        }
        guest_portal_init(portal.get());
        guest_portal_read(portal.get(), entry->d_name);
        guest_portal_set_add(s, portal.release());
    }
    if (errno != 0)
        log_error("Couldn't read guest dir %s", kPortals);
}

void guest_portal_set_clear(guest_portal_set *s)
{
    if (!s)
        return;
    for (guest_portal *p = s->next; p != end_of(s);) {
        const Portal portal(std::exchange(p, p->next));
        guest_portal_clear(portal.get());
    }
    guest_portal_set_init(s);
}

unsigned guest_portal_set_count(const guest_portal_set *s)
{
    unsigned count = 0;
    find_portal(s, [&count](const guest_portal *) {
        ++count;
        return false; // on to the next
    });
    return count;
}

guest_portal *guest_portal_from_device(const guest_portal_set *s, const char *dev)
{
    return find_portal(s, [dev](const guest_portal *p) { return guest_portal_has_device(p, dev); });
}

guest_portal *guest_portal_from_name(const guest_portal_set *s, const char *name)
{
    return find_portal(
        s, [name](const guest_portal *p) { return name && strcmp(p->name, name) == 0; });
}

guest_portal *guest_portal_from_vlan(const guest_portal_set *s, int vlan)
{
    char item[sizeof "2147483647"];
    if (vlan < 0)
        return nullptr;
    snprintf(item, sizeof item, "%d", vlan);
    return find_portal(s, [&item](const guest_portal *p) { return lists(p->vlans, item); });
}
