// Draws what a million units ask of the cloud's services: fleet FOLDER
//
// Writes a picture for each case, fleet-NAME.svg, and prints the table of docs/fleet.md.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>

#include "fleet/fleet.h"

using namespace fleet;

namespace {

constexpr int kUnits = 1'000'000 / kStandsFor;

struct Case {
    const char *name, *title;
    Scenario scenario;
    Daemon simple, careful;
};

// A simple daemon calls as soon as it can, and by the wall clock, whose minutes are everyone's.
const Case kCases[] = {
    {.name = "crash-wave",
     .title = "A crash wave: a kernel report of a million units, 2,000 requests/s answered",
     .scenario = {.kind = Kind::kernel_report,
                  .units = kUnits,
                  .seconds = 7200,
                  .ready_from = 60,
                  .ready_for = 60,
                  .capacity = 2000},
     .simple = {.first = 0, .period = 60},
     .careful = {.first = 3600, .period = 60, .at_random = true, .doubles = true}},
    {.name = "crash-logs",
     .title = "Crash logs of 50,000 units, and a service that is down for an hour",
     .scenario = {.kind = Kind::crash_log,
                  .units = kUnits / 20,
                  .seconds = 14400,
                  .ready_from = 600,
                  .down_from = 600,
                  .down_to = 4200},
     .simple = {.first = 0, .period = 300},
     .careful = {.first = 300, .period = 1800, .at_random = true}},
    {.name = "traces",
     .title =
         "A batch of traces each minute of a million units, and a service that is down for an hour",
     .scenario =
         {.kind = Kind::trace, .units = kUnits, .seconds = 9000, .down_from = 600, .down_to = 4200},
     .simple = {.first = 0, .period = 60},
     .careful = {.first = 60, .period = 60, .at_random = true}},
    {.name = "power-cut",
     .title = "A batch of traces each minute of 200,000 units whose power comes back",
     .scenario = {.kind = Kind::trace,
                  .units = kUnits / 5,
                  .seconds = 1800,
                  .ready_from = 60,
                  .ready_for = 20},
     .simple = {.first = 0, .period = 60},
     .careful = {.first = 60, .period = 60, .at_random = true}},
};

int64_t worst(const Result &result, size_t seconds)
{
    int64_t most = 0;
    for (size_t at = 0; at + seconds <= result.requests.size(); at += seconds)
        most = std::max(most,
                        std::accumulate(result.requests.begin() + static_cast<long>(at),
                                        result.requests.begin() + static_cast<long>(at + seconds),
                                        int64_t{0}));
    return most;
}

// 1234567 as 1,234,567.
std::string grouped(int64_t number)
{
    const std::string digits = std::to_string(number);
    std::string text;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0)
            text += ',';
        text += digits[i];
    }
    return text;
}

std::string minutes(int seconds)
{
    return seconds < 0 ? "never" : std::to_string((seconds + 59) / 60) + " min";
}

void print_row(const Case &at, const char *daemon, const Result &result)
{
    const int64_t all = std::accumulate(result.requests.begin(), result.requests.end(), int64_t{0});
    const int since = at.scenario.down_to > 0 ? at.scenario.down_to : at.scenario.ready_from;
    std::printf("| %s, %s | %s | %s | %s | %s | %s |\n", at.name, daemon,
                grouped(worst(result, 1)).c_str(), grouped(worst(result, 60)).c_str(),
                grouped(all).c_str(), grouped(result.given_up).c_str(),
                minutes(result.last_delivered - since).c_str());
}

// Mean requests a second in steps of time.
std::vector<double> curve(const Result &result, size_t step)
{
    std::vector<double> points;
    for (size_t at = 0; at + step <= result.requests.size(); at += step)
        points.push_back(static_cast<double>(std::accumulate(
                             result.requests.begin() + static_cast<long>(at),
                             result.requests.begin() + static_cast<long>(at + step), int64_t{0})) /
                         static_cast<double>(step));
    return points;
}

constexpr double kLeft = 90, kTop = 50, kWidth = 740, kHeight = 230;

