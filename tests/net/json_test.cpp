#include <zorv/json.h>

#include <climits>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/device.h"
#include "support/json.h"

namespace {

using Stream = std::unique_ptr<FILE, decltype(&fclose)>;
using TextPtr = std::unique_ptr<char, decltype(&free)>;

// {"nArray":[0,1,2,...]}
Json series_of(int count)
{
    std::string text = R"({"nArray":[0)";
    for (int i = 1; i < count; ++i)
        text += "," + std::to_string(i);
    return loaded(text + "]}");
}

Stream opened(const char *path)
{
    return {fopen(path, "re"), fclose};
}

class JsonHelpers : public Device {};

} // namespace

TEST_F(JsonHelpers, GettersTakeTheirTypeOrTheDefault)
{
    libzorv_log_level = 16;
    const Json json = loaded(R"({"s":"text","i":5,"zero":0,"t":true,"f":false,"r":1.5,"n":null,
                                    "big":9223372036854775807,"a":[1],"o":{}})");
    json_t *const obj = json.get();
    const struct {
        const char *key, *text;
        int boolean;
        int64_t integer;
    } rows[] = {
        {"s", "text", 7, 7}, {"i", "none", 1, 5},     {"zero", "none", 0, 0},
        {"t", "none", 1, 7}, {"f", "none", 0, 7},     {"r", "none", 7, 7},
        {"n", "none", 7, 7}, {"a", "none", 7, 7},     {"o", "none", 7, 7},
        {"x", "none", 7, 7}, {nullptr, "none", 7, 7}, {"big", "none", 1, INT64_MAX},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.key ? row.key : "NULL");
        EXPECT_STREQ(zorv_json_get_str(obj, row.key, "none"), row.text);
        EXPECT_EQ(zorv_json_get_bool(obj, row.key, 7), row.boolean);
        EXPECT_EQ(zorv_json_read_long(obj, row.key, 7), row.integer);
        EXPECT_EQ(zorv_json_read_i64(obj, row.key, 7), row.integer);
    }
    for (json_t *const none : {static_cast<json_t *>(nullptr), json_object_get(obj, "a")}) {
        EXPECT_EQ(zorv_json_get_str(none, "s", nullptr), nullptr);
        EXPECT_EQ(zorv_json_get_bool(none, "s", -3), -3);
        EXPECT_EQ(zorv_json_read_long(none, "s", -3), -3);
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(JsonHelpers, TheIntegersOfAnArrayAreRead)
{
    const Json json = loaded(R"({"some":[1,"2",3.5,null,-4,[5]],"none":["1"],"empty":[],"i":1})");
    long *numbers = nullptr;
    size_t count = 9;
    for (const char *const key : {"empty", "i", "missing"})
        EXPECT_EQ(zorv_json_read_array(json.get(), key, &numbers, &count), -1) << key;
    EXPECT_EQ(count, 9U);
    EXPECT_EQ(zorv_json_read_array(json.get(), "none", &numbers, &count), -1);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(numbers, nullptr);
    ASSERT_EQ(zorv_json_read_array(json.get(), "some", &numbers, &count), 0);
    EXPECT_THAT(std::vector<long>(numbers, numbers + count), ElementsAre(1, -4));
    free(numbers);
}

TEST_F(JsonHelpers, ANumberMayStandInAText)
{
    libzorv_log_level = 8;
    const Json json = loaded(R"({"d":"12 dB","h":" 0x1f","o":"010","neg":"-3","word":"up","e":"",
                                    "i":-7,"big":4294967297,"r":1.5,"t":true})");
    const std::string at = "[debug] libzorv_util.zorv_json_integer_value_from_obj(): ";
    const struct {
        const char *key;
        int allow, result, value;
        std::string message;
    } rows[] = {
        {"d", 0, 1, 12, ""},
        {"h", 0, 1, 31, ""},
        {"o", 0, 1, 8, ""},
        {"i", 1, 2, -7, ""},
        {"big", 1, 2, 1, ""},
        {"word", 0, 0, 9, "invalid integer 'up' in object radio, key word"},
        {"e", 0, 0, 9, "invalid integer '' in object radio, key e"},
        {"i", 0, 0, 9, "JSON object as integer is not acceptable, obj_name radio, key i"},
        {"r", 1, 0, 9, "JSON object is of type 4, not a string or integer, obj_name radio, key r"},
        {"x", 1, 0, 9, "no obj for obj_name radio, key x"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.key);
        int value = 9;
        EXPECT_EQ(zorv_json_integer_value_from_obj(json.get(), "radio", row.key, row.allow, &value),
                  row.result);
        EXPECT_EQ(value, row.value);
        if (row.message.empty())
            EXPECT_THAT(logged(), IsEmpty());
        else
            EXPECT_THAT(logged(), ElementsAre(at + row.message));
    }
    EXPECT_EQ(zorv_json_integer_value_from_obj(json.get(), "radio", "i", 1, nullptr), 0);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.zorv_json_integer_value_from_obj(): NULL pointer "
                            "provided for value, obj_name radio, key i"));
}

