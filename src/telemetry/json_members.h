// json_members.h - the members of an object that telemetry makes.
#ifndef ZORV_TELEMETRY_JSON_MEMBERS_H
#define ZORV_TELEMETRY_JSON_MEMBERS_H

#include <string_view>

#include <jansson.h>

namespace zorv {

// What log lines of a step bear.
struct LogName {
    const char *module;
    const char *function;
};

// The text as a JSON string; NULL when memory is short. JSON holds UTF-8 only: every byte that is
// none becomes U+FFFD, and a debug line says how many.
json_t *text_to_json(std::string_view text, const LogName &log);

// Sets members of an object, which is borrowed. What cannot be set is missing.
class Members {
public:
    Members(json_t *object, const LogName &log) : object_(object), log_(log) {}

    const LogName &log() const { return log_; }

    // False when memory was short for a member, or there is no object.
    bool is_whole() const { return is_whole_; }

    // Takes the value; NULL is one that there was no memory for. Names are ASCII.
    void set(const char *name, json_t *value);

    void set_text(const char *name, std::string_view text);
    void set_number_text(const char *name, int number);

private:
    json_t *object_;
    LogName log_;
    bool is_whole_ = true;
};

} // namespace zorv

#endif
