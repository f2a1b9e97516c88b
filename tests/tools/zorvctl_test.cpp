// What all verbs have in common, and those of cfg and file.
#include <sstream>

#include <sys/stat.h>

#include "tools/zorvctl.h"

namespace {

constexpr char kExample[] = ZORV_SOURCE_DIR "/examples/system.cfg";

std::string files()
{
    return Device::run("ls -A /tmp/work").output;
}

// The one document of an output, which must hold nothing else.
Json document(const std::string &output)
{
    Json json = loaded(output);
    EXPECT_TRUE(json) << output;
    return json;
}

std::string error_code(const std::string &output)
{
    const Json json = document(output);
    const json_t *error = json_object_get(json.get(), "error");
    const char *code = json_string_value(json_object_get(error, "code"));
    EXPECT_TRUE(json_is_string(json_object_get(error, "message"))) << output;
    return code ? code : "";
}

// The names in the section "Subcommands:" of a help text.
std::vector<std::string> subcommands(const std::string &help)
{
    std::vector<std::string> names;
    std::istringstream lines(help.substr(std::min(help.find("Subcommands:\n"), help.size())));
    std::string line, name;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  "))
        if (line[2] != ' ' && std::istringstream(line) >> name)
            names.push_back(name);
    return names;
}

} // namespace

TEST_F(Zorvctl, EveryVerbShowsAnExampleAndAnswersNonsenseInJson)
{
    const auto families = subcommands(ctl("--help").output);
    EXPECT_THAT(families, testing::IsSupersetOf({"cfg", "file"}));
    for (const auto &family : families) {
        std::vector<std::string> verbs = subcommands(ctl(family + " --help").output);
        if (verbs.empty())
            verbs.emplace_back(); // the word is a verb itself
        for (const auto &verb : verbs) {
            std::string command = family;
            command.append(verb.empty() ? "" : " ").append(verb);
            SCOPED_TRACE(command);
            EXPECT_THAT(ctl(command + " --help").output,
                        HasSubstr("Example:\n  zorvctl " + command));
            EXPECT_TRUE(document(ctl("--json " + command + " --help").output));
            const Outcome outcome = ctl(command + " --json --no-such-option");
            EXPECT_EQ(outcome.status, 2);
            EXPECT_EQ(error_code(outcome.output), "usage");
        }
    }
}

TEST_F(Zorvctl, TellsItsVersionAndSource)
{
    const Json json = document(ctl("--json --version").output);
    const std::string hash = json_string_value(json_object_get(json.get(), "git_hash"));
    EXPECT_EQ(hash.size(), 40U);
    EXPECT_THAT(ctl("--version").output, HasSubstr("zorv_git_hash=<" + hash + ">\n"));
}

