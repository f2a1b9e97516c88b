// crash_unit.h - a unit with the tools that crash reports are made with, and its cloud.
#ifndef ZORV_TESTS_TELEMETRY_CRASH_UNIT_H
#define ZORV_TESTS_TELEMETRY_CRASH_UNIT_H

#include <optional>

#include "support/cloud_host.h"
#include "support/device.h"
#include "support/json.h"

// The folders of the store: the archives, what is known of each, and marks of those that are done.
const std::string kLogs = "/etc/persistent/isolation_logs/", kMetas = kLogs + "meta/",
                  kMarkers = "/etc/persistent/isolation_logs_sent/";

// The gate is open and no cloud is chosen: the development services are meant.
inline void make_crash_unit()
{
    for (const char *path : {"/var/run/ntp.ready", "/var/run/ipready.br0", "/var/log/messages"})
        Device::file(path, "");
    Device::file("/usr/etc/.version", "6.6.55\n");
    Device::file("/usr/etc/.build", "15189\n");
    Device::file("/tmp/system.cfg", "wireless.1.passphrase=private\n");
    Device::script("/usr/local/bin/syswrapper.sh", R"(#!/bin/sh
test $1 = save-config && echo >>/run/saves || sed 's/passphrase=[^ ]*/passphrase=*/'
)");
    Device::script("/usr/local/bin/oopsdump", R"(#!/bin/sh
echo "oopsdump $*" >>/run/oopsdumps
case $1 in -e) test -s /run/oops ;; -c) : >/run/oops ;; *) cat /run/oops ;; esac
)");
    Device::script("/usr/local/bin/logread", "#!/bin/sh\ncat /run/log\n");
}

// "~" for what varies in a report, and "unit" for all that make_crash_unit() makes of its begin.
inline std::string steady(const std::string &report)
{
    const std::regex varying(
        R"re("(kernel_version|architecture|uptime|boot_time|system_time)":("[-.\w:]+"|\d+))re"),
        unit(R"("product_line":"network","kernel_version":~,"architecture":~,"bomrev":"-1",)"
             R"("manufacturer_id":"0","model":"","version":"6.6.55.15189","is_default":false,)"
             R"("uptime":~,"boot_time":~,"controller_version":"unknown","system_time":~)");
    return std::regex_replace(std::regex_replace(report, varying, R"("$1":~)"), unit, "unit");
}

// What is known of a log, as one text.
inline std::string known(const std::string &name)
{
    return steady(dumped(loaded(Device::read(kMetas + name)).get()));
}

// A test of what leaves the unit for the services of the three clouds.
class Reporting : public Device {
protected:
    // Has the services answer so from now on.
    void serve(std::vector<cloud::Answer> answers = {{.path = "/v1/*"}},
               cloud::Identity identity = cloud::Identity::trusted)
    {
        host_.reset();
        remove("/run/cloud");
        std::vector<cloud::Site> sites;
        for (const char *name :
             {"crash", "trace", "crash.dev", "trace.dev", "crash.stage", "trace.stage"})
            sites.push_back({name + std::string(".zorv.example"), identity});
        host_.emplace(cloud::Script{.sites = std::move(sites), .answers = std::move(answers)});
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

    static std::string log_text()
    {
        std::string text;
        for (const std::string &line : logged())
            text += line.empty() ? "" : line + "\n";
        return text;
    }

    // NOLINTNEXTLINE(misc-non-private-member-variables-in-classes): a test ends it
    std::optional<CloudHost> host_;
};

#endif
