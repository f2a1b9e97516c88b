// What comes of URLs, JSON, interfaces and requests when memory or the kernel fails.

#include <syslog.h>

#include "support/json.h"
#include "support/torture.h"

using Url = std::unique_ptr<url, decltype([](url *record) { url_destroy(record); })>;
using Text = std::unique_ptr<char, decltype([](char *text) { free(text); })>;
using Response = std::unique_ptr<curl_simple_response, decltype(&curl_simple_response_free)>;

constexpr long kAll = 1000; // calls are all to fail

static Json g_json; // made by the row's prepare()

// At level 1 a failure has to be an error, or it is not seen.
static std::function<void()> with(const char *json, int level = 1)
{
    return [json, level] {
        g_json = loaded(json);
        zorv_set_ts(99);
        libzorv_log_level = level;
    };
}

// What calls came to, and what the object of the row holds.
static std::string results(std::initializer_list<long> numbers, const char *text = "")
{
    Torture::settle();
    std::string shown;
    for (const long number : numbers)
        shown += std::to_string(number) + " ";
    return shown + text + dumped(g_json.get());
}

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
    file("/tmp/core", "foo");
    file("/usr/lib/build.properties", "build_date=d\nbuild_time=t\nscm_reftype=atag\n");
    file("/var/run/system.uplink", "wds\n");
    file("/var/run/system.uplink_ifname", "wds0\n");
    const auto values = [] {
        json_t *const json = g_json.get();
        const int added = zorv_json_add_long(json, "n", 2);
        const int made = zorv_json_append_array(json, "new", 2);
        const int first = zorv_json_maybe_append_array(json, "first", 2);
        const int next = zorv_json_maybe_append_array(json, "next", 2);
        return results({added, made, zorv_json_append_array(json, "a", 2), first, next});
    };
    const auto array = [] {
        long *numbers = nullptr;
        size_t count = 5;
        const int result = zorv_json_read_array(g_json.get(), "a", &numbers, &count);
        free(numbers);
        return results({result, static_cast<long>(count)});
    };
    const auto series = with(R"({"a":[1],"nextTime":1,"nextArray":[1]})");
    torture({
        // On purpose, what setting the time and appending say is not looked at.
        {.name = "values",
         .scenario = values,
         .outcomes = {"*-1 *", R"(0 0 0 0 0 {"a":[1*]})"},
         .prepare = series,
         .most = kAll,
         .messages = {"Failed to allocate json array"}},
        {"array", array, {"-1 5 *: zorv_json_read_array: Failed to allocate memory"}, series},
        // As documented, a file that cannot be read has the default: no word, no interface.
        {"facts",
         [] {
             char time[32] = "", name[16] = "kept";
             const int rc = get_build_time(time, sizeof time), type = get_zorv_scm_reftype();
             const Json oui(mac_str_to_oui_json_string("00:1a:2b"));
             const int state = get_wireless_uplink_state(), uplink = get_uplink_device(name, 16);
             return results({rc, type, oui ? 1 : 0, state, uplink}, time) + name;
         },
         {"0 * 1 2 0 *{}wds0", "0 1 *", "0 0 0 0 0 *{}kept: iface_is_up: *"},
         with("{}"),
         kAll},
        {"file",
         [] {
             const std::unique_ptr<FILE, int (*)(FILE *)> core(fopen("/tmp/core", "re"), fclose);
             return results({json_object_load_file_base64(g_json.get(), "core", core.get())});
         },
         {"-1 {\"core\":\"\"}*", "-1 {}*"},
         with("{}")},
        {"interface",
         [] {
             uint32_t address = 0;
             int index = 0;
             const int set = set_iface_ip("lo", "127.0.0.1"), get = get_iface_ip("lo", &address);
             const int found = get_iface_index("lo", &index);
             return results({set, get, found, iface_is_up("lo"), index, ntohl(address)});
         },
         {"0 -1 0 1 1 0 {}*", "0 0 -1 1 0 *: get_iface_index: *", "-1 *: set_iface_ip: *",
          "0 0 0 0 1 *: iface_is_up: *"},
         with("{}")},
    });
}

// In the clear and by address: TLS and resolvers have faults of their own when memory fails.
TEST_F(Torture, Requests)
{
    const sockaddr_in any = {AF_INET, htons(80), {}, {}};
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(bind(listener, reinterpret_cast<const sockaddr *>(&any), sizeof any), "bind");
    check(listen(listener, 9), "listen");
    if (fork() == 0)
        for (char request[1000];;) {
            const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (::read(peer, request, sizeof request) > 0)
                dprintf(peer, "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ntext");
            close(peer);
        }
    curl_simple_get("", 0, nullptr, nullptr); // loads libcurl
    const auto post = [] {
        const Response response(curl_simple_response_init(9), curl_simple_response_free);
        if (!response)
            return std::string("none");
        const int result =
            curl_simple_post_json("http://127.0.0.1/", 0, g_json.get(), response.get());
        buffer *const body = response->body;
        const std::string text(reinterpret_cast<char *>(body->data(body)), body->length(body));
        return results({result, response->status}, text.c_str());
    };
    torture({{.name = "post",
              .scenario = post,
              .outcomes = {"none: curl_simple_response_init: Failed to allocate *",
                           "2 0 {*: [debug] curl_simple.curl_simple(): Failed to init request",
                           "27 0 {*: curl_simple_json: Failed to *",
                           "27 200 {*: [debug] curl_simple.curl_simple(): POST '*' failed: [#] ",
                           "* 0 {*: [debug] curl_simple.curl_simple(): POST '*' failed: [#] *"},
              .prepare = with(R"({"a":1})", 8),
              .most = kAll,
              .messages = {"curl_simple_response_init: Failed to allocate response buffer"}}});
}
