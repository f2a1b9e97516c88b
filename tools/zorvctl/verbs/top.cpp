#include <algorithm>
#include <clocale>
#include <optional>
#include <string>
#include <string_view>

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
    std::optional<size_t> pictures;
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

void show_all(Reply &reply)
{
    show_memory(reply);
    reply.line("");
    show_talkers(reply);
    show_processes(*list_processes(false), kByRss, reply);
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

int milliseconds(const TopArgs &args)
{
    return static_cast<int>(args.delay * 1000);
}

void live(const TopArgs &args, const Reply &kind)
{
    libzorv_log_level = 0; // messages would be written across the picture
    do {
        Reply reply = kind.blank();
        show_all(reply);
        paint(reply.text);
    } while (!wants_to_quit(milliseconds(args)));
}

// One below the other; the document is of the last one.
void show_pictures(const TopArgs &args, Reply &reply)
{
    for (size_t number = 0; number < *args.pictures; ++number) {
        if (number > 0) {
            poll(nullptr, 0, milliseconds(args));
            reply.line("");
        }
        show_all(reply);
        reply.flush();
    }
}

void top(const TopArgs &args, Reply &reply)
{
    if (args.pictures)
        return show_pictures(args, reply);
    if (!reply.json() && isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)) {
        setlocale(LC_CTYPE, "");
        const Screen screen;
        if (screen.usable())
            return live(args, reply);
    }
    show_all(reply);
}

constexpr Option kOptions[] = {
    option<&TopArgs::delay>("-d", "Seconds between two pictures, 2 unless given").range(0.1, 3600),
    option<&TopArgs::pictures>("-n", "Print so many pictures, one below the other, and end"),
};

constexpr Verb kVerbs[] = {
    verb<top>("top", "Watch memory, connections and processes; q quits", "zorvctl top -n 3 -d 10",
              kOptions),
};

} // namespace

extern const Family top_family = {nullptr, nullptr, {kVerbs}};

} // namespace ctl
