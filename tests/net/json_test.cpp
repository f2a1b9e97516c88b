

#include "support/device.h"
#include "support/json.h"

using JsonHelpers = Device;

// A file's Base64, or "none" and what was logged.
static std::string encoded(FILE *stream)
{
    fseek(stream, 1, SEEK_SET); // it need not stand at its beginning
    const std::unique_ptr<char, decltype(&free)> text(load_file_base64(stream), free);
    fclose(stream);
    std::string result = text ? text.get() : "none";
    for (const std::string &line : Device::logged())
        result += " " + line;
    return result;
}

// A member as text, as yes or no, as two integers with a default, and as a number that may stand
// in a text, with what is said of one that does not.
TEST_F(JsonHelpers, GettersTakeTheirTypeOrTheDefault)
{
    libzorv_log_level = 8;
    const Json json = loaded(R"({"s":"text","h":" 0x1f dB","i":-7,"big":4294967297,"t":true})");
    json_t *const obj = json.get();
    const std::string at = "[debug] libzorv_util.zorv_json_integer_value_from_obj(): ";
    const struct {
        const char *key, *values;
        std::string message = "";
    } rows[] = {
        {"s", "text 7 7 7, 0 9", "invalid integer 'text' in object radio, key s"},
        {"h", " 0x1f dB 7 7 7, 1 31"},
        {"i", "none 1 -7 -7, 2 -7"},
        {"big", "none 1 4294967297 4294967297, 2 1"},
        {"t", "none 1 7 7, 0 9",
         "JSON object is of type 5, not a string or integer, obj_name radio, key t"},
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
    int value = 9;
    EXPECT_EQ(zorv_json_integer_value_from_obj(obj, "radio", "i", 0, &value), 0);
    EXPECT_EQ(zorv_json_integer_value_from_obj(obj, "radio", "i", 1, nullptr), 0);
    EXPECT_THAT(logged(),
                ElementsAre(at + "JSON object as integer is not acceptable, obj_name radio, key i",
                            "[error] libzorv_util.zorv_json_integer_value_from_obj(): NULL pointer "
                            "provided for value, obj_name radio, key i"));
}

TEST_F(JsonHelpers, CountersAndArraysGrow)
{
    const Json json =
        loaded(R"({"some":[1,"2",3.5,null,-4,[5]],"none":["1"],"empty":[],"n":5,"one":[5],
                                    "s":"5","max":9223372036854775807})");
    json_t *const obj = json.get();
    long *numbers = nullptr;
    size_t count = 9;
    for (const char *const key : {"empty", "n", "none"})
        EXPECT_EQ(zorv_json_read_array(obj, key, &numbers, &count), -1) << key;
    ASSERT_EQ(zorv_json_read_array(obj, "one", &numbers, &count), 0);
    free(numbers);
    ASSERT_EQ(zorv_json_read_array(obj, "some", &numbers, &count), 0);
    EXPECT_THAT(std::vector<long>(numbers, numbers + count), ElementsAre(1, -4));
    free(numbers);

    for (const auto &[key, delta] : {std::pair{"n", -7}, {"new", 3}, {"s", 1}, {"max", 1}})
        EXPECT_EQ(zorv_json_add_long(obj, key, delta), 0); // "s" was no integer
    for (const char *const key : {"empty", "list", "n"})
        EXPECT_EQ(zorv_json_append_array(obj, key, 2), 0); // no array is no failure
    EXPECT_EQ(zorv_json_add_i64(obj, "n", 0), 0);
    json_t *const list = json_object_get(obj, "list");
    for (const auto &[none, key] : {std::pair<json_t *, const char *>{}, {list, "n"}, {obj, {}}})
        EXPECT_EQ(zorv_json_add_long(none, key, 1) + zorv_json_append_array(none, key, 1) +
                      zorv_json_maybe_append_array(none, key, 1),
                  -3);
    EXPECT_EQ(dumped(obj),
              R"({"some":[1,"2",3.5,null,-4,[5]],"none":["1"],"empty":[2],"n":-2,"one":[5],)"
              R"("s":1,"max":-9223372036854775808,"new":3,"list":[2]})");
}

