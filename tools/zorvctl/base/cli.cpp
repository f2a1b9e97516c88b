#include "base/cli.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <zorv/log.h>
#include <zorv/version.h>

namespace ctl {
namespace {

constexpr char kExitCodes[] = "Exit status: 0 done or yes, 1 no, not found or different, 2 usage,\n"
                              "3 not available on this device, 4 refused, 5 input, output or "
                              "network failure.\n";

// Looked up before anything is parsed: a command line that makes no sense is answered in JSON, too.
bool wants_json(int argc, const char *const *argv)
{
    const auto *const end =
        std::find_if(argv, argv + argc, [](const char *word) { return strcmp(word, "--") == 0; });
    return std::any_of(argv, end, [](const char *word) { return strcmp(word, "--json") == 0; });
}

// The value between the angle brackets of a build string.
std::string build_value(const char *text)
{
    const std::string whole(text);
    const size_t begin = whole.find('<') + 1;
    return whole.substr(begin, whole.find('>') - begin);
}

void show_version(Reply &reply)
{
    reply.document.set("version", ZORVCTL_VERSION)
        .set("git_hash", build_value(zorv_git_hash))
        .set("git_tag", build_value(zorv_git_tag));
    reply.line("zorvctl " ZORVCTL_VERSION);
    reply.line(zorv_git_hash);
    reply.line(zorv_git_tag);
}

std::string help_command(const CLI::App &root)
{
    std::string command = "zorvctl";
    for (const CLI::App *app = &root; !app->get_subcommands().empty();) {
        app = app->get_subcommands().back();
        command += " " + app->get_name();
    }
    return command + " --help";
}

// The parser asks for a missing verb before it complains about words that it does not know.
std::string usage_message(const CLI::App &root, const CLI::ParseError &error)
{
    const std::vector<std::string> unknown = root.remaining(true);
    if (dynamic_cast<const CLI::RequiredError *>(&error) && !unknown.empty())
        return "unknown word: " + unknown.front();
    return error.what();
}

} // namespace

Cli::Cli()
    : root_(std::make_unique<CLI::App>("The command-line face of the appliance's utility library.",
                                       "zorvctl"))
{
    root_->set_help_flag("-h,--help", "Show how it is used, with an example")
        ->group("Common options");
    root_
        ->set_version_flag("--version", ZORVCTL_VERSION, "Show the version and the source revision")
        ->group("Common options");
    root_->require_subcommand(1);
    root_->footer(kExitCodes);
    add_common_options(*root_);
}

Cli::~Cli() = default;

// Every level has the common options, so that they may stand anywhere on the command line. Letting
// unknown words fall through to the parent instead would take a file named "cfg" for a family.
void Cli::add_common_options(CLI::App &app)
{
    app.add_flag("--json")
        ->description("Answer with exactly one JSON document")
        ->disable_flag_override()
        ->group("Common options");
    app.add_flag_function(
           "-v,--verbose", [this](std::int64_t count) { verbosity_ += static_cast<int>(count); },
           "Show more of the library's messages; may be repeated")
        ->disable_flag_override()
        ->group("Common options");
}

CLI::App *Cli::add(CLI::App &parent, const char *name, const char *description)
{
    CLI::App *app = parent.add_subcommand(name, description);
    app->get_help_ptr()->group("Common options");
    add_common_options(*app);
    return app;
}

Family Cli::family(const char *name, const char *description)
{
    CLI::App *app = add(*root_, name, description);
    app->require_subcommand(1);
    return {*this, *app};
}

Family Cli::root()
{
    return {*this, *root_};
}

Options Family::add(const char *name, const char *description, const std::string &example,
                    std::function<void(Reply &)> run)
{
    CLI::App *app = cli_.add(app_, name, description);
    app->footer("Example:\n  " + example);
    app->callback([this_cli = &cli_, run = std::move(run)] { this_cli->chosen_ = run; });
    return Options(app);
}

Reply Cli::answer(int argc, const char *const *argv, bool json)
{
    Reply reply(json);
    try {
        root_->parse(argc, argv);
    } catch (const CLI::CallForVersion &) {
        show_version(reply);
        return reply;
    } catch (const CLI::CallForHelp &) {
        reply.text = root_->help();
        reply.document.set("help", reply.text);
        return reply;
    } catch (const CLI::ParseError &error) {
        throw Failure(Exit::usage,
                      usage_message(*root_, error) + " (see: " + help_command(*root_) + ")");
    }
    constexpr int kLevels[] = {1, 4, 8, 16}; // errors; warnings and news; debug; everything
    libzorv_log_level =
        kLevels[std::min<size_t>(static_cast<size_t>(verbosity_), std::size(kLevels) - 1)];
    libzorv_log_use_syslog = 0;
    chosen_(reply);
    return reply;
}

int Cli::run(int argc, const char *const *argv)
{
    const bool json = wants_json(argc, argv);
    try {
        return deliver(answer(argc, argv, json));
    } catch (const Failure &failure) {
        return deliver(failure, json);
    } catch (const std::bad_alloc &) {
        return deliver(Failure(Exit::failed, "memory", "out of memory"), json);
    }
}

} // namespace ctl
