// model.cpp - the families of models that the unit belongs to.
#include <zorv/model.h>

#include <algorithm>
#include <iterator>

#include "base/cli.h"
#include "board.h"

namespace ctl {
namespace {

struct ModelArgs {
    std::string name;
};

constexpr struct {
    const char *name;
    int (*holds)();
} kPredicates[] = {
    {"is_gen1", is_gen1},
    {"is_gen2", is_gen2},
    {"is_gen3", is_gen3},
    {"is_gen3_HT", is_gen3_HT},
    {"is_single_5ghz_gen3", is_single_5ghz_gen3},
    {"is_kbr5", is_kbr5},
    {"is_kbr6", is_kbr6},
    {"is_kbr6_enterprise", is_kbr6_enterprise},
    {"is_kbr6_birch_lt", is_kbr6_birch_lt},
    {"is_qca_ap", is_qca_ap},
    {"is_wifi_only", is_wifi_only},
    {"is_force_detect_loop", is_force_detect_loop},
    {"is_qm", is_qm},
    {"is_router_to_mesh", is_router_to_mesh},
};

void show_all(Reply &reply)
{
    reply.document.set("system_id", format("0x%04x", identify_board().system_id));
    Value list = Value::list();
    for (const auto &predicate : kPredicates)
        list.add(Value::object().set("class", predicate.name).set("holds", predicate.holds() != 0));
    reply.table("classes", list, {"class", "holds"});
}

void show_model(const ModelArgs &args, Reply &reply)
{
    if (args.name.empty())
        return show_all(reply);
    const auto *const predicate =
        std::find_if(std::begin(kPredicates), std::end(kPredicates),
                     [&](const auto &row) { return args.name == row.name; });
    if (predicate == std::end(kPredicates))
        throw Misuse(args.name + ": no such class");
    identify_board();
    const bool holds = predicate->holds() != 0;
    reply.document.set("class", args.name).set("holds", holds);
    reply.line(holds ? "yes" : "no");
    reply.exit = holds ? Exit::done : Exit::no;
}

constexpr Option kOptions[] = {
    option<&ModelArgs::name>("CLASS", "Ask for one class only: yes is exit 0, no is exit 1"),
};

constexpr Verb kVerbs[] = {
    verb<show_model>("model", "Tell which families of models the unit belongs to",
                     "zorvctl model is_gen2 && echo yes", kOptions),
};

} // namespace

extern const Family model_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