// The same answer in text and JSON, wherever --json stands.
TEST_F(Zorvctl, FailuresHaveACodeAndAnExitStatus)
{
    file("/tmp/work/a.cfg", "a=1\nb=word\n");
    file("/tmp/work/cfg", "5\n");
    const struct {
        const char *arguments;
        int status;
        const char *code;
    } rows[] = {
        {"", 2, "usage"},
        {"cfg", 2, "usage"},
        {"cfg gett a.cfg a", 2, "usage"},
        {"cfg get a.cfg", 2, "usage"},
        {"cfg get a.cfg a b", 2, "usage"},
        {"cfg get a.cfg a \"\" --nonsense", 2, "usage"},
        {"cfg get a.cfg c --int --default x", 2, "usage"},
        {"cfg get a.cfg c", 1, "not-found"},
        {"cfg get a.cfg b --int", 1, "not-found"},
        {"cfg section a.cfg vlan. --postfix id", 2, "usage"},
        {"cfg count a.cfg --enabled", 2, "usage"},
        {"cfg get none.cfg a", 5, "io"},
        {"cfg list /tmp/work", 5, "io"},
        {"cfg lint /dev/zero", 5, "io"},
        {"cfg apply a.cfg", 2, "usage"},
        {"cfg apply --set a=2 none.cfg", 5, "io"},
        {"file get none", 5, "io"},
        {"file get cfg key", 1, "not-found"},
        {"file set none/value 1", 5, "io"},
        {"file set cfg \"$(printf 'two\\nlines')\"", 2, "usage"},
        {"file add cfg 9223372036854775807", 5, "io"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome text = ctl(row.arguments);
        EXPECT_EQ(text.status, row.status);
        EXPECT_EQ(text.output, "");
        EXPECT_THAT(text.errors, StartsWith("zorvctl: "));
        EXPECT_EQ(text.errors.find('\n'), text.errors.size() - 1);

        const Outcome after = ctl(std::string(row.arguments) + " --json");
        EXPECT_EQ(after.status, row.status);
        EXPECT_EQ(error_code(after.output), row.code);
        EXPECT_EQ(ctl(std::string("--json ") + row.arguments).output, after.output);
    }
    EXPECT_EQ(read("/tmp/work/cfg"), "5\n");
    EXPECT_EQ(ctl("file get cfg").output, "5\n"); // not taken for the family
}

TEST_F(Zorvctl, AReplyThatCannotBeWrittenIsAFailure)
{
    std::string text;
    for (int n = 0; n < 20000; n++) // more than a pipe holds
        text += "wireless." + std::to_string(n) + ".ssid=office\n";
    file("/tmp/work/a.cfg", text);
    for (const auto flag : {"", " --json"}) {
        const std::string list = "cfg list a.cfg" + std::string(flag);
        EXPECT_EQ(ctl(list + " >/dev/full").status, 5);
        EXPECT_EQ(ctl(list + " >&-").status, 5);
        ctl("--version | true; { zorvctl " + list + "; echo $? >/tmp/status; } | true");
        EXPECT_EQ(read("/tmp/status"), "5\n");
    }
    // A closed standard output does not lend its number to the file that is written.
    EXPECT_EQ(ctl("cfg apply --set a=1 a.cfg >&-").status, 5);
    EXPECT_EQ(read("/tmp/work/a.cfg"), "# CFG Start\n" + text + "a=1\n");
}

TEST_F(Zorvctl, BytesThatAreNotUtf8AreReplacedAndFlagged)
{
    file("/tmp/work/a.cfg", "good=\xc3\xa9\nbad=a\xff\xed\xa0\x80z\n\xc0\xaf=1\n");
    EXPECT_EQ(ctl("--json cfg list a.cfg").output,
              "{\"entries\":[{\"key\":\"good\",\"value\":\"\xc3\xa9\"},"
              "{\"key\":\"bad\",\"value\":\"a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbdz\","
              "\"invalid_utf8\":true},"
              "{\"key\":\"\xef\xbf\xbd\xef\xbf\xbd\",\"invalid_utf8\":true,\"value\":\"1\"}]}\n");
    EXPECT_EQ(ctl("cfg get a.cfg bad").output, "a\xff\xed\xa0\x80z\n"); // text is the bytes
    EXPECT_EQ(error_code(ctl("--json cfg get \"$(printf '\\377')\" a").output), "io");
}

TEST_F(Zorvctl, LibraryMessagesGoToStandardErrorWhenAskedFor)
{
    file("/tmp/work/a.cfg", "vlan1=1\n");
    EXPECT_EQ(ctl("cfg section a.cfg vlan --json").errors, "");
    const Outcome loud = ctl("cfg section -v a.cfg vlan --json");
    EXPECT_THAT(loud.errors, HasSubstr("[warn ] cfg.process_cfg_section(): deprecated prefix"));
    EXPECT_EQ(loud.output, "{\"entries\":[{\"key\":\"vlan1\",\"value\":\"1\"}]}\n");
}

TEST_F(Zorvctl, QueriesAnswerAsTheLibraryDoes)
{
    file("/tmp/work/empty.cfg", "# nothing\n");
    must_run("cp " + std::string(kExample) + " /tmp/work/a.cfg");
    const struct {
        const char *arguments;
        int status;
        const char *output;
    } rows[] = {
        {"get a.cfg WIRELESS.3.ssid", 0, "handsets\n"},
        {"get a.cfg radio.1.txpower", 0, "11\n"}, // the misc region's
        {"get a.cfg led.night.begin --int", 0, "22\n"},
        {"get a.cfg nothing --int --default 0x10", 0, "16\n"},
        {"get a.cfg nothing --default '' --json", 0,
         "{\"key\":\"nothing\",\"found\":false,\"value\":\"\"}\n"},
        {"get a.cfg ppp.status --bool", 1, "no\n"},
        {"get a.cfg wireless.1.passphrase --escaped", 0,
         "correct horse \\\"battery\\\" \\$taple\n"},
        {"list a.cfg misc.", 0,
         "KEY                VALUE\n"
         "misc.site.contact  +1-202-555-0143\n"
         "misc.rack          E2-07\n"},
        {"list a.cfg MISC.RACK --exact --json", 0,
         "{\"entries\":[{\"key\":\"misc.rack\",\"value\":\"E2-07\"}]}\n"},
        {"list a.cfg nothing. --json", 1, "{\"entries\":[]}\n"},
        {"count empty.cfg", 0, "0\n"},
        {"count a.cfg", 0, "265\n"},
        {"count a.cfg vlan.1", 0, "16\n"},
        {"count a.cfg vlan.1.id --exact", 0, "1\n"},
        {"count a.cfg wireless. --section --postfix .status --enabled", 0, "5\n"},
        {"count a.cfg vlan. --section --postfix .id --value 20", 0, "2\n"},
        {"section a.cfg ntp. --postfix .status --enabled --json", 0,
         "{\"entries\":[{\"key\":\"ntp.1.status\",\"value\":\"enabled\"},"
         "{\"key\":\"ntp.2.status\",\"value\":\"enabled\"}]}\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = ctl("cfg " + std::string(row.arguments));
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.output, row.output);
    }
}

TEST_F(Zorvctl, LintNamesWhatTheParserLoses)
{
    using namespace std::literals;
    const struct {
        std::string_view text;
        std::string_view findings; // "line kind" each
        json_int_t misc_line;
    } rows[] = {
        {"", "", 0},
        {"# CFG Start\n\n  \na=1\n# misc\nb=2\n", "", 5},
        {"a=1\nb=2", "2 no-newline", 0},
        {"a=1\r\n\rb=2\n", "1 carriage-return, 2 carriage-return", 0},
        {"a=1\nnothing\n", "2 no-equals", 0},
        {"x.2.a=1\nX.2.A=2\nx.02.a=3\n", "2 duplicate-key", 0},
        {"a=1\n# miscellany\na=2\n# misc\n", "3 duplicate-key", 2},
        {" a =1\n=2\n # a = 3\n", "1 blanks, 2 empty-key, 3 blanks, 3 indented-comment", 0},
        {"a=1\0 2\nb\0=2\n"sv, "1 nul-byte, 2 nul-byte, 2 no-equals", 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        file("/tmp/work/a.cfg", row.text);
        const Outcome outcome = ctl("cfg lint a.cfg --json");
        EXPECT_EQ(outcome.status, row.findings.empty() ? 0 : 1);
        const Json json = document(outcome.output);
        EXPECT_EQ(json_integer_value(json_object_get(json.get(), "misc_line")), row.misc_line);
        std::string findings;
        size_t index;
        const json_t *finding;
        json_array_foreach(json_object_get(json.get(), "findings"), index, finding) findings +=
            (index ? ", " : "") +
            std::to_string(json_integer_value(json_object_get(finding, "line"))) + " " +
            json_string_value(json_object_get(finding, "kind"));
        EXPECT_EQ(findings, row.findings);
    }
}

TEST_F(Zorvctl, DiffTellsAddedChangedAndRemoved)
{
    file("/tmp/work/old.cfg", "a=1\nb=1\nc=1\na.comment=x\n");
    file("/tmp/work/new.cfg", "d=\nC=2\nA=1\na.comment=y\n");
    expect(1,
           "CHANGE   KEY  OLD  NEW\n"
           "added    d    -\n"
           "changed  C    1    2\n"
           "removed  b    1    -\n",
           "cfg diff old.cfg new.cfg");
    expect(0, "{\"changes\":[]}\n", "cfg diff old.cfg old.cfg --json");
}

TEST_F(Zorvctl, ApplyReplacesTheFileAndKeepsModeOwnerAndLink)
{
    file("/tmp/work/real.cfg", "# note\nb=1\na=1\na=2\n# misc\nB=3\n");
    must_run("cd /tmp/work && chmod 4640 real.cfg && ln -s real.cfg a.cfg");
    EXPECT_EQ(ctl("cfg apply --set A=5 --dry-run a.cfg --json").output,
              "{\"changes\":[{\"key\":\"A\",\"change\":\"changed\",\"old\":\"1\",\"new\":\"5\"}],"
              "\"written\":false,\"comments_dropped\":2}\n");
    EXPECT_THAT(read("/tmp/work/a.cfg"), StartsWith("# note\n"));

    EXPECT_EQ(ctl("cfg apply --set A=4 --set 'n= x=y ' --set a=5 a.cfg").status, 0);
    EXPECT_EQ(read("/tmp/work/a.cfg"), "# CFG Start\nb=3\na=5\na=2\nn= x=y \n");
    struct stat status;
    ASSERT_EQ(stat("/tmp/work/real.cfg", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 04640U);
    EXPECT_EQ(files(), "a.cfg\nreal.cfg\n");
    EXPECT_EQ(ctl("cfg apply --set a=5 a.cfg --json").output,
              "{\"changes\":[],\"written\":false,\"comments_dropped\":0}\n");
}

TEST_F(Zorvctl, ApplyRefusesWhatCouldNotBeReadBack)
{
    const std::string text = "a=1\n";
    file("/tmp/work/a.cfg", text);
    for (const auto setting : {"a", "=1", " a=1", "a\t=1", "#a=1", "\ra=1", "a=1\n", "a\nb=1"}) {
        SCOPED_TRACE(setting);
        EXPECT_EQ(ctl("cfg apply --set '" + std::string(setting) + "' a.cfg").status, 2);
        EXPECT_EQ(read("/tmp/work/a.cfg"), text);
    }
    for (const std::string odd : {" # a = 1\n", " \ra=1\n"}) { // would be skipped once saved
        SCOPED_TRACE(odd);
        file("/tmp/work/a.cfg", odd);
        expect(5, "a.cfg: left as it was", "cfg apply --set b=1 a.cfg");
        EXPECT_EQ(read("/tmp/work/a.cfg"), odd);
        EXPECT_EQ(files(), "a.cfg\n");
    }
}

TEST_F(Zorvctl, ApplyLeavesTheOldFileWhenThereIsNoRoom)
{
    std::string text = "# CFG Start\n";
    while (text.size() < 40000)
        text += "wireless." + std::to_string(text.size()) + ".ssid=office\n";
    file("/tmp/work/a.cfg", text);
    EXPECT_EQ(run("cd /tmp/work && ulimit -f 64 && zorvctl cfg apply --set a=1 a.cfg").status, 5);
    EXPECT_EQ(read("/tmp/work/a.cfg"), text);
    EXPECT_EQ(files(), "a.cfg\n");

    small_disk("/tmp/work", 65536); // room for one of its size, not for two
    file("/tmp/work/a.cfg", text);
    EXPECT_EQ(ctl("cfg apply --set a=1 a.cfg").status, 5);
    EXPECT_EQ(read("/tmp/work/a.cfg"), text);
    EXPECT_EQ(files(), "a.cfg\n");
}

TEST_F(Zorvctl, ApplyLeavesTheOldFileWhereItMayNotWrite)
{
    file("/tmp/work/a.cfg", "a=1\n");
    EXPECT_EQ(run("cd /tmp/work && flock . zorvctl cfg apply --set a=2 a.cfg").status, 4);
    // Root that has lost its powers and cannot get them back, so that modes hold.
    const std::string apply = "cd /tmp/work && setpriv --bounding-set=-all --inh-caps=-all "
                              "zorvctl cfg apply --set a=2 a.cfg";
    must_run("chmod 555 /tmp/work");
    EXPECT_EQ(run(apply).status, 5);
    must_run("chmod 755 /tmp/work && chmod 444 /tmp/work/a.cfg");
    EXPECT_EQ(run(apply).status, 5);
    must_run("mount --bind /tmp/work /tmp/work && mount -o remount,bind,ro /tmp/work");
    EXPECT_EQ(ctl("cfg apply --set a=2 a.cfg").status, 5);
    EXPECT_EQ(read("/tmp/work/a.cfg"), "a=1\n");
    EXPECT_EQ(files(), "a.cfg\n");
}

TEST_F(Zorvctl, ApplyThatIsKilledLeavesAWholeFile)
{
    std::string text = "# CFG Start\nround=0\n";
    for (int n = 0; n < 20000; n++)
        text += "wireless." + std::to_string(n) + ".ssid=office\n";
    file("/tmp/work/a.cfg", text);
    const std::string rest = text.substr(text.find("wireless"));
    for (int round = 1; round <= 30; round++) {
        const std::string signal = round % 2 ? "KILL" : "TERM";
        run("cd /tmp/work && timeout -s " + signal + " 0.0" + std::to_string(10 + 3 * round) +
            " zorvctl cfg apply --set round=" + std::to_string(round) + " a.cfg");
        const std::string now = read("/tmp/work/a.cfg");
        ASSERT_THAT(now, StartsWith("# CFG Start\nround="));
        ASSERT_TRUE(now.ends_with("\n" + rest)) << now.size();
        EXPECT_TRUE(signal == "KILL" || files() == "a.cfg\n") << files();
        run("rm -f /tmp/work/a.cfg.*");
    }
}

TEST_F(Zorvctl, StateFilesAreReadBackAfterWriting)
{
    file("/tmp/work/table", "MemTotal:  1024 kB\nmode=ap\n");
    file("/tmp/work/empty", "");
    EXPECT_EQ(ctl("file get table MemTotal:").output, "1024\n");
    EXPECT_EQ(ctl("file get table mode --json").output,
              "{\"file\":\"table\",\"found\":true,\"value\":\"ap\"}\n");
    EXPECT_EQ(ctl("file get empty").output, "\n");
    EXPECT_EQ(ctl("file get none --default 7").output, "7\n");
    EXPECT_EQ(ctl("file add count 5").output, "5\n");
    EXPECT_EQ(ctl("file add count -7 --json").output, "{\"file\":\"count\",\"value\":-2}\n");
    EXPECT_EQ(ctl("file set count 'two words'").status, 0);
    EXPECT_EQ(read("/tmp/work/count"), "two words\n");

    small_disk("/tmp/work", 4096);
    must_run("head -c 4096 /dev/zero > /tmp/work/fill");
    EXPECT_EQ(ctl("file set value 1").status, 5);
    EXPECT_EQ(ctl("file add value 1").status, 5);
}
