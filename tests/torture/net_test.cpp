// What comes of URLs, JSON, interfaces and requests when memory or the kernel fails.
#include <memory>

#include <arpa/inet.h>
#include <syslog.h>
#include <zorv/curl_simple.h>
#include <zorv/iface.h>
#include <zorv/json.h>
#include <zorv/url.h>

#include "support/cloud_host.h"
#include "support/json.h"
#include "support/torture.h"

namespace {

template <auto Release>
struct Releaser {
    template <class T>
    void operator()(T *resource) const
    {
        Release(resource);
    }
};
using Url = std::unique_ptr<url, Releaser<url_destroy>>;
using Text = std::unique_ptr<char, Releaser<free>>;
using Response = std::unique_ptr<curl_simple_response, Releaser<curl_simple_response_free>>;

constexpr long kAll = 1000; // calls are all to fail

Json g_json; // made by the row's prepare()

// At level 1 a failure has to be an error, or it is not seen.
std::function<void()> with(const char *json, int level = 1)
{
    return [json, level] {
        g_json = loaded(json);
        zorv_set_ts(99);
        libzorv_log_level = level;
    };
}

std::string words(std::initializer_list<long> results)
{
    std::string text;
    for (const long result : results)
        text += std::to_string(result) + " ";
    return text;
}

} // namespace

TEST_F(Torture, Url)
{
    start_syslog(); // url_parse() and url_copy() speak to it alone
    openlog(nullptr, LOG_NDELAY, LOG_USER);
    libzorv_log_use_syslog = 0;
    libzorv_log_level = 1;
    const auto urls = [] {
        const Url parsed(url_parse("https://127.0.0.2/")), copy(url_copy(parsed.get()));
        const Text encoded(url_encode("a b"));
        char address[INET_ADDRSTRLEN] = "none";
        const int result = url_resolve(copy.get(), nullptr);
        url_addr_ntop(copy.get(), address, sizeof address);
        settle();
        const std::string text = encoded ? encoded.get() : "none";
        return text + " " + address + " " + (copy ? std::to_string(result) : syslogged());
    };
    torture({{.name = "urls",
              .scenario = urls,
              .outcomes = {"a+b none <*url_*:* url oom\n", "none none <*oom\n: url_encode: *",
                           "none * *: url_encode: #: malloc(#) failed", "a+b none -*"}}});
}

TEST_F(Torture, Json)
{
    const struct {
        int (*call)(json_t *, const char *, long);
        const char *before;
        std::vector<const char *> outcomes, known = {};
    } rows[] = {
        {zorv_json_add_long, "{}", {"-1 {}"}},
        {zorv_json_append_array, "{}", {"-1 {}", "-1 {}: *: Failed to allocate json array"}},
        // What setting the time and appending say is not looked at.
        {zorv_json_append_array, R"({"n":[1]})", {}, {R"(0 {"n":[1]})"}},
        {zorv_json_maybe_append_array,
         "{}",
         {"-1 {}: *: Failed to allocate json array"},
         {"-1 {}", R"(-1 {"nTime":99})", R"(0 {"nArray":[2]})"}},
        {zorv_json_maybe_append_array,
         R"({"nTime":1,"nArray":[1]})",
         {R"(-1 {"nTime":1,"nArray":[1]})"},
         {R"(-1 {"nTime":99,"nArray":[1]})", R"(0 {"nTime":1,"nArray":[1,2]})"}},
    };
    for (const auto &row : rows) {
        const auto scenario = [&row] {
            const int result = row.call(g_json.get(), "n", 2);
            settle();
            return words({result}) + dumped(g_json.get());
        };
        torture({{.name = row.before,
                  .scenario = scenario,
                  .outcomes = row.outcomes,
                  .prepare = with(row.before),
                  .known = row.known}});
    }
}

