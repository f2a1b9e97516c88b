// Real processes under the kernel's own /proc.
#include <zorv/ps.h>

#include <sys/prctl.h>
#include <sys/socket.h>

#include "ps_list.h"

namespace {

using Ps = Device;

TEST_F(Ps, NamesOfAllBytesAreKeptWhole)
{
    kernel_proc();
    std::vector<std::string> names = {") R 1 (", "((", "))", " a b ", "", "a\\b"};
    for (int byte = 1; byte < 256; byte += 15) {
        std::string name;
        for (int c = byte; c < byte + 15 && c < 256; c++)
            name += c == '\n' ? ' ' : static_cast<char>(c);
        names.push_back(name);
    }
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        const Child child([&name] { prctl(PR_SET_NAME, name.c_str()); });
        List list(zorv_ps());
        const zorv_ps_record *const record = list->last;
        ASSERT_EQ(record->pid, child.pid());
        EXPECT_EQ(record->comm, name);
        EXPECT_EQ(record->ppid, getpid());
        EXPECT_EQ(record->state, 'T');

        const Json array(zorv_ps_list_to_array(list.release()));
        const size_t last = json_array_size(array.get()) - 1;
        const char *comm =
            json_string_value(json_object_get(json_array_get(array.get(), last), "comm"));
        const Json checked(json_string(name.c_str())); // none for what is not UTF-8
        EXPECT_EQ(comm ? comm : "(none)", checked ? name : "(none)");
    }
    // A newline ends the line that is read, and the name is never closed.
    const Child hidden([] { prctl(PR_SET_NAME, "a\nb"); });
    EXPECT_EQ(find(List(zorv_ps()), hidden.pid()), nullptr);
}

TEST_F(Ps, FilterLeavesOutWhatItAnswersOneFor)
{
    kernel_proc();
    const Child a([] {}), b([] {}), c([] {});
    struct Seen {
        int out;
        std::vector<int> answers;
    } seen = {b.pid(), {}};
    const auto answer = [](zorv_ps_record *record, void *arg) {
        auto *const all = static_cast<Seen *>(arg);
        EXPECT_NE(record->fds.first, nullptr); // complete already
        all->answers.push_back(record->pid == all->out ? 1 : record->pid % 2 ? -1 : 2);
        return all->answers.back();
    };
    const List list(zorv_ps_filter(1, answer, &seen));
    EXPECT_THAT(pids(list), ElementsAre(1, getpid(), a.pid(), c.pid()));
    EXPECT_EQ(list->count, 4);
    EXPECT_EQ(seen.answers.size(), 5u);
    EXPECT_EQ(list->last->pid, c.pid()); // a ring, both ways
    EXPECT_EQ(list->last->prev->prev->prev, list->first);
    EXPECT_EQ(static_cast<void *>(list->first->prev), list.get());
    EXPECT_EQ(static_cast<void *>(list->last->next), list.get());

    const List none(zorv_ps_filter(
        0, [](zorv_ps_record *, void *) { return 1; }, nullptr));
    EXPECT_EQ(none->count, 0);
    EXPECT_THAT(pids(none), IsEmpty());
}

TEST_F(Ps, ProcessesThatComeAndGoDoNoHarm)
{
    kernel_proc();
    libzorv_log_level = 0;
    const pid_t spawner = fork();
    if (spawner == 0) { // some 50 a second, each with a few descriptors
        for (;;) {
            if (fork() == 0) {
                socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                usleep(30'000);
                _exit(0);
            }
            usleep(20'000);
            while (waitpid(-1, nullptr, WNOHANG) > 0)
                continue;
        }
    }
    const int before = open_descriptors();
    for (int round = 0; round < 200; ++round) {
        const Json array(zorv_ps_list_to_array(zorv_ps_filter(1, nullptr, nullptr)));
        size_t index;
        json_t *process;
        ASSERT_GE(json_array_size(array.get()), 2u);
        json_array_foreach(array.get(), index, process)
        {
            ASSERT_EQ(json_object_size(process), 8u);
            ASSERT_NE(dumped(process), "");
        }
    }
    EXPECT_EQ(open_descriptors(), before);
    kill(spawner, SIGKILL);
}

} // namespace