TEST_F(JsonHelpers, CountersAndArraysGrow)
{
    const Json json = loaded(R"({"n":5,"s":"5","max":9223372036854775807})");
    EXPECT_EQ(zorv_json_add_long(json.get(), "n", -7), 0);
    EXPECT_EQ(zorv_json_add_i64(json.get(), "new", 3), 0);
    EXPECT_EQ(zorv_json_add_long(json.get(), "s", 1), 0); // was no integer
    EXPECT_EQ(zorv_json_add_i64(json.get(), "max", 1), 0);
    EXPECT_EQ(zorv_json_append_array(json.get(), "list", 1), 0);
    EXPECT_EQ(zorv_json_append_array(json.get(), "list", 2), 0);
    EXPECT_EQ(zorv_json_append_array(json.get(), "n", 2), 0); // no array, no failure
    EXPECT_EQ(zorv_json_add_i64(json.get(), nullptr, 1), -1);
    EXPECT_EQ(zorv_json_append_array(json.get(), nullptr, 1), -1);
    EXPECT_EQ(zorv_json_maybe_append_array(json.get(), nullptr, 1), -1);
    EXPECT_EQ(dumped(json.get()),
              R"({"n":-2,"s":1,"max":-9223372036854775808,"new":3,"list":[1,2]})");
    for (json_t *const none :
         {static_cast<json_t *>(nullptr), json_object_get(json.get(), "list")}) {
        EXPECT_EQ(zorv_json_add_long(none, "n", 1), -1);
        EXPECT_EQ(zorv_json_append_array(none, "n", 1), -1);
        EXPECT_EQ(zorv_json_maybe_append_array(none, "n", 1), -1);
    }
}

TEST_F(JsonHelpers, ASeriesKeepsItsDistance)
{
    const Json json = loaded("{}");
    const auto append_at = [&json](long now, long value) {
        zorv_set_ts(now);
        return zorv_json_maybe_append_array(json.get(), "n", value);
    };
    EXPECT_EQ(append_at(100, 1), 0);
    EXPECT_EQ(dumped(json.get()), R"({"nTime":100,"nArray":[1]})");
    EXPECT_EQ(append_at(105, 2), -2);
    EXPECT_EQ(append_at(109, 2), -2);
    EXPECT_EQ(append_at(50, 2), -2); // a clock that went back
    EXPECT_EQ(append_at(110, 3), 0);
    EXPECT_EQ(dumped(json.get()), R"({"nTime":110,"nArray":[1,3]})");
    json_object_set_new(json.get(), "nInterval", json_integer(60));
    EXPECT_EQ(append_at(169, 4), -2);
    EXPECT_EQ(append_at(170, 4), 0);
    json_object_set_new(json.get(), "nTime", json_integer(0));
    EXPECT_EQ(append_at(1, 5), 0);
    json_object_set_new(json.get(), "nTime", json_integer(LONG_MIN)); // far in the past
    EXPECT_EQ(append_at(2, 6), 0);
    json_object_set_new(json.get(), "nTime", json_integer(LONG_MAX)); // far in the future
    EXPECT_EQ(append_at(-5, 7), -2);
    EXPECT_EQ(dumped(json_object_get(json.get(), "nArray")), "[1,3,4,5,6]");
    json_object_set_new(json.get(), "nTime", json_null());
    json_object_set_new(json.get(), "nArray", json_string("none"));
    EXPECT_EQ(append_at(200, 8), -1);
}

