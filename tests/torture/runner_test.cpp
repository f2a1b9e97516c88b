// That the runner sees what goes wrong: each of these scenarios has a fault of its own.
#include <jansson.h>

#include "support/torture.h"

TEST_F(Torture, SeesCrashesAndWhatIsLeftBehind)
{
    torture({
        {.name = "crash",
         .scenario = [] { return *json_string_value(json_string("a")) == 'a' ? "a" : "b"; },
         .known = {" ENDS with status *"}},
        {.name = "leaks",
         .scenario =
             [] {
                 const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
                 json_t *const first = json_object(), *const second = json_object();
                 if (first)
                     close(fd);
                 if (second)
                     json_decref(first);
                 json_decref(second);
                 return "done";
             },
         .known = {"done LEAVES blocks", "done LEAVES descriptors"}},
    });
}
