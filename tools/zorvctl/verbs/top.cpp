#include <algorithm>
#include <clocale>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <ncurses.h>
#include <poll.h>
#include <unistd.h>
#include <zorv/log.h>

#include "base/cli.h"
#include "diagnostics.h"

namespace ctl {
namespace {

constexpr size_t kTalkers = 5;

struct TopArgs {
    double delay = 2;
};

// The terminal while the live view has it; usable() is false when it cannot be drawn on.
class Screen {
public:
    Screen() : screen_(newterm(nullptr, stdout, stdin))
    {
        if (!screen_)
            return;
        cbreak();
        noecho();
        nodelay(stdscr, TRUE);
        curs_set(0);
    }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;
    ~Screen()
    {
        if (!screen_)
            return;
        endwin();
        delscreen(screen_);
    }

    bool usable() const { return screen_ != nullptr; }

private:
    SCREEN *screen_;
};

void show_memory(Reply &reply)
{
    const Value memory = memory_value();
    const auto member = [&memory](const char *name) {
        return json_number_value(json_object_get(memory.get(), name));
    };
    reply.document.set("memory", memory);
    reply.line(format("memory  %.1f %% of %.0f kB used, %.0f kB available", member("used_percent"),
                      member("MemTotal"), member("MemAvailable")));
}

void show_talkers(Reply &reply)
{
    const Hosts hosts(get_top_conntrack_hosts());
    if (!hosts) {
        reply.document.set("hosts", Value());
        return;
    }
    reply.table("hosts", hosts_value(*hosts, kTalkers), {"host", "count"});
    if (hosts->hosts)
        reply.line("");
}

// The largest first.
void show_processes(Reply &reply)
{
    const PsList list = list_processes(false);
    std::vector<const zorv_ps_record *> records;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        records.push_back(record);
    std::stable_sort(records.begin(), records.end(),
                     [](const auto *a, const auto *b) { return a->rss > b->rss; });
    Value processes = Value::list();
    for (const zorv_ps_record *process : records)
        processes.add(process_value(*process));
    reply.table("processes", processes,
                {"pid", "ppid", "stat", "rss", "vsz", "fd_count", "comm", "cmdline"});
}

void show_all(Reply &reply)
{
    show_memory(reply);
    reply.line("");
    show_talkers(reply);
    show_processes(reply);
}

// As many code points as there are columns.
std::string_view clip(std::string_view line, int columns)
{
    size_t end = 0;
    for (; end < line.size(); ++end) {
        const bool begins = (static_cast<unsigned char>(line[end]) & 0xc0) != 0x80;
        if (begins && columns-- <= 0)
            break;
    }
    return line.substr(0, end);
}

void paint(std::string_view text)
{
    erase();
    for (int row = 0; row < LINES && !text.empty(); ++row) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = clip(text.substr(0, end), COLS);
        mvaddnstr(row, 0, line.data(), static_cast<int>(line.size()));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    refresh();
}

// Waits for the next round; true when the user, or the terminal, goes.
bool wants_to_quit(int milliseconds)
{
    pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
    if (poll(&keyboard, 1, milliseconds) <= 0) // a signal: the window has changed its size
        return false;
    for (int key = getch(); key != ERR; key = getch()) {
        if (key == 'q' || key == 'Q')
            return true;
    }
    return (keyboard.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void live(double delay)
{
    libzorv_log_level = 0; // messages would be written across the picture
    do {
        Reply reply(false);
        show_all(reply);
        paint(reply.text);
    } while (!wants_to_quit(static_cast<int>(delay * 1000)));
}

void top(const TopArgs &args, Reply &reply)
{
    if (!reply.json() && isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)) {
        setlocale(LC_CTYPE, "");
        const Screen screen;
        if (screen.usable())
            return live(args.delay);
    }
    show_all(reply);
}

constexpr Option kOptions[] = {
    option<&TopArgs::delay>("-d", "Seconds between two pictures, 2 unless given").range(0.1, 3600),
};

constexpr Verb kVerbs[] = {
    verb<top>("top", "Watch memory, connections and processes; q quits", "zorvctl top", kOptions),
};

} // namespace

extern const Family top_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