TEST_F(JsonHelpers, ASeriesOf360IsHalvedAndItsIntervalDoubled)
{
    const struct {
        int before;
        size_t after;
        long interval, last_kept;
    } rows[] = {
        {359, 360, 10, 358}, {360, 181, 20, 358}, {361, 182, 20, 360}, {5000, 2501, 20, 4998}};
    zorv_set_ts(1000);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.before);
        const Json json = series_of(row.before);
        ASSERT_EQ(zorv_json_maybe_append_array(json.get(), "n", -1), 0);
        const json_t *const array = json_object_get(json.get(), "nArray");
        ASSERT_EQ(json_array_size(array), row.after);
        EXPECT_EQ(json_integer_value(json_array_get(array, row.after - 1)), -1);
        EXPECT_EQ(json_integer_value(json_array_get(array, row.after - 2)), row.last_kept);
        for (size_t i = 0; row.interval == 20 && i + 1 < row.after; ++i)
            EXPECT_EQ(json_integer_value(json_array_get(array, i)), static_cast<json_int_t>(2 * i));
        EXPECT_EQ(zorv_json_read_long(json.get(), "nInterval", 10), row.interval);
        EXPECT_EQ(zorv_json_read_long(json.get(), "nTime", 0), 1000);
    }
}

TEST_F(JsonHelpers, ASeriesNameHasAtMost31Characters)
{
    const Json json = loaded("{}");
    const std::string name(31, 'k');
    EXPECT_EQ(zorv_json_maybe_append_array(json.get(), name.c_str(), 1), 0);
    const std::string long_name = name + "k";
    EXPECT_EQ(zorv_json_maybe_append_array(json.get(), long_name.c_str(), 1), -1);
    EXPECT_THAT(logged(),
                ElementsAre("[error] libzorv_util.zorv_json_maybe_append_array(): key too long: " +
                                long_name,
                            ""));
    EXPECT_EQ(json_object_size(json.get()), 2U);
}

TEST_F(JsonHelpers, TheClockIsTheMonotonicOneUntilItIsSet)
{
    struct timespec before, after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(vq_now.tv_sec, 0);
    const long seconds = zorv_grab_ts();
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(seconds, before.tv_sec);
    EXPECT_LE(seconds, after.tv_sec);
    EXPECT_EQ(vq_now.tv_sec, seconds);
    const long nanoseconds = vq_now.tv_nsec;
    zorv_set_ts(42);
    EXPECT_EQ(vq_now.tv_sec, 42);
    EXPECT_EQ(vq_now.tv_nsec, nanoseconds);
}

TEST_F(JsonHelpers, AFileIsEncodedWhole)
{
    const std::pair<size_t, std::string> rows[] = {{0, ""},        {1, "eA=="},   {2, "eHg="},
                                                   {3, "eHh4"},    {300, "eHh4"}, {301, "eA=="},
                                                   {10000, "eA=="}};
    for (const auto &[size, tail] : rows) {
        SCOPED_TRACE(size);
        file("/tmp/core", std::string(size, 'x'));
        const Stream stream = opened("/tmp/core");
        fgetc(stream.get()); // it need not stand at its beginning
        std::string expected;
        for (size_t i = 0; i + 3 <= size; i += 3)
            expected += "eHh4";
        if (size % 3 != 0)
            expected += tail;
        const TextPtr text(load_file_base64(stream.get()), free);
        EXPECT_EQ(std::string(text ? text.get() : "none"), expected);
    }
    const Json json = loaded("{}");
    file("/tmp/core", "foo");
    EXPECT_EQ(json_object_load_file_base64(json.get(), "core", opened("/tmp/core").get()), 0);
    EXPECT_EQ(json_object_load_file_base64(nullptr, "core", opened("/tmp/core").get()), -1);
    EXPECT_EQ(json_object_load_file_base64(json.get(), "none", nullptr), -1);
    EXPECT_EQ(dumped(json.get()), R"({"core":"Zm9v","none":""})");
}