TEST_F(JsonHelpers, ASeriesKeepsItsDistance)
{
    // No series after it: the one before.
    const std::tuple<long, std::string, std::string, int> rows[] = {
        {100, "{}", R"({"nTime":100,"nArray":[4]})", 0},
        {109, R"({"nTime":100,"nArray":[3]})", "", -2},
        {110, R"({"nTime":100,"nArray":[3]})", R"({"nTime":110,"nArray":[3,4]})", 0},
        {9, R"({"nTime":0,"nArray":[3]})", R"({"nTime":9,"nArray":[3,4]})", 0}, // was never set
        // The clock may go back, and lie far in the past or in the future.
        {LONG_MIN, R"({"nTime":1,"nArray":[3]})", "", -2},
        {LONG_MAX, R"({"nTime":-5,"nArray":[]})", R"({"nTime":9223372036854775807,"nArray":[4]})",
         0},
        {159, R"({"nInterval":60,"nTime":100,"nArray":[]})", "", -2},
        {1, R"({"nTime":null,"nArray":"none"})", R"({"nTime":1,"nArray":"none"})", -1},
    };
    for (const auto &[now, before, after, result] : rows) {
        const Json series = loaded(before);
        zorv_set_ts(now);
        EXPECT_EQ(zorv_json_maybe_append_array(series.get(), "n", 4), result);
        EXPECT_EQ(dumped(series.get()), after.empty() ? before : after);
    }
    const Json none = loaded("{}");
    const std::string longest(31, 'k');
    EXPECT_EQ(zorv_json_maybe_append_array(none.get(), longest.c_str(), 1), 0);
    EXPECT_EQ(zorv_json_maybe_append_array(none.get(), (longest + "k").c_str(), 1), -1);
    EXPECT_THAT(logged(), ElementsAre("[error] libzorv_util.zorv_json_maybe_append_array(): key "
                                      "too long: " +
                                          longest + "k",
                                      ""));
    // One of 360 is halved and its interval doubled.
    for (const size_t count : {359U, 361U}) {
        std::string before, after;
        for (size_t i = 0; i < count; ++i) {
            before += (i > 0 ? "," : "") + std::to_string(i);
            after += count == 359 || i % 2 == 0 ? std::to_string(i) + "," : "";
        }
        const Json series = loaded("{\"nArray\":[" + before + "]}");
        EXPECT_EQ(zorv_json_maybe_append_array(series.get(), "n", -1), 0);
        EXPECT_EQ(dumped(series.get()), "{\"nArray\":[" + after + "-1]" +
                                            (count == 359 ? "" : ",\"nInterval\":20") +
                                            ",\"nTime\":1}");
    }
    timespec before;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(zorv_grab_ts(), vq_now.tv_sec);
    EXPECT_THAT(vq_now.tv_sec - before.tv_sec, testing::AnyOf(0, 1));
}

TEST_F(JsonHelpers, AFileIsEncodedWholeAndFactsOfTheUnitAreRead)
{
    libzorv_log_level = 8;
    for (const auto &[text, base64] : {std::pair{"", ""}, {"fooba", "Zm9vYmE="}}) {
        file("/tmp/core", text);
        EXPECT_EQ(encoded(fopen("/tmp/core", "re")), base64);
    }
    const Json json = loaded("{}");
    file("/tmp/core", "foo");
    FILE *const core = fopen("/tmp/core", "re");
    EXPECT_EQ(json_object_load_file_base64(json.get(), "core", core), 0);
    EXPECT_EQ(json_object_load_file_base64(nullptr, "core", core), -1);
    EXPECT_EQ(json_object_load_file_base64(json.get(), "none", nullptr), -1);
    fclose(core);
    EXPECT_EQ(dumped(json.get()), R"({"core":"Zm9v","none":""})");

    const std::string at = "] libzorv_util.load_file_base64(): ";
    must_run("mkfifo /tmp/pipe");
    EXPECT_EQ(encoded(fopen("/tmp/pipe", "r+e")),
              "none [debug" + at + "Couldn't find file size: Illegal seek");
    ASSERT_EQ(truncate("/tmp/core", 3L << 30), 0);
    EXPECT_EQ(encoded(fopen("/tmp/core", "re")),
              "none [error" + at + "626: malloc(4294967297) failed");
    kernel_sys(); // files there have a size that they do not fill
    EXPECT_EQ(encoded(fopen("/sys/kernel/uevent_seqnum", "re")),
              "none [error" + at + "Couldn't read all bytes from file");

    EXPECT_EQ(dumped(Json(mac_str_to_oui_json_string("00:1A:2b")).get()), "\"001a2b\"");
    for (const char *const mac : {"00:1A", static_cast<const char *>(nullptr)})
        EXPECT_EQ(mac_str_to_oui_json_string(mac), nullptr);
    const std::tuple<const char *, int, const char *> units[] = {
        {"build_date=2024-05-06\nbuild_time=07:08:09\nscm_reftype=atag\n", 32,
         "0 2024-05-06 07:08:09 1"},
        {"build_date=2024-05-06T07:08:09\nscm_reftype=branch\n", 32, "0 2024-05-06T  2"},
        {"", -1, "0 kept 0"},
    };
    char text[32] = "kept";
    EXPECT_EQ(get_build_time(text, sizeof text), -1);
    for (const auto &[facts, room, want] : units) {
        file("/usr/lib/build.properties", facts);
        strcpy(text, "kept");
        const std::string result = std::to_string(get_build_time(text, room));
        EXPECT_EQ(result + " " + text + " " + std::to_string(get_zorv_scm_reftype()), want);
    }
}
