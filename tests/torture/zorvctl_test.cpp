// What comes of verbs of zorvctl when memory or the kernel fails: the answer, or a failure with a
// message.
#include <unistd.h>

#include "support/cloud_host.h"
#include "support/enter.h"
#include "support/torture.h"

namespace {

// Each row: a verb, and patterns of what besides the failures that all may have comes of it today.
void torture_verbs(const std::vector<std::vector<const char *>> &verbs)
{
    Device::kernel_processes();
    Device::kernel_sys();
    Device::make_bridge();
    Device::must_run(R"(build=; . )" ZORV_SOURCE_DIR R"(/tests/tools/unit.sh; whole_unit
        printf 'a=1\nvlan.1.id=2\n' >a; echo a=2 >b; echo '{"c":[1]}' >c; echo 5 >n
        add_log a.tgz 0; mkdir -p /proc/bus/pci /run/guest/portal/hotel
        echo aa:bb >/run/guest/portal/hotel/authorized; head -c 65536 /dev/zero >EEPROM
        printf '0008\t168cabcd\t10\n' >/proc/bus/pci/devices
        echo 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x' >/proc/net/nf_conntrack
        for table in tcp6 udp6 ../locks; do : >/proc/net/$table; done
        for name in /etc/syswrapper.sh /usr/local/bin/*; do program $name 'echo done'; done
        ip route add 239.0.0.0/8 dev br0)");
    check(chdir("/tmp/work"), "/tmp/work");
    std::vector<Torture::Row> rows;
    for (auto known : verbs) {
        const std::string verb = known.front();
        // Out of memory ends the program while it reads its command line.
        known.front() = "[134]: terminate*";
        rows.push_back(
            {.name = verbs[rows.size()].front(),
             .scenario = Torture::command(ZORVCTL " " + verb),
             .outcomes = {"[1]*: *", "[3]*: *", "[4]*: *", "[5]*: *", "[5] *", "[0] FACT*"},
             .most = 2,
             .known = known});
    }
    Torture::torture(rows);
}

} // namespace

// An EINTR is taken for the end, an EACCES for a file that is not there; a script that is not
// started counts as run.
TEST_F(Torture, VerbsForScripts)
{
    torture_verbs({{"cfg get a a"},
                   {"cfg diff a b"},
                   {"cfg lint a"},
                   {"cfg apply --set a=1 a"},
                   {"file add n 0", "[0] 0*"},
                   {"hash a"},
                   {"base64 encode a"},
                   {"json get c c 0"},
                   {"avg <n"},
                   {"url resolve localhost"},
                   {"capture 'echo 1'", "[0]: popen_alloc_output: Failed*"},
                   {"exec run a", "[0]", "[0]: Fork Failed*"}});
}

// The same; and what an interface does not tell is shown as none.
TEST_F(Torture, VerbsOfTheUnit)
{
    torture_verbs({{"board"},
                   {"hw eeprom"},
                   {"hw pci"},
                   {"portal list", "[0]", "[0] NAME*"},
                   {"lock inform true"},
                   {"mem", "[0] MemTotal        0*"},
                   {"conntrack", "[0]"},
                   {"status"},
                   {"doctor >/dev/null"}});
}

TEST_F(Torture, VerbsOfInterfacesAndProcesses)
{
    torture_verbs({{"top >/dev/null"},
                   {"sockets >/dev/null"},
                   {"iface show", "[0] NAME*"},
                   {"bridge fdb >/dev/null"},
                   {"bridge ports", "[0]", "[0] PORT*"},
                   {"discovery decode --hex 2233"},
                   {"discovery init-check", "[1] device*"},
                   {"discovery send --method 1 a >/dev/null"}});
}

TEST_F(Torture, VerbsThatSend)
{
    const CloudHost host({.sites = {{"crash.zorv.example"}, {"trace.zorv.example"}},
                          .answers = {{.path = "/traces", .status = 202}, {.path = "*"}}});
    torture_verbs({{"http post https://trace.zorv.example/"},
                   {"trace send a b"},
                   {"crash report", "[0] reported already*"},
                   {"crash deliver"},
                   {"crash prune --keep 1", "[0] 0 of*"}});
}
