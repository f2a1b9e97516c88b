// portal.cpp - guest portals: what there is, who may pass, who serves whom.
#include <zorv/guest_portal.h>

#include <optional>

#include <cstdlib>

#include "base/ask.h"
#include "base/cli.h"
#include "base/text_file.h"
#include "base/words.h"

namespace ctl {
namespace {

constexpr char kPortals[] = "/var/run/guest/portal";

struct AuthArgs {
    std::string portal, client;
};

struct FindArgs {
    std::optional<std::string> device, name;
    std::optional<int> vlan;
};

// The library leaves a list out, or cuts it, where it could not be read.
void expect_whole(const std::string &path, buffer *list)
{
    if (!list && !exists(path))
        return;
    if (read_file(path).size() != (list ? list->length(list) : 0))
        throw Failure(Exit::failed, path + ": could not be read as a whole");
}

class Portals {
public:
    Portals() { guest_portal_set_init(&set_); }
    Portals(const Portals &) = delete;
    Portals &operator=(const Portals &) = delete;
    ~Portals() { guest_portal_set_clear(&set_); }

    void add(const std::string &name)
    {
        auto *const portal = static_cast<guest_portal *>(calloc(1, sizeof(guest_portal)));
        if (!portal)
            throw std::bad_alloc();
        guest_portal_set_add(&set_, portal);
        guest_portal_read(portal, name.c_str());
        const std::string folder = kPortals + ("/" + name);
        expect_whole(folder + "/authorized", portal->authorized);
        expect_whole(folder + "/devnames", portal->devnames);
        expect_whole(folder + "/vlans", portal->vlans);
    }

    const guest_portal_set *get() const { return &set_; }

private:
    guest_portal_set set_;
};

// Adds all portals of the unit at this moment, in the library's order.
void read(Portals &portals)
{
    if (!exists(kPortals))
        throw Failure(Exit::unavailable, std::string(kPortals) + ": no guest portals");
    for (const std::string &name : names_in(kPortals))
        portals.add(name);
}

// The items of a list; null for a list that is not there.
Value items(buffer *list)
{
    if (!list)
        return {};
    Value found = Value::list();
    std::string_view text(reinterpret_cast<const char *>(list->data(list)), list->length(list));
    for (std::string_view item; !(item = take_word(text, ",\n")).empty();)
        found.add(item);
    return found;
}

void list(const NoArgs &, Reply &reply)
{
    Portals portals;
    read(portals);
    Value found = Value::list();
    const guest_portal *p = portals.get()->next;
    for (unsigned left = guest_portal_set_count(portals.get()); left > 0; --left, p = p->next)
        found.add(Value::object()
                      .set("name", p->name)
                      .set("authorized", items(p->authorized))
                      .set("devnames", items(p->devnames))
                      .set("vlans", items(p->vlans)));
    reply.table("portals", found, {"name", "vlans", "devnames", "authorized"});
}

void auth(const AuthArgs &args, Reply &reply)
{
    Portals portals;
    read(portals);
    const guest_portal *const portal = guest_portal_from_name(portals.get(), args.portal.c_str());
    if (!portal)
        throw Failure(Exit::no, args.portal + ": no such portal");
    const bool may_pass = guest_portal_is_auth(portal, args.client.c_str()) != 0;
    reply.document.set("portal", args.portal)
        .set("client", args.client)
        .set("authorized", may_pass);
    reply.line(may_pass ? "yes" : "no");
    reply.exit = may_pass ? Exit::done : Exit::no;
}

const guest_portal *find_portal(const guest_portal_set *set, const FindArgs &args)
{
    if (args.device)
        return guest_portal_from_device(set, args.device->c_str());
    if (args.name)
        return guest_portal_from_name(set, args.name->c_str());
    return guest_portal_from_vlan(set, *args.vlan);
}

void find(const FindArgs &args, Reply &reply)
{
    if (args.device.has_value() + args.name.has_value() + args.vlan.has_value() != 1)
        throw Misuse("one of --device, --name and --vlan is wanted");
    Portals portals;
    read(portals);
    const guest_portal *const portal = find_portal(portals.get(), args);
    if (!portal)
        throw Failure(Exit::no, "no portal serves that");
    reply.document.set("portal", portal->name);
    reply.line(portal->name);
}

constexpr Option kAuth[] = {
    option<&AuthArgs::portal>("PORTAL", "The portal's name").required(),
    option<&AuthArgs::client>("CLIENT", "The client, as the portal writes it").required(),
};
constexpr Option kFind[] = {
    option<&FindArgs::device>("--device", "A network device"),
    option<&FindArgs::name>("--name", "A name"),
    option<&FindArgs::vlan>("--vlan", "A VLAN id"),
};

constexpr Verb kVerbs[] = {
    verb<list>("list", "List the portals, the one that is asked first on top",
               "zorvctl portal list"),
    verb<auth>("auth", "Tell whether a client may pass a portal",
               "zorvctl portal auth hotel 02:a0:f1:00:00:07", kAuth),
    verb<find>("find", "Print the name of the portal that serves a device or a VLAN",
               "zorvctl portal find --vlan 20", kFind),
};

} // namespace

extern const Family portal_family = {"portal", "Guest portals and whom they let pass", {kVerbs}};

} // namespace ctl
