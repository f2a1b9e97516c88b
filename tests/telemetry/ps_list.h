// ps_list.h - children to find in a process list, and lists and JSON that release themselves.
#ifndef ZORV_TESTS_TELEMETRY_PS_LIST_H
#define ZORV_TESTS_TELEMETRY_PS_LIST_H

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>
#include <zorv/ps.h>

#include "support/device.h"
#include "support/enter.h"
#include "support/json.h"

struct FreeList {
    void operator()(zorv_ps_list *list) const { zorv_ps_list_free(list); }
};
using List = std::unique_ptr<zorv_ps_list, FreeList>;

// A process that has done its work and then stops until the test ends.
class Child {
public:
    explicit Child(const std::function<void()> &work)
        : pid_(static_cast<pid_t>(check(fork(), "fork")))
    {
        int status = 0;
        if (pid_ == 0)
            run(work);
        waitpid(pid_, &status, WUNTRACED);
        EXPECT_TRUE(WIFSTOPPED(status)) << "the child's work failed: " << status;
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }

private:
    [[noreturn]] static void run(const std::function<void()> &work)
    {
        try {
            work();
            raise(SIGSTOP);
        } catch (const std::exception &error) {
            dprintf(STDERR_FILENO, "%s\n", error.what());
        }
        _exit(1);
    }

    pid_t pid_;
};

inline const zorv_ps_record *find(const List &list, int pid)
{
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get())) {
        if (record->pid == pid)
            return record;
    }
    return nullptr;
}

inline std::vector<int> pids(const List &list)
{
    std::vector<int> found;
    const zorv_ps_record *record;
    for (zorv_ps_each(record, list.get()))
        found.push_back(record->pid);
    return found;
}

// A descriptor of an internet socket, as it is dumped.
inline std::string inet(const std::string &type, const std::string &local,
                        const std::string &remote, const std::string &state)
{
    return R"({"fd_type":"socket","socket_type":")" + type + R"(","socket":{"local_port":)" +
           local + ",\"remote_port\":" + remote + ",\"state\":\"" + state + "\"}}";
}

#endif
