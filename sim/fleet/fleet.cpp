#include "fleet/fleet.h"

#include <algorithm>
#include <random>

#include "telemetry/back_off.h"

namespace fleet {

namespace {

constexpr int kLongestPause = 3600; // of a daemon that doubles its pauses

struct Unit {
    zorv::TraceBackOff back_off;
    int failures = 0;
    bool is_done = false; // nothing more is sent
    bool is_back = false; // a trace has come through behind the outage
};

class Simulation {
public:
    Simulation(const Scenario &scenario, const Daemon &daemon)
        : scenario_(scenario), daemon_(daemon), units_(static_cast<size_t>(scenario.units)),
          calls_(static_cast<size_t>(scenario.seconds))
    {
        result_.requests.resize(static_cast<size_t>(scenario.seconds));
    }

    Result run()
    {
        for (size_t unit = 0; unit < units_.size(); ++unit)
            plan(unit, scenario_.ready_from + draw(scenario_.ready_for) + draw(daemon_.first));
        for (now_ = 0; now_ < scenario_.seconds; ++now_)
            pass_second();
        return std::move(result_);
    }

private:
    // 0 to limit - 1.
    int draw(int limit)
    {
        return limit > 0 ? static_cast<int>(random_() % static_cast<unsigned>(limit)) : 0;
    }

    void plan(size_t unit, int when)
    {
        if (when < scenario_.seconds)
            calls_[static_cast<size_t>(when)].push_back(unit);
    }

    int pause(const Unit &unit)
    {
        int length = daemon_.period;
        for (int i = 1; daemon_.doubles && i < unit.failures && length < kLongestPause; ++i)
            length *= 2;
        length = std::min(length, std::max(kLongestPause, daemon_.period));
        return daemon_.at_random ? length / 2 + draw(length) : length;
    }

    void pass_second()
    {
        auto &calls = calls_[static_cast<size_t>(now_)];
        std::shuffle(calls.begin(), calls.end(), random_); // nobody is served first for good
        int answered = 0;
        for (const size_t index : calls) {
            Unit &unit = units_[index];
            if (may_send(unit)) {
                result_.requests[static_cast<size_t>(now_)] += kStandsFor;
                const bool is_up = now_ < scenario_.down_from || now_ >= scenario_.down_to;
                const bool has_room =
                    scenario_.capacity == 0 || answered < scenario_.capacity / kStandsFor;
                if (is_up && has_room) {
                    ++answered;
                    succeed(unit);
                } else {
                    fail(unit);
                }
            }
            if (!unit.is_done)
                plan(index, now_ + std::max(pause(unit), 1));
        }
        calls = {};
    }

    bool may_send(const Unit &unit) const
    {
        return scenario_.kind != Kind::trace ||
               (!unit.back_off.has_stopped() && !unit.back_off.is_too_early(milliseconds()));
    }

    void succeed(Unit &unit)
    {
        unit.failures = 0;
        result_.delivered += kStandsFor;
        unit.is_done = scenario_.kind != Kind::trace;
        if (scenario_.kind != Kind::trace || (now_ >= scenario_.down_to && !unit.is_back))
            result_.last_delivered = now_;
        unit.is_back = now_ >= scenario_.down_to;
        unit.back_off.note_attempt(milliseconds());
        unit.back_off.note_answer();
    }

    void fail(Unit &unit)
    {
        ++unit.failures;
        unit.back_off.note_attempt(milliseconds());
        unit.back_off.note_failure();
        if (scenario_.kind == Kind::crash_log && unit.failures >= zorv::kMostAttempts) {
            unit.is_done = true;
            result_.given_up += kStandsFor;
        }
    }

    uint64_t milliseconds() const { return static_cast<uint64_t>(now_ + 1) * 1000; }

    const Scenario &scenario_;
    const Daemon &daemon_;
    std::mt19937 random_{1}; // NOLINT(cert-msc51-cpp): the page shows the same figures each time
    std::vector<Unit> units_;
    std::vector<std::vector<size_t>> calls_; // units that call, for each second
    int now_ = 0;
    Result result_;
};

} // namespace

Result simulate(const Scenario &scenario, const Daemon &daemon)
{
    return Simulation(scenario, daemon).run();
}

} // namespace fleet
