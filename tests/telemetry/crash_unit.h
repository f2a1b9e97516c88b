// crash_unit.h - a unit with the tools that crash reports are made with, and its crash service.
#ifndef ZORV_TESTS_TELEMETRY_CRASH_UNIT_H
#define ZORV_TESTS_TELEMETRY_CRASH_UNIT_H

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

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

inline constexpr char kPassphrase[] = "passphrase=very-private";

// The gate is open and no cloud is chosen: the development services are meant.
class Crash : public Device {
protected:
    Crash()
    {
        file("/var/run/ntp.ready", "");
        file("/var/run/ipready.br0", "");
        file("/var/log/messages", "");
        file("/usr/etc/.version", "6.6.55\n");
        file("/usr/etc/.build", "15189\n");
        file("/tmp/system.cfg", "wireless.1.passphrase=very-private\n");
        script("/usr/local/bin/syswrapper.sh", R"(#!/bin/sh
case $1 in
save-config) echo saved >>/run/saves ;;
systemcfg-sensitive-data-filter) sed 's/passphrase=.*/passphrase=*/' ;;
sensitive-data-filter) sed 's/passphrase=[^ ]*/passphrase=*/' ;;
esac
)");
        script("/usr/local/bin/oopsdump", R"(#!/bin/sh
echo "oopsdump $*" >>/run/oopsdumps
case $1 in
-e) test -s /run/oops ;;
-c) : >/run/oops ;;
*) cat /run/oops ;;
esac
)");
        script("/usr/local/bin/logread", "#!/bin/sh\ncat /run/log\n");
    }

    // The service of the development cloud, and of others if they are asked for.
    static cloud::Script crash_service(std::vector<cloud::Answer> answers = {
                                           {.path = "/v1/crash"}, {.path = "/v1/kernel-crash"}})
    {
        return {.sites = {{"crash.dev.zorv.example"},
                          {"crash.stage.zorv.example"},
                          {"crash.zorv.example"}},
                .answers = std::move(answers)};
    }

    // Puts an archive into the store, as the components do.
    static void add_log(const std::string &name, const std::string &text)
    {
        file("/run/packing/log.txt", text);
        must_run("mkdir -p " + log_of());
        must_run("tar -czf " + log_of(name) + " -C /run/packing log.txt");
    }

    // How often the configuration was saved since the last call.
    static size_t saves()
    {
        const std::string lines = exists("/run/saves") ? read("/run/saves") : "";
        remove("/run/saves");
        return lines.size() / sizeof "saved";
    }

    // Runs a part of the test in a process of its own. Returns the process.
    static pid_t start(const std::function<void()> &part)
    {
        const pid_t process = fork();
        if (process == 0) {
            part();
            _exit(0);
        }
        return process;
    }

    static int wait_for(pid_t process)
    {
        int status = -1;
        waitpid(process, &status, 0);
        return status;
    }
};

#endif
