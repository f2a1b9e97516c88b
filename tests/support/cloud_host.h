// cloud_host.h - the cloud host of sim/cloud/ inside the device: real HTTPS on 127.0.0.1:443.
#ifndef ZORV_TESTS_SUPPORT_CLOUD_HOST_H
#define ZORV_TESTS_SUPPORT_CLOUD_HOST_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "cloud/service.h"

// Runs the cloud host in a process of its own until the end of this object. The device trusts its
// authority, and /etc/hosts has the names of its sites that are listed. Requests may be made as
// soon as it is there. Only for tests in the device.
class CloudHost {
public:
    explicit CloudHost(cloud::Script script);
    CloudHost(const CloudHost &) = delete;
    CloudHost &operator=(const CloudHost &) = delete;
    ~CloudHost();

    // The requests since the last call, in the order in which they came.
    std::vector<cloud::Request> received();

private:
    pid_t process_;
    int read_ = 0;
};

#endif