TEST_F(Torture, Facts)
{
    file("/tmp/core", "foo");
    file("/usr/lib/build.properties", "build_date=d\nbuild_time=t\nscm_reftype=atag\n");
    file("/var/run/system.uplink", "wds\n");
    file("/var/run/system.uplink_ifname", "wds0\n");
    const auto array = [] {
        long *numbers = nullptr;
        size_t count = 5;
        const int result = zorv_json_read_array(g_json.get(), "a", &numbers, &count);
        free(numbers);
        return words({result, static_cast<long>(count)});
    };
    const auto core = [] {
        const std::unique_ptr<FILE, Releaser<fclose>> stream(fopen("/tmp/core", "re"));
        const int result = json_object_load_file_base64(g_json.get(), "core", stream.get());
        settle();
        return words({result}) + dumped(g_json.get());
    };
    const auto build = [] {
        char time[32] = "";
        const int result = get_build_time(time, sizeof time), type = get_zorv_scm_reftype();
        const Json oui(mac_str_to_oui_json_string("00:1a:2b"));
        settle();
        return words({result, type}) + time + dumped(oui.get());
    };
    const auto uplink = [] {
        char name[16] = "kept";
        const int state = get_wireless_uplink_state();
        return words({state, get_uplink_device(name, sizeof name)}) + name;
    };
    const auto interface = [] {
        uint32_t address = 0;
        int index = 0;
        const int set = set_iface_ip("lo", "127.0.0.1"), get = get_iface_ip("lo", &address);
        const int found = get_iface_index("lo", &index);
        return words({set, get, found, iface_is_up("lo"), index, ntohl(address)});
    };
    torture({
        {.name = "zorv_json_read_array",
         .scenario = array,
         .outcomes = {"-1 5 : zorv_json_read_array: Failed to allocate memory"},
         .prepare = with(R"({"a":[1]})")},
        {.name = "json_object_load_file_base64",
         .scenario = core,
         .outcomes = {R"(-1 {"core":""})", R"(-1 {"core":""}: load_file_base#: *)", "-1 {}*"},
         .prepare = with("{}")},
        // A file that cannot be opened or read is like one without the word.
        {.name = "build",
         .scenario = build,
         .outcomes = {"0 1 d t"},
         .most = kAll,
         .known = {"0 1  t*", "0 1 d \"*", "0 0 *"}},
        {.name = "uplink",
         .scenario = uplink,
         .most = kAll,
         .known = {"0 0 wds0", "2 0 ", "0 0 kept: *", "2 0 kept: *"}},
        {.name = "interface",
         .scenario = interface,
         .outcomes = {"-1 0 0 1 1 2130706433 : set_iface_ip: *", "0 -1 0 1 1 0 ",
                      "0 -1 0 1 1 0 : get_iface_ip: unable to open sock",
                      "0 0 -1 1 0 2130706433 : get_iface_index: *",
                      "0 0 0 0 1 2130706433 : iface_is_up: *"},
         .prepare = with("{}")},
    });
}

TEST_F(Torture, Requests)
{
    const CloudHost host({.sites = {{"cloud.test"}}, .answers = {{.path = "/", .body = "text"}}});
    file("/tmp/answer", "text");
    const auto init = [] { return Response(curl_simple_response_init(9)) ? "made" : "none"; };
    torture({{.name = "curl_simple_response_init",
              .scenario = init,
              .outcomes = {"none: curl_simple_response_init: Failed to allocate *"},
              .prepare = with("{}")}});
    // Of a request to a file, which is short, each call fails; of one over HTTPS a few. libcurl
    // takes a file that cannot be read for one that ends.
    const std::vector<const char *> documented = {
        "none: *", "2 0 : curl_simple: Failed to init request",
        "27 0 : curl_simple_json: Failed to *", "* 0 : curl_simple: POST '*' failed: [#] *"};
    for (const char *const to : {"file:///tmp/answer", "https://cloud.test/"}) {
        const bool is_file = *to == 'f';
        const auto post = [to] {
            const Response response(curl_simple_response_init(9));
            if (!response)
                return std::string("none");
            const int result = curl_simple_post_json(to, 0, g_json.get(), response.get());
            buffer *const body = response->body;
            return words({result, response->status}) +
                   std::string(reinterpret_cast<char *>(body->data(body)), body->length(body));
        };
        torture({{.name = to,
                  .scenario = post,
                  .outcomes = documented,
                  .prepare = with(R"({"a":1})", 8),
                  .most = is_file ? kAll : 3,
                  .known = is_file ? std::vector{"0 0 "} : std::vector<const char *>()}});
    }
}
