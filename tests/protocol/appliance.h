// appliance.h - two or more devices on one bridge, each a process with namespaces of its own.
//
// The test process is the switch: the bridge "switch" and one cable to each appliance stand in its
// network namespace. An appliance has the bridge br0 at its end of the cable, its own /run and
// /proc/zorvhal, and runs the transport in a libevent loop, on orders from the test. What it
// handles, it reports; nothing here sleeps, and whoever waits too long fails the test.
#ifndef ZORV_TESTS_PROTOCOL_APPLIANCE_H
#define ZORV_TESTS_PROTOCOL_APPLIANCE_H

#include <string>

#include <sys/types.h>

// Once a test, before the first appliance.
void make_switch();

class Appliance {
public:
    struct Settings {
        std::string name;    // up to eight letters, for its cable
        std::string address; // of br0, without the prefix
        std::string serial;  // 12 hexadecimal digits, and perhaps more
        std::string key = "000102030405060708090a0b0c0d0e0f";
        std::string group = "239.255.90.90";
    };

    explicit Appliance(const Settings &settings);
    Appliance(const Appliance &) = delete;
    Appliance &operator=(const Appliance &) = delete;
    ~Appliance(); // ends it

    // Gives an order and returns the answer to it:
    //
    //   init N                   the result of zorv_protocol_init(N), then handlers are registered
    //   deinit
    //   sequence N               sets own_sequence
    //   send METHOD TYPE TEXT    the result of zorv_protocol_send()
    //   run COMMAND              has the shell run a command; its exit status
    //   groups                   how often br0 is a member of the group
    //   last                     last_sequence
    //   descriptors              how many are open
    std::string order(const std::string &words) const;

    // Waits for the next report:
    //
    //   "A METHOD TYPE SEQUENCE DEVICE TEXT"   from the handler A (or B) of a message
    //   "signalled"                            SIGUSR1 has been handled
    std::string report() const;

    // Sends SIGUSR1 and waits until it is handled.
    void change_address() const;

    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
    int orders_;  // SEQPACKET, a text each; answers come back on it
    int reports_; // the same
};

#endif
