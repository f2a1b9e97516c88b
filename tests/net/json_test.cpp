#include <zorv/json.h>

#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/device.h"
#include "support/json.h"

namespace {

using Stream = std::unique_ptr<FILE, decltype(&fclose)>;
using TextPtr = std::unique_ptr<char, decltype(&free)>;

using JsonHelpers = Device;

Stream opened(const char *path)
{
    return {fopen(path, "re"), fclose};
}

// A file's Base64, or "none" and what was logged.
std::string encoded(FILE *stream)
{
    const TextPtr text(load_file_base64(stream), free);
    std::string result = text ? text.get() : "none";
    for (const std::string &line : Device::logged())
        result += " " + line;
    return result;
}

} // namespace

// A member as text, as yes or no, as two integers with a default, and as a number that may stand
// in a text, with what is said of one that does not.
TEST_F(JsonHelpers, GettersTakeTheirTypeOrTheDefault)
{
    libzorv_log_level = 8;
    const Json json = loaded(R"({"s":"text","e":"","d":"12 dB","h":" 0x1f","o":"010","i":-7,"z":0,
        "max":9223372036854775807,"big":4294967297,"t":true,"f":false,"r":1.5,"n":null,"a":[1]})");
    json_t *const obj = json.get();
    const std::string at = "[debug] libzorv_util.zorv_json_integer_value_from_obj(): ";
    const std::string no_number = "JSON object is of type ", neither = ", not a string or integer";
    const struct {
        const char *key, *values;
        std::string message;
    } rows[] = {
        {"s", "text 7 7 7, 0 9", "invalid integer 'text' in object radio, key s"},
        {"e", " 7 7 7, 0 9", "invalid integer '' in object radio, key e"},
        {"d", "12 dB 7 7 7, 1 12", ""},
        {"h", " 0x1f 7 7 7, 1 31", ""},
        {"o", "010 7 7 7, 1 8", ""},
        {"i", "none 1 -7 -7, 2 -7", ""},
        {"z", "none 0 0 0, 2 0", ""},
        {"max", "none 1 9223372036854775807 9223372036854775807, 2 -1", ""},
        {"big", "none 1 4294967297 4294967297, 2 1", ""},
        {"t", "none 1 7 7, 0 9", no_number + "5" + neither + ", obj_name radio, key t"},
        {"f", "none 0 7 7, 0 9", no_number + "6" + neither + ", obj_name radio, key f"},
        {"r", "none 7 7 7, 0 9", no_number + "4" + neither + ", obj_name radio, key r"},
        {"n", "none 7 7 7, 0 9", no_number + "7" + neither + ", obj_name radio, key n"},
        {"a", "none 7 7 7, 0 9", no_number + "1" + neither + ", obj_name radio, key a"},
        {"x", "none 7 7 7, 0 9", "no obj for obj_name radio, key x"},
    };
    for (const auto &row : rows) {
        int value = 9;
        const int found = zorv_json_integer_value_from_obj(obj, "radio", row.key, 1, &value);
        testing::Message values;
        values << zorv_json_get_str(obj, row.key, "none") << ' '
               << zorv_json_get_bool(obj, row.key, 7) << ' ' << zorv_json_read_long(obj, row.key, 7)
               << ' ' << zorv_json_read_i64(obj, row.key, 7) << ", " << found << ' ' << value;
        EXPECT_EQ(values.GetString(), row.values) << row.key;
        const auto lines = logged();
        EXPECT_EQ(lines.empty() ? "" : lines.back(), row.message.empty() ? "" : at + row.message);
    }
    for (json_t *const none : {static_cast<json_t *>(nullptr), json_object_get(obj, "a")})
        for (const char *const key : {"s", static_cast<const char *>(nullptr)}) {
            EXPECT_EQ(zorv_json_get_str(none, key, nullptr), nullptr);
            EXPECT_EQ(zorv_json_get_bool(none, key, -3), -3);
            EXPECT_EQ(zorv_json_read_long(none, key, -3), -3);
            EXPECT_EQ(zorv_json_read_i64(key ? none : obj, key, -3), -3);
        }
    int value = 9;
    EXPECT_EQ(zorv_json_integer_value_from_obj(obj, "radio", "i", 0, &value), 0);
    EXPECT_EQ(zorv_json_integer_value_from_obj(obj, "radio", "d", 0, &value), 1);
    EXPECT_EQ(zorv_json_integer_value_from_obj(obj, "radio", "i", 1, nullptr), 0);
    EXPECT_THAT(logged(),
                ElementsAre(at + "JSON object as integer is not acceptable, obj_name radio, key i",
                            "[error] libzorv_util.zorv_json_integer_value_from_obj(): NULL pointer "
                            "provided for value, obj_name radio, key i"));
}

