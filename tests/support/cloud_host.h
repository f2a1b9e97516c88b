// cloud_host.h - the cloud host of sim/cloud/ inside the device: real HTTPS on 127.0.0.1:443.
#ifndef ZORV_TESTS_SUPPORT_CLOUD_HOST_H
#define ZORV_TESTS_SUPPORT_CLOUD_HOST_H

#include <sys/prctl.h>

#include "cloud/service.h"
#include "support/device.h"

// Runs the cloud host in a process of its own until the end of this object. The device trusts its
// authority, and /etc/hosts has the names of its sites that are listed. Requests may be made as
// soon as it is there. Only for tests in the device.
class CloudHost {
public:
    explicit CloudHost(cloud::Script script)
    {
        cloud::Service service(std::move(script), {.record = kRecord});
        Device::file("/etc/ssl/certs/ca-certificates.crt", // libcurl's default
                     service.trusted_authority());
        Device::file("/etc/hosts", Device::read("/etc/hosts") + service.hosts());
        process_ = check(fork(), "fork");
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            service.run();
        }
    }
    CloudHost(const CloudHost &) = delete;
    CloudHost &operator=(const CloudHost &) = delete;
    ~CloudHost()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

    // The requests since the last call, in the order in which they came.
    std::vector<cloud::Request> received()
    {
        auto requests = cloud::read_record(kRecord, read_ + 1);
        read_ += static_cast<int>(requests.size());
        return requests;
    }

private:
    static constexpr char kRecord[] = "/run/cloud";
    pid_t process_;
    int read_ = 0;
};

#endif
