// crash_unit.h - a unit with the tools that crash reports are made with, and its crash service.
#ifndef ZORV_TESTS_TELEMETRY_CRASH_UNIT_H
#define ZORV_TESTS_TELEMETRY_CRASH_UNIT_H

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "support/cloud_host.h"
#include "support/device.h"
#include "support/json.h"

// The files of a log, or the folders of the store for no name.
inline std::string log_of(const std::string &name = "")
{
    return "/etc/persistent/isolation_logs/" + name;
}

inline std::string meta_of(const std::string &name = "")
{
    return log_of("meta/" + name);
}

inline std::string marker_of(const std::string &name = "")
{
    return "/etc/persistent/isolation_logs_sent/" + name;
}

// The gate is open and no cloud is chosen: the development services are meant.
inline void make_crash_unit()
{
    for (const char *path : {"/var/run/ntp.ready", "/var/run/ipready.br0", "/var/log/messages"})
        Device::file(path, "");
    Device::file("/usr/etc/.version", "6.6.55\n");
    Device::file("/usr/etc/.build", "15189\n");
    Device::file("/tmp/system.cfg", "wireless.1.passphrase=private\n");
    Device::script("/usr/local/bin/syswrapper.sh", R"(#!/bin/sh
case $1 in
save-config) echo >>/run/saves ;;
*) sed 's/passphrase=[^ ]*/passphrase=*/' ;;
esac
)");
    Device::script("/usr/local/bin/oopsdump", R"(#!/bin/sh
echo "oopsdump $*" >>/run/oopsdumps
case $1 in
-e) test -s /run/oops ;;
-c) : >/run/oops ;;
*) cat /run/oops ;;
esac
)");
    Device::script("/usr/local/bin/logread", "#!/bin/sh\ncat /run/log\n");
}

// Puts an archive into the store, as the components do.
inline void add_log(const std::string &name, const std::string &text)
{
    Device::file("/run/packing/log.txt", text);
    Device::must_run("mkdir -p " + log_of() + " && tar -czf " + log_of(name) +
                     " -C /run/packing log.txt");
}

// "~" for what varies in a report, and "unit" for all that make_crash_unit() makes of its begin.
inline std::string steady(const std::string &report)
{
    const std::string unit =
        R"("product_line":"network","kernel_version":~,"architecture":~,"bomrev":"-1",)"
        R"("manufacturer_id":"0","model":"","version":"6.6.55.15189","is_default":false,)"
        R"("uptime":~,"boot_time":~,"controller_version":"unknown","system_time":~)";
    std::string text = std::regex_replace(
        report,
        std::regex(
            R"re("(kernel_version|architecture|uptime|boot_time|system_time)":("[^"]+"|\d+))re"),
        R"("$1":~)");
    if (const size_t at = text.find(unit); at != text.npos)
        text.replace(at, unit.size(), "unit");
    return text;
}

// What is known of a log, as one text.
inline std::string known(const std::string &name)
{
    const std::string meta = Device::read(meta_of(name));
    const Json object = loaded(meta);
    return object ? steady(dumped(object.get())) : meta;
}

// A test of what leaves the unit for a service of the cloud.
class Reporting : public Device {
protected:
    // Has a service answer so from now on, in all three clouds.
    void serve_at(const std::string &service, std::vector<cloud::Answer> answers,
                  cloud::Identity identity = cloud::Identity::trusted)
    {
        host_.reset();
        remove("/run/cloud");
        host_.emplace(cloud::Script{.sites = {{service + ".zorv.example", identity},
                                              {service + ".stage.zorv.example"},
                                              {service + ".dev.zorv.example"}},
                                    .answers = std::move(answers)});
    }

    static std::string log_text()
    {
        std::string text;
        for (const std::string &line : logged())
            text += line.empty() ? "" : line + "\n";
        return text;
    }

    std::optional<CloudHost> host_;
};

class Crash : public Reporting {
protected:
    Crash() { make_crash_unit(); }

    void serve(std::vector<cloud::Answer> answers = {{.path = "/v1/*"}})
    {
        serve_at("crash", std::move(answers));
    }

    // The requests since the last call, a line each: "POST crash.dev/v1/crash {unit,...}".
    std::string received()
    {
        std::string text;
        for (const auto &request : host_->received())
            text += request.method + " " + request.host.substr(0, request.host.find(".zorv")) +
                    request.path + " " + steady(request.body) + "\n";
        return text;
    }
};

#endif
