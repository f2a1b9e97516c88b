// crash_deliver.cpp - delivering the store's logs, each shown as it is done.
//
// The library delivers in one call, so a child makes it, and its work on the metas shows how far it
// has come: it opens the meta of a log before, and closes it when done with the log.
#include <zorv/crash.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <map>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorv/format.h>
#include <zorv/log.h>

#include "base/cli.h"
#include "crash.h"
#include "telemetry/crash_store.h"

namespace ctl {
namespace {

constexpr size_t kTicks = 24; // of the bar

struct DeliverArgs {
    std::string uplink;
};

// Of how many the result is known, on a terminal. Lines are the reply's.
class Bar {
public:
    Bar(size_t total, Reply &reply) : total_(total), reply_(reply) {}

    void advance() { ++count_; }

    void draw(const std::string &name)
    {
        const size_t ticks = std::min(count_ * kTicks / total_, kTicks);
        const std::string line = "[" + std::string(ticks, '=') + std::string(kTicks - ticks, ' ') +
                                 "] " + std::to_string(count_) + "/" + std::to_string(total_) +
                                 " " + printable(name);
        winsize window = {};
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &window);
        const size_t columns =
            window.ws_col > 1 ? window.ws_col - 1U : 79; // the last one would wrap
        reply_.text = "\r\x1b[K" + line.substr(0, columns);
        reply_.flush();
    }

    void clear()
    {
        reply_.text = "\r\x1b[K";
        reply_.flush();
    }

private:
    size_t total_, count_ = 0;
    Reply &reply_;
};

// What becomes of the logs.
class Results {
public:
    Results(const std::vector<CrashLog> &logs, bool with_bar, Reply &reply)
        : list_(Value::list()), reply_(reply)
    {
        for (const CrashLog &log : logs)
            if (awaits_delivery(log))
                waiting_.emplace(log.name, log);
        if (with_bar && !waiting_.empty())
            bar_.emplace(waiting_.size(), reply);
    }

    bool is_empty() const { return waiting_.empty(); }

    // The library has begun with a log.
    void begin(const std::string &name)
    {
        if (bar_ && waiting_.contains(name))
            bar_->draw(name);
    }

    // It may be done with a log: while another process has the meta, it closes that more than once.
    void look_at(const std::string &name)
    {
        const auto found = waiting_.find(name);
        if (found == waiting_.end())
            return;
        CrashLog log = found->second;
        update(log);
        if (is_settled(log) || log.attempts > found->second.attempts) {
            waiting_.erase(found);
            show(log);
        }
    }

    // What the library has not tried is in the hands of another process, or has a meta that is
    // unfit.
    void finish()
    {
        while (!waiting_.empty()) {
            const std::string name = waiting_.begin()->first;
            look_at(name);
            const auto found = waiting_.find(name);
            if (found == waiting_.end())
                continue;
            const CrashLog log = found->second;
            waiting_.erase(found);
            add(log, "passed-over", "passed over");
        }
        Value counts = Value::object();
        for (const char *const result : {"delivered", "failed", "given-up", "passed-over"})
            counts.set(result, counts_[result]);
        reply_.document.set("logs", list_).set("counts", counts);
        if (list_.size() == 0)
            reply_.line("no log to deliver");
        if (counts_["delivered"] != list_.size())
            reply_.exit = Exit::failed;
    }

private:
    void show(const CrashLog &log)
    {
        if (log.state == LogState::delivered)
            add(log, "delivered", "delivered");
        else if (log.state == LogState::given_up)
            add(log, "given-up", format("given up after %ld attempts", log.attempts));
        else
            add(log, "failed",
                format("failed, attempt %ld of %d", log.attempts, zorv::kMostAttempts));
    }

