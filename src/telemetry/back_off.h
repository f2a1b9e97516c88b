// back_off.h - how often deliveries to the cloud's services are tried: pure rules, without a clock.
#ifndef ZORV_TELEMETRY_BACK_OFF_H
#define ZORV_TELEMETRY_BACK_OFF_H

#include <cstdint>

namespace zorv {

inline constexpr int kMostAttempts = 5; // at delivering a crash log

// When traces may be tried. Times are in milliseconds.
class TraceBackOff {
public:
    // On purpose nothing leads back from here: the next chance is the next start of the daemon.
    bool has_stopped() const { return delay_ > kDay; }
    bool is_too_early(uint64_t now) const { return now < last_attempt_ + delay_; }

    void note_attempt(uint64_t now) { last_attempt_ = now; }

    void note_answer()
    {
        delay_ = 0;
        failures_ = 0;
    }

    void note_failure()
    {
        if (++failures_ > kFreeFailures)
            delay_ = delay_ == 0 ? kFirst : delay_ * 2;
    }

private:
    static constexpr int kFreeFailures = 4;    // in a row, before the back-off begins
    static constexpr uint64_t kFirst = 1000;   // of the back-off
    static constexpr uint64_t kDay = 86400000; // a longer back-off has no end

    uint64_t delay_ = 0;        // 0 after an answer of the service
    uint64_t last_attempt_ = 0; // since 1970
    int32_t failures_ = 0;      // in a row
};

} // namespace zorv

#endif
