// What comes of verbs of zorvctl when memory or the kernel fails: the answer, or a failure with a
// message.
#include <list>

#include "support/cloud_host.h"
#include "support/torture.h"

namespace {

#ifdef __SANITIZE_ADDRESS__ // each run takes a second
constexpr long kMost = 1;
#else
constexpr long kMost = 2;
#endif

// Of what is done once.
void remove_marks()
{
    unlink("/run/last-crashlog.sent");
    unlink("/etc/persistent/isolation_logs_sent/a.tgz");
}

// "VERB ARGUMENTS|PATTERN|...; ...": besides the failures that all may have, these come today.
void torture_verbs(const std::string &verbs)
{
    Device::kernel_processes();
    Device::kernel_sys();
    Device::make_bridge();
    Device::must_run(R"(build=; . )" ZORV_SOURCE_DIR R"(/tests/tools/unit.sh; whole_unit
        printf 'a=1\nvlan.1.id=2\n' >a; echo a=2 >b; echo '{"c":[1]}' >c; echo 5 >n
        echo 'a number, required' >s; sha256sum a >a.sha; echo 00112233445566778899aabbccddeeff >c.key
        add_log a.tgz 0; mkdir -p /run/guest/portal/hotel
        echo aa:bb >/run/guest/portal/hotel/authorized; head -c 65536 /dev/zero >EEPROM
        echo 'ipv4 2 tcp src=192.0.2.1 dst=192.0.2.9 x' >/proc/net/nf_conntrack
        touch /proc/net/tcp6 /proc/net/udp6 /proc/locks; ip route add 239.0.0.0/8 dev br0
        for i in /etc/sys* /usr/local/bin/*; do program $i '[ "$1" != a ] || echo done'; done)");
    check(chdir("/tmp/work"), "/tmp/work");
    const CloudHost host({.sites = {{"crash.zorv.example"}, {"trace.zorv.example"}},
                          .answers = {{.path = "/traces", .status = 202}, {.path = "*"}}});
    std::list<std::string> words; // which the rows look at
    std::vector<Torture::Row> rows;
    std::istringstream stream(verbs);
    for (std::string line; std::getline(stream >> std::ws, line, ';');) {
        std::istringstream row(line);
        std::vector<const char *> known;
        for (std::string word; std::getline(row, word, '|');)
            known.push_back(words.emplace_back(word).c_str());
        rows.push_back({.name = known.front(),
                        .scenario = Torture::command(std::string(ZORVCTL " ") + known.front()),
                        .outcomes = {"[3]*: *", "[4]*: *", "[5]*: *", "[5] *", "[0] FACT*"},
                        .prepare = remove_marks,
                        .most = kMost,
                        .known = {known.begin() + 1, known.end()}});
    }
    Torture::torture(rows);
}

} // namespace

TEST_F(Torture, VerbsForScripts)
{
    torture_verbs(R"(cfg get a a vlan.1.id; cfg list a; cfg diff a b; cfg lint --schema s a b;
        cfg apply --set a=1 a; cfg set -f a --schema s z=$$ >/dev/null; hash -c a.sha;
        aes encrypt --key-file c.key --iv 00000000000000000000000000000000 a; lock status report;
        file get n; file add n 0; json get c c 0 --json; url resolve localhost; lock inform true;
        capture 'echo 1'; exec run a)");
}

// What an interface does not tell is shown as none.
TEST_F(Torture, VerbsOfTheUnit)
{
    torture_verbs(R"(board; hw eeprom; portal list; conntrack; iface show br0; iface uplink;
        mem; status; doctor >/dev/null; bridge ports; bridge lookup 02:a0:f1:00:00:10;
        top >/dev/null; sockets >/dev/null; bridge fdb >/dev/null)");
}

TEST_F(Torture, VerbsThatSend)
{
    torture_verbs(R"(http get https://trace.zorv.example/ -o out; trace send a b; trace status;
        crash report; discovery init-check; discovery send --method 1 a >/dev/null;
        discovery list --timeout 0; discovery listen --timeout 0; discovery decode a --key-file a)");
}

TEST_F(Torture, VerbsOfCrashes)
{
    torture_verbs(
        R"(crash prune --keep 1; crash next >/dev/null; crash finish a.tgz; crash status >/dev/null)");
}
