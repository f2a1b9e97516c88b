// That the runner sees what goes wrong: each of these scenarios has a fault of its own.
#include <cstdlib>

#include <fcntl.h>
#include <jansson.h>
#include <unistd.h>

#include "support/torture.h"

TEST_F(Torture, SeesCrashesHangsAndWhatIsLeftBehind)
{
    torture({
        {.name = "crash",
         .scenario = [] { return *json_string_value(json_string("a")) == 'a' ? "a" : "b"; },
         .known = {" ENDS with status *"}},
        {.name = "leak",
         .scenario =
             [] {
                 json_t *const first = json_object(), *const second = json_object();
                 if (second)
                     json_decref(first);
                 json_decref(second);
                 return "done";
             },
         .known = {"done LEAVES blocks"}},
        {.name = "descriptor",
         .scenario =
             [] {
                 const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
                 char byte;
                 if (::read(fd, &byte, 1) == 0)
                     close(fd);
                 return "done";
             },
         .known = {"done LEAVES descriptors"}},
        {.name = "a silent failure",
         .scenario =
             [] { return access("/etc", F_OK) == 0 && system("exit 3") == 768 ? "3" : "-"; },
         .outcomes = {"-"}},
    });
}
