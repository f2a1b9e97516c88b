// What comes of each verb of zorvctl when memory or the kernel fails: its answer, or a failure with
// a message.
#include <list>
#include <sstream>

#include <unistd.h>

#include "support/cloud_host.h"
#include "support/enter.h"
#include "support/torture.h"

namespace {

// A unit with a little of everything, in /tmp; a process that is named fake has a socket.
void prepare()
{
    Device::kernel_processes();
    Device::kernel_sys();
    Device::make_bridge();
    check(chdir("/tmp"), "/tmp");
    Device::must_run(R"(
        mkdir -p /run/report /run/guest/portal/hotel /proc/bus/pci /proc/net /proc/5000/fd
        store=/etc/persistent/isolation_logs; mkdir -p $store; : >system.cfg; echo oops >log.txt
        printf 'a=1\nvlan.1.id=2\n' >a; echo a=2 >b; echo '{"c":[1]}' >c; echo 5 >n; echo Zm9v >e
        : >$store/a.tgz; echo aa:bb >/run/guest/portal/hotel/authorized; : >/run/ntp.ready
        printf '0008\t168cabcd\t10\n' >/proc/bus/pci/devices; head -c 65536 /dev/zero >EEPROM
        echo 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x' >/proc/net/nf_conntrack
        printf 'MemTotal: 3000 kB\nMemAvailable: 1000 kB\n' >/proc/meminfo; : >/proc/locks
        printf '#\n 0: 0100007F:0016 00000000:0000 0A 0:0 0:0 0 0 0 77 1\n' >/proc/net/tcp
        for table in tcp6 udp udp6 unix dev arp; do : >/proc/net/$table; done
        echo '5000 (fake) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 4096 1 0' >/proc/5000/stat
        : >/proc/5000/cmdline; ln -s 'socket:[77]' /proc/5000/fd/3; echo 192.0.2.1 >/run/ipready.br0
        echo pluvo.key=000102030405060708090a0b0c0d0e0f >/run/zorv_protocol.info
        echo pluvo.mcip=239.255.90.90 >>/run/zorv_protocol.info
        ip route add 239.0.0.0/8 dev br0)");
    for (const char *const name : {"/etc/syswrapper.sh", "/usr/local/bin/syswrapper.sh",
                                   "/usr/local/bin/oopsdump", "/usr/local/bin/logread"})
        Device::script(name, "#!/bin/sh\n[ \"$1\" != a ] || echo done\n");
}

// "VERB ARGUMENTS|PATTERN|...; ...": besides the failures that all may have, these come today.
void torture_verbs(const std::string &lines)
{
    prepare();
    std::list<std::string> words; // which the rows look at
    std::vector<Torture::Row> rows;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream >> std::ws, line, ';');) {
        std::istringstream row(line);
        std::string verb;
        std::getline(row, verb, '|');
        words.push_back(verb);
        rows.push_back(
            {.name = words.back().c_str(),
             .scenario = Torture::command(ZORVCTL " " + verb),
             .outcomes = {"[1]*: *", "[3]*: *", "[4]*: *", "[5]*: *", "[5] *", "[0] FACT*"},
             .most = 2,
             // Out of memory ends the program while it reads its command line.
             .known = {"[134]: terminate*"}});
        while (std::getline(row, verb, '|'))
            rows.back().known.push_back(words.emplace_back(verb).c_str());
    }
    Torture::torture(rows);
}

} // namespace

// An EINTR is taken for the end, an EACCES for a file that is not there; a script that is not
// started counts as run.
TEST_F(Torture, VerbsOfFiles)
{
    torture_verbs(R"(cfg get a a; cfg list a; cfg count a; cfg section a vlan. --postfix .id;
        cfg diff a b; cfg lint a; cfg apply --set a=1 a; file get n; file set n 7;
        file add n 0|[0] 0*)");
}

TEST_F(Torture, VerbsForScripts)
{
    torture_verbs(R"(hash a; base64 encode a; base64 decode e; json get c c 0; avg <n; url parse a;
        url encode a; url resolve localhost; analytics;
        capture 'echo 1'|[0]: popen_alloc_output: Failed*;
        exec run a|[0]|[0]: Fork Failed*; exec explain a)");
}

// The same; and what an interface does not tell is shown as none.
TEST_F(Torture, VerbsOfTheUnit)
{
    torture_verbs(R"(board; model; hw eeprom; hw pci; portal list|[0]|[0] NAME*;
        portal auth hotel aa:bb|[1] no*; portal find --name hotel; lock report true;
        lock inform true; lock status; mem|[0] MemTotal        0*; conntrack|[0])");
}

TEST_F(Torture, VerbsOfInterfacesAndProcesses)
{
    torture_verbs(R"(top >/dev/null; ps --name fake|[1]; sockets --name fake|[1];
        iface show|[0] NAME*; iface up lo; iface uplink; bridge fdb >/dev/null;
        bridge ports|[0]|[0] PORT*; bridge lookup 02:a0:f1:00:00:10|[0] bridge*;
        bridge delete 02:a0:f1:00:00:10 eth0; status; doctor >/dev/null)");
}

TEST_F(Torture, VerbsThatSend)
{
    const CloudHost host({.sites = {{"crash.dev.zorv.example"}, {"trace.dev.zorv.example"}},
                          .answers = {{.path = "/traces", .status = 202}, {.path = "*"}}});
    torture_verbs(R"(http get https://trace.dev.zorv.example/;
        http post https://trace.dev.zorv.example/;
        http put https://trace.dev.zorv.example/; trace send a b; trace status;
        crash status|[0] GATE*; crash report|[0] reported already*; crash logs|[0];
        crash next; crash finish a.tgz; crash deliver; crash dump --name a --type ram;
        crash prune --keep 1|[0] 0 of*)");
}

TEST_F(Torture, VerbsOfDiscovery)
{
    torture_verbs(R"(discovery decode --hex 2233; discovery init-check|[1] device*;
        discovery listen --timeout 0.01; discovery send --method 1 a >/dev/null)");
}