// A number of the form 1, 2 or 5 times a power of ten, at least this large.
double round_up(double most)
{
    const double power = std::pow(10, std::floor(std::log10(most)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= most)
            return factor * power;
    return 10 * power;
}

void draw_axes(FILE *out, const Case &at, double top)
{
    for (int i = 0; i <= 4; ++i) {
        const double y = kTop + kHeight * (4 - i) / 4;
        std::fprintf(out, "<path class=\"grid\" d=\"M%g %gh%g\"/>\n", kLeft, y, kWidth);
        std::fprintf(out, "<text x=\"%g\" y=\"%g\" text-anchor=\"end\">%s</text>\n", kLeft - 8,
                     y + 4, grouped(static_cast<int64_t>(top * i / 4)).c_str());
    }
    const int step = at.scenario.seconds / 60 / 6;
    for (int i = 0; i <= 6; ++i)
        std::fprintf(out, "<text x=\"%g\" y=\"%g\" text-anchor=\"middle\">%d min</text>\n",
                     kLeft + kWidth * i / 6, kTop + kHeight + 20, i * step);
}

void draw_outage(FILE *out, const Scenario &scenario)
{
    if (scenario.down_to == 0)
        return;
    const double scale = kWidth / scenario.seconds;
    std::fprintf(out, "<rect class=\"down\" x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\"/>\n",
                 kLeft + scale * scenario.down_from, kTop,
                 scale * (scenario.down_to - scenario.down_from), kHeight);
}

void draw_curve(FILE *out, const char *kind, const std::vector<double> &points, double top)
{
    std::fprintf(out, "<polyline class=\"%s\" points=\"", kind);
    for (size_t i = 0; i < points.size(); ++i)
        std::fprintf(out, "%.0f,%.1f ",
                     kLeft + kWidth * (static_cast<double>(i) + 0.5) /
                                 static_cast<double>(points.size()),
                     kTop + kHeight * (1 - points[i] / top));
    std::fprintf(out, "\"/>\n");
}

bool draw(const std::string &path, const Case &at, const Result &simple, const Result &careful)
{
    FILE *const out = std::fopen(path.c_str(), "we");
    if (!out)
        return false;
    const auto step = static_cast<size_t>(at.scenario.seconds > 3600 ? 60 : 5);
    const auto first = curve(simple, step), second = curve(careful, step);
    const double top = round_up(std::max(*std::max_element(first.begin(), first.end()),
                                         *std::max_element(second.begin(), second.end())));
    std::fprintf(
        out,
        R"(<svg xmlns="http://www.w3.org/2000/svg" width="860" height="320" viewBox="0 0 860 320" font-family="sans-serif" font-size="12">
<title>%s</title>
<style>.grid{stroke:#ddd}.down{fill:#eee}.simple{stroke:#c05621}.careful{stroke:#2a7f62}polyline{fill:none;stroke-width:1.5}</style>
<rect width="860" height="320" fill="white"/>
<text x="%g" y="18" font-size="14">%s</text>
<text x="%g" y="36">requests a second, mean of %zu s; orange: calls at once and by the clock; green: calls spread</text>
)",
        at.title, kLeft, at.title, kLeft, step);
    draw_outage(out, at.scenario);
    draw_axes(out, at, top);
    draw_curve(out, "simple", first, top);
    draw_curve(out, "careful", second, top);
    std::fprintf(out, "</svg>\n");
    return std::fclose(out) == 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fleet FOLDER\n");
        return 2;
    }
    std::puts("| case, daemon | worst second | worst minute | requests in all | given up | all are "
              "in after |\n"
              "|---|---|---|---|---|---|");
    for (const Case &at : kCases) {
        const Result simple = simulate(at.scenario, at.simple),
                     careful = simulate(at.scenario, at.careful);
        print_row(at, "at once", simple);
        print_row(at, "spread", careful);
        if (!draw(std::string(argv[1]) + "/fleet-" + at.name + ".svg", at, simple, careful)) {
            std::perror(argv[1]);
            return 1;
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
