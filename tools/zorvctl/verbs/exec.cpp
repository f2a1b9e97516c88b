#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>
#include <zorv/exec.h>

#include "base/cli.h"
#include "core/own.h"
#include "exec/syswrapper.h"

namespace ctl {
namespace {

// Arguments that the call below has room for: one more than a run takes, so that it is told.
constexpr size_t kArguments = zorv::SystemVector::kWords - 2 + 1;

struct ExecArgs {
    std::string word;
    std::vector<std::string> arguments;
    bool no_wait = false;
};

// While it lives, what children print goes to standard error, and the JSON document stands alone.
class DivertOutput {
public:
    DivertOutput() : saved_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    DivertOutput(const DivertOutput &) = delete;
    DivertOutput &operator=(const DivertOutput &) = delete;
    ~DivertOutput() { dup2(saved_.get(), STDOUT_FILENO); }

private:
    zorv::Fd saved_;
};

const char *script_or_failure()
{
    const char *script = zorv::find_system_script();
    if (!script)
        throw Failure(Exit::unavailable, std::string("neither ") + zorv::kSystemScripts[0] +
                                             " nor " + zorv::kSystemScripts[1] + " can be read");
    return script;
}

template <size_t... Slot>
void call(const ExecArgs &args, std::index_sequence<Slot...>)
{
    std::array<const char *, kArguments> words = {};
    for (size_t i = 0; i < args.arguments.size() && i < kArguments; ++i)
        words[i] = args.arguments[i].c_str();
    syswrapper_impl(args.no_wait ? 0 : 1, args.word.c_str(), words[Slot]..., nullptr);
}

void exec_run(const ExecArgs &args, Reply &reply)
{
    const char *script = script_or_failure();
    reply.document.set("script", script).set("word", args.word).set("waited", !args.no_wait);
    std::optional<DivertOutput> divert;
    if (reply.json())
        divert.emplace();
    errno = 0;
    call(args, std::make_index_sequence<kArguments>());
    if (errno != 0)
        throw io_failure(script, errno);
}

// What a run would do, from the same rules.
void exec_explain(const ExecArgs &args, Reply &reply)
{
    const char *script = script_or_failure();
    zorv::SystemVector vector(script, args.word.c_str());
    Value slots = Value::list();
    const auto show = [&slots](const std::string &text, bool passed) {
        Value slot = Value::object();
        slots.add(slot.set("slot", slots.size()).set("text", text).set("passed", passed));
    };
    show(script, true);
    show(args.word, true);
    for (const std::string &argument : args.arguments) {
        const bool passed = !vector.is_full();
        if (passed)
            vector.add(argument.c_str());
        show(argument, passed);
    }

    Value facts = Value::object();
    reply.pairs(facts.set("script", script)
                    .set("executable", access(script, X_OK) == 0)
                    .set("logged", args.word != "reload")
                    .set("too_many", vector.is_full()));
    reply.table("vector", slots, {"slot", "text", "passed"});
}

constexpr Option kWords[] = {
    option<&ExecArgs::word>("WORD", "The script's first argument").required(),
    option<&ExecArgs::arguments>(
        "ARG", "Further arguments, up to 48; \"--\" before the first lets them begin with \"-\""),
    option<&ExecArgs::no_wait>("--no-wait", "Detach the script and return at once"),
};

constexpr Verb kVerbs[] = {
    verb<exec_run>("run", "Run the system script; its exit code is not known",
                   "zorvctl exec run --no-wait reload", kWords),
    verb<exec_explain>("explain", "Show the script and its vector, and what would be cut",
                       "zorvctl exec explain save-config -- -f", std::span(kWords).first(2)),
};

} // namespace

extern const Family exec_family = {
    "exec", "Run the system script, or show what would run", {kVerbs}};

} // namespace ctl