    void add(const CrashLog &log, const char *result, const std::string &words)
    {
        ++counts_[result];
        list_.add(Value::object()
                      .set("name", log.name)
                      .set("result", result)
                      .set("attempts", log.attempts));
        if (bar_)
            bar_->clear();
        reply_.line(printable(log.name) + "  " + words);
        reply_.flush();
        if (!bar_)
            return;
        bar_->advance();
        if (waiting_.empty())
            bar_.reset();
        else
            bar_->draw("");
    }

    std::map<std::string, CrashLog> waiting_;
    std::map<std::string, size_t> counts_;
    Value list_;
    std::optional<Bar> bar_;
    Reply &reply_;
};

// The process that delivers. The reading end of a pipe, which only the child writes to, ends with
// it.
struct Child {
    pid_t pid;
    zorv::Fd alive;
};

[[noreturn]] void deliver_logs(const DeliverArgs &args, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM); // who ends the verb means the delivery
    if (getppid() != parent)
        _exit(1);
    dup2(STDERR_FILENO, STDOUT_FILENO); // the answer is the parent's
    _exit(check_vwire_disconnect_logs(args.uplink.empty() ? nullptr : args.uplink.c_str(), 1) == 0
              ? 0
              : 1);
}

Child start(const DeliverArgs &args)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw io_failure("pipe", errno);
    Child child = {0, zorv::Fd(ends[0])};
    const zorv::Fd writing(ends[1]);
    const pid_t parent = getpid();
    child.pid = fork();
    if (child.pid < 0)
        throw io_failure("fork", errno);
    if (child.pid == 0)
        deliver_logs(args, parent);
    return child;
}

void read_events(const zorv::Fd &watch, Results &results)
{
    alignas(inotify_event) char events[1 << 14];
    for (ssize_t length; (length = read(watch.get(), events, sizeof events)) > 0;) {
        for (const char *at = events; at < events + length;) {
            const auto *const event = reinterpret_cast<const inotify_event *>(at);
            at += sizeof *event + event->len;
            const std::string name = event->len > 0 ? event->name : "";
            if (event->mask & IN_OPEN)
                results.begin(name);
            else
                results.look_at(name);
        }
    }
}

// Follows the child to its end.
void follow(const Child &child, const zorv::Fd &watch, Results &results)
{
    pollfd sources[] = {{child.alive.get(), 0, 0}, {watch.get(), POLLIN, 0}};
    while (!(sources[0].revents & POLLHUP)) {
        if (poll(sources, std::size(sources), -1) < 0 && errno != EINTR)
            throw io_failure("poll", errno);
        read_events(watch, results);
    }
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR)
        ;
    if (WIFSIGNALED(status))
        throw Failure(Exit::failed,
                      format("the delivery was ended by signal %d", WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0)
        throw Failure(Exit::failed, std::string(zorv::kMetas) + ": cannot be made");
}

// Without a watch, all is shown at the end.
zorv::Fd watch_metas()
{
    zorv::Fd watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    vq_mkdir_p(zorv::kMetas, 0755); // as the delivery would; what fails is told there
    inotify_add_watch(watch.get(), zorv::kMetas, IN_OPEN | IN_CLOSE_WRITE);
    return watch;
}

void deliver_all(const DeliverArgs &args, Reply &reply)
{
    expect_open_gates();
    const bool with_bar = !reply.json() && libzorv_log_level == 1 && isatty(STDOUT_FILENO);
    Results results(list_logs(), with_bar, reply);
    if (!results.is_empty()) {
        if (with_bar)
            libzorv_log_level = 0; // messages would be written across the bar
        const zorv::Fd watch = watch_metas();
        follow(start(args), watch, results);
    }
    results.finish();
}

constexpr Option kOptions[] = {
    option<&DeliverArgs::uplink>("--uplink", "Model of the uplink, for logs that are new"),
};

} // namespace

constexpr Verb kCrashDeliver[1] = {
    verb<deliver_all>("deliver", "Deliver the store's logs to the crash service",
                      "zorvctl crash deliver --uplink QX-4", kOptions),
};

} // namespace ctl