TEST_F(JsonHelpers, CountersAndArraysGrow)
{
    const Json json = loaded(R"({"some":[1,"2",3.5,null,-4,[5]],"none":["1"],"empty":[],"n":5,
                                    "s":"5","max":9223372036854775807})");
    json_t *const obj = json.get();
    long *numbers = nullptr;
    size_t count = 9;
    for (const char *const key : {"empty", "n", "missing"})
        EXPECT_EQ(zorv_json_read_array(obj, key, &numbers, &count), -1) << key;
    EXPECT_EQ(count, 9U);
    EXPECT_EQ(zorv_json_read_array(obj, "none", &numbers, &count), -1);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(numbers, nullptr);
    ASSERT_EQ(zorv_json_read_array(obj, "some", &numbers, &count), 0);
    EXPECT_THAT(std::vector<long>(numbers, numbers + count), ElementsAre(1, -4));
    free(numbers);

    EXPECT_EQ(zorv_json_add_long(obj, "n", -7), 0);
    EXPECT_EQ(zorv_json_add_i64(obj, "new", 3), 0);
    EXPECT_EQ(zorv_json_add_long(obj, "s", 1), 0); // was no integer
    EXPECT_EQ(zorv_json_add_i64(obj, "max", 1), 0);
    EXPECT_EQ(zorv_json_append_array(obj, "empty", 1), 0);
    EXPECT_EQ(zorv_json_append_array(obj, "list", 2), 0);
    EXPECT_EQ(zorv_json_append_array(obj, "n", 2), 0); // no array, no failure
    for (const auto &[none, key] : {std::pair{static_cast<json_t *>(nullptr), "n"},
                                    {json_object_get(obj, "list"), "n"},
                                    {obj, nullptr}}) {
        EXPECT_EQ(zorv_json_add_long(none, key, 1), -1);
        EXPECT_EQ(zorv_json_add_i64(none, key, 1), -1);
        EXPECT_EQ(zorv_json_append_array(none, key, 1), -1);
        EXPECT_EQ(zorv_json_maybe_append_array(none, key, 1), -1);
    }
    EXPECT_EQ(dumped(obj), R"({"some":[1,"2",3.5,null,-4,[5]],"none":["1"],"empty":[1],"n":-2,)"
                           R"("s":1,"max":-9223372036854775808,"new":3,"list":[2]})");
}

TEST_F(JsonHelpers, ASeriesKeepsItsDistance)
{
    const Json json = loaded("{}");
    zorv_set_ts(100);
    EXPECT_EQ(zorv_json_maybe_append_array(json.get(), "n", 1), 0);
    EXPECT_EQ(dumped(json.get()), R"({"nTime":100,"nArray":[1]})");

    // The clock may go back, and lie far in the past or in the future.
    const long times[] = {LONG_MIN, -5, 0, 1, 50, 100, 109, 110, 159, 160, LONG_MAX};
    for (const long last : times)
        for (const long now : times)
            for (const char *const interval : {"", "\"nInterval\":60,"}) {
                SCOPED_TRACE(testing::Message() << last << " " << now << interval);
                const double least = *interval ? 60 : 10;
                const bool is_soon = static_cast<double>(now) - static_cast<double>(last) < least;
                const auto series = [&](long time, const char *values) {
                    return "{" + (interval + ("\"nTime\":" + std::to_string(time))) +
                           ",\"nArray\":[" + values + "]}";
                };
                const Json appended = loaded(series(last, "3"));
                zorv_set_ts(now);
                const int result = zorv_json_maybe_append_array(appended.get(), "n", 4);
                EXPECT_EQ(result, last != 0 && is_soon ? -2 : 0);
                EXPECT_EQ(dumped(appended.get()), result ? series(last, "3") : series(now, "3,4"));
            }
    const Json none = loaded(R"({"nTime":null,"nArray":"none"})");
    EXPECT_EQ(zorv_json_maybe_append_array(none.get(), "n", 8), -1);

    const std::string longest(31, 'k');
    EXPECT_EQ(zorv_json_maybe_append_array(none.get(), longest.c_str(), 1), 0);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(zorv_json_maybe_append_array(none.get(), (longest + "k").c_str(), 1), -1);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.zorv_json_maybe_append_array(): key "
                                      "too long: " +
                                          longest + "k",
                                      ""));
    EXPECT_EQ(json_object_size(none.get()), 4U);

    // One of 360 is halved and its interval doubled.
    zorv_set_ts(1000);
    for (const size_t count : {359U, 360U, 361U, 5000U}) {
        std::string before, after;
        for (size_t i = 0; i < count; ++i) {
            before += std::to_string(i) + ",";
            if (count == 359 || i % 2 == 0)
                after += std::to_string(i) + ",";
        }
        before.pop_back();
        const Json series = loaded("{\"nArray\":[" + before + "]}");
        EXPECT_EQ(zorv_json_maybe_append_array(series.get(), "n", -1), 0);
        EXPECT_EQ(dumped(series.get()), "{\"nArray\":[" + after + "-1]" +
                                            (count == 359 ? "" : ",\"nInterval\":20") +
                                            ",\"nTime\":1000}");
    }
}

