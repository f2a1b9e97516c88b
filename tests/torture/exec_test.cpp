// Commands and scripts when memory runs out or the kernel refuses.

#include "support/torture.h"

static void install()
{
    Device::script("/etc/syswrapper.sh", "#!/bin/sh\n[ $1 ] || echo x >>/tmp/ran\n");
    Device::file("/tmp/ran", "");
    Device::file("/tmp/output", std::string(4000, 'x'));
    libzorv_log_level = 8;
}

TEST_F(Torture, Exec)
{
    torture({
        // An argument for which memory runs out is missing in what is made, without a message.
        {"exec_create and exec_copy",
         [] {
             exec_command *const made = exec_create("/bin/a", "x", nullptr);
             exec_command *const copy = exec_copy(made);
             std::string text;
             for (exec_command *const command : {made, copy}) {
                 text += !command ? "none " : command->argv[1] ? "x " : "- ";
                 exec_destroy(command);
             }
             return text;
         },
         {"- - ", "x none ",
          "* none : [debug] libzorv_exec.make_command(): #: calloc(#, #) failed"},
         install},
        {.name = "capture",
         .scenario =
             [] {
                 char text[100] = "kept";
                 const int length = popen_get_output("cat /tmp/output", text, 6);
                 char *const made = popen_alloc_output("cat /tmp/output", 5000);
                 Torture::settle();
                 const std::string size = made ? std::to_string(strlen(made)) : "none";
                 free(made);
                 return std::to_string(length) + " " + text + " " + size;
             },
         .outcomes = {"-1 kept *: popen_get_output: get_output: popen[cat /tmp/output] -> NULL*",
                      "5 xxxxx *: popen_alloc_output: *",
                      "0  4000: popen_get_output: Failed to read from stream, command='cat *"},
         .prepare = install},
        // A script that cannot be started looks like one that succeeded.
        {"scripts",
         [] {
             char script[] = "/etc/syswrapper.sh", *words[] = {script, nullptr};
             forkexec(words);
             syswrapper_impl(1, "reload", nullptr);
             syswrapper_impl(0, "reload", nullptr); // when its second fork fails, the call waits
             Torture::settle();
             return Device::read("/tmp/ran");
         },
         {"", "*: Fork Failed!!; : *: [ERROR] fork failed*",
          "*unable to locate syswrapper.sh, 'reload' skipped!*"},
         install},
    });
}