TEST_F(JsonHelpers, AFileThatCannotBeLoadedIsReported)
{
    libzorv_log_level = 8;
    const auto refused = [](FILE *stream) { return load_file_base64(stream) == nullptr; };
    EXPECT_TRUE(refused(nullptr));
    EXPECT_THAT(logged(), IsEmpty());
    const std::string at = " libzorv_util.load_file_base64(): ";

    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[1]);
    const Stream pipe(fdopen(ends[0], "r"), fclose);
    EXPECT_TRUE(refused(pipe.get()));
    EXPECT_THAT(logged(), ElementsAre("[debug]" + at + "Couldn't find file size: Illegal seek"));

    file("/tmp/gigabytes", "");
    ASSERT_EQ(truncate("/tmp/gigabytes", 3L << 30), 0);
    EXPECT_TRUE(refused(opened("/tmp/gigabytes").get()));
    EXPECT_THAT(logged(), ElementsAre("[error]" + at + "626: malloc(4294967297) failed"));

    // The kernel gives files of /sys a size that they do not have.
    kernel_sys();
    EXPECT_TRUE(refused(opened("/sys/kernel/uevent_seqnum").get()));
    EXPECT_THAT(logged(), ElementsAre("[error]" + at + "Couldn't read all bytes from file"));
}

TEST_F(JsonHelpers, TheVendorPartOfAnAddressIsLowerCase)
{
    const std::pair<const char *, const char *> rows[] = {
        {"00:1A:2b", R"("001a2b")"},
        {"00:1A:2b:3c:4d:5e", R"("001a2b")"},
        {"0:a:B", R"("000a0b")"},
        {"00:1A:2b-3c", R"("001a2b")"},
        {"00:1A", ""},
        {"001a2b", ""},
        {"", ""},
        {nullptr, ""},
    };
    for (const auto &[mac, oui] : rows) {
        SCOPED_TRACE(mac ? mac : "NULL");
        const Json json(mac_str_to_oui_json_string(mac));
        EXPECT_EQ(dumped(json.get()), oui);
    }
}

TEST_F(JsonHelpers, BuildFactsComeFromTheFirmware)
{
    char text[32] = "kept";
    EXPECT_EQ(get_build_time(text, sizeof text), -1);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(get_zorv_scm_reftype(), 0);

    file("/usr/lib/build.properties",
         "build_date=2024-05-06\nbuild_time=07:08:09\nscm_reftype=atag\n");
    EXPECT_EQ(get_build_time(text, sizeof text), 0);
    EXPECT_STREQ(text, "2024-05-06 07:08:09");
    EXPECT_EQ(get_build_time(text, 5), 0);
    EXPECT_STREQ(text, "2024");
    EXPECT_EQ(get_build_time(nullptr, 0), 0);
    EXPECT_EQ(get_build_time(text, -1), 0);
    EXPECT_EQ(get_zorv_scm_reftype(), 1);

    file("/usr/lib/build.properties", "build_date=2024-05-06T07:08:09\nscm_reftype=branch\n");
    EXPECT_EQ(get_build_time(text, sizeof text), 0);
    EXPECT_STREQ(text, "2024-05-06T ");
    EXPECT_EQ(get_zorv_scm_reftype(), 2);
    file("/usr/lib/build.properties", "scm_reftype=branches\n");
    EXPECT_EQ(get_zorv_scm_reftype(), 0);
}