TEST_F(JsonHelpers, TheClockIsTheMonotonicOneUntilItIsSet)
{
    timespec before, after;
    EXPECT_EQ(vq_now.tv_sec, 0);
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(zorv_grab_ts(), vq_now.tv_sec);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_LE(before.tv_sec, vq_now.tv_sec);
    EXPECT_LE(vq_now.tv_sec, after.tv_sec);
    const long nanoseconds = vq_now.tv_nsec;
    zorv_set_ts(42);
    EXPECT_EQ(vq_now.tv_sec, 42);
    EXPECT_EQ(vq_now.tv_nsec, nanoseconds);
}

TEST_F(JsonHelpers, AFileIsEncodedWhole)
{
    libzorv_log_level = 8;
    const std::pair<size_t, const char *> rows[] = {
        {0, ""}, {1, "eA=="}, {2, "eHg="}, {3, ""}, {300, ""}, {301, "eA=="}, {10000, "eA=="}};
    for (const auto &[size, tail] : rows) {
        file("/tmp/core", std::string(size, 'x'));
        const Stream stream = opened("/tmp/core");
        fgetc(stream.get()); // it need not stand at its beginning
        std::string expected;
        for (size_t i = 0; i + 3 <= size; i += 3)
            expected += "eHh4";
        EXPECT_EQ(encoded(stream.get()), expected + tail) << size;
    }
    const Json json = loaded("{}");
    file("/tmp/core", "foo");
    EXPECT_EQ(json_object_load_file_base64(json.get(), "core", opened("/tmp/core").get()), 0);
    EXPECT_EQ(json_object_load_file_base64(nullptr, "core", opened("/tmp/core").get()), -1);
    EXPECT_EQ(json_object_load_file_base64(json.get(), "none", nullptr), -1);
    EXPECT_EQ(dumped(json.get()), R"({"core":"Zm9v","none":""})");

    const std::string at = "] libzorv_util.load_file_base64(): ";
    EXPECT_EQ(encoded(nullptr), "none");
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[1]);
    EXPECT_EQ(encoded(Stream(fdopen(ends[0], "r"), fclose).get()),
              "none [debug" + at + "Couldn't find file size: Illegal seek");
    ASSERT_EQ(truncate("/tmp/core", 3L << 30), 0);
    EXPECT_EQ(encoded(opened("/tmp/core").get()),
              "none [error" + at + "626: malloc(4294967297) failed");
    kernel_sys(); // files there have a size that they do not fill
    EXPECT_EQ(encoded(opened("/sys/kernel/uevent_seqnum").get()),
              "none [error" + at + "Couldn't read all bytes from file");
}

TEST_F(JsonHelpers, FactsOfTheUnitAreRead)
{
    const std::pair<const char *, const char *> macs[] = {
        {"00:1A:2b", "\"001a2b\""},
        {"00:1A:2b:3c:4d:5e", "\"001a2b\""},
        {"0:a:B", "\"000a0b\""},
        {"00:1A:2b-3c", "\"001a2b\""},
        {"00:1A", ""},
        {"001a2b", ""},
        {"", ""},
        {nullptr, ""},
    };
    for (const auto &[mac, oui] : macs)
        EXPECT_EQ(dumped(Json(mac_str_to_oui_json_string(mac)).get()), oui) << (mac ? mac : "NULL");

    char text[32] = "kept";
    EXPECT_EQ(get_build_time(text, sizeof text), -1);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(get_zorv_scm_reftype(), 0);
    const struct {
        const char *facts, *time;
        int type;
    } rows[] = {
        {"build_date=2024-05-06\nbuild_time=07:08:09\nscm_reftype=atag\n", "2024-05-06 07:08:09",
         1},
        {"build_date=2024-05-06T07:08:09\nscm_reftype=branch\n", "2024-05-06T ", 2},
        {"scm_reftype=branches\n", " ", 0},
    };
    for (const auto &row : rows) {
        file("/usr/lib/build.properties", row.facts);
        EXPECT_EQ(get_build_time(text, sizeof text), 0);
        EXPECT_STREQ(text, row.time);
        EXPECT_EQ(get_zorv_scm_reftype(), row.type);
    }
    for (const int size : {2, 0, -1})
        EXPECT_EQ(get_build_time(size ? text : nullptr, size), 0);
    EXPECT_STREQ(text, " "); // as size 2 left it
}
