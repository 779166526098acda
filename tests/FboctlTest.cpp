#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

namespace {

struct Outcome {
    int status;
    /** Standard output, with what went to standard error among it. */
    std::string output;
};

Outcome finish(FILE* pipe, std::string output = {}) {
    char chunk[4096];
    size_t size;
    while ((size = fread(chunk, 1, sizeof(chunk), pipe)) > 0) output.append(chunk, size);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), output};
}

/** Runs fboctl as a shell would, with its errors in the output. */
Outcome fboctl(const std::string& arguments) {
    return finish(popen((std::string("exec 2>&1; ") + arguments).c_str(), "r"));
}

std::string tool(const std::string& arguments) {
    return std::string(FBOCTL) + " " + arguments;
}

Json::Value parse(const std::string& text) {
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    std::string errors;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << text;
    return value;
}

struct StatusCase {
    const char* arguments;
    int status;
    /** Stands in the output. */
    const char* text;
};

void PrintTo(const StatusCase& row, std::ostream* out) {
    *out << row.arguments;
}

class FboctlStatus : public testing::TestWithParam<StatusCase> {};

TEST_P(FboctlStatus, IsWhatTheHelpSays) {
    const Outcome outcome = fboctl(tool(GetParam().arguments));
    EXPECT_EQ(outcome.status, GetParam().status) << outcome.output;
    EXPECT_NE(outcome.output.find(GetParam().text), std::string::npos) << outcome.output;
}

// clang-format off
const StatusCase kStatuses[] = {
        {"--help", 0, "Exit status"}, {"--sim list", 0, "ufs31:kioxia"},
        {"--sim ufs40:samsung support", 0, "FBO: supported"},
        {"--sim ufs31:wdc,wear=2400 support", 1, "FBO: not supported, the flash is worn: 2400"},
        {"--sim ufs40:kioxia,platform=mtk stop", 0, "stop: sent"},
        {"--sim ufs40:kioxia continue --json", 0, "\"sent\" : true"},
        {"--sim ufs40:micron trigger 1,2,9,2", 0, "before: 9728, after: 256"},
        {"--sim ufs40:micron,analysis_end=9 trigger 1,2,9,2", 1, "1 of 1 zones"},
        {"--sim ufs40:micron --raw trigger 1", 1, "did not take the request"},
        {"--sim ufs40:micron --log --raw trigger 1,29", 0, "lba is: 1,2 ."},
        {"--sim ufs31:micron --trace trigger 1,2", 0, "0 s  write fbo_send_lr_list \"1,2\\n\""},
        {"--sim ufs40:samsung,eua=0 support", 1, "EUA: not supported, the driver says 0"},
        {"--sim ufs40:samsung,fault.eua_support=missing eua support", 1, "no EUA nodes"},
        {"--sim ufs40:skhynix-tarno --json eua support", 1,
         "policy row (0), device (tarno), vendor (SKhynix)"},
        {"--sim ufs40:samsung,fault.fbo_support=missing support", 1,
         "FBO: not supported, the driver has no FBO nodes"},
        {"--sim ufs40:samsung,node.fbo_support=0 support", 1,
         "FBO: not supported, the driver says no, or nothing"},
        {"--sim ufs31:samsung,fault.ufshcd-qcom=missing support", 3,
         "FBO: not supported, this phone has no UFS host controller"},
        {"--sim ufs40:samsung eua size", 0, "EUA size: 65536"},
        {"--sim ufs40:samsung,device=corvi eua size", 1, "EUA size: 0"},
        {"--sim ufs40:samsung --trace eua erase 1,8:9,8", 0,
         "item 2 of 2\n       5 s  write eua_file_lba_unmap \"9,8\\n\""},
        {"--sim ufs40:samsung,fault.eua_file_lba_unmap=missing eua erase 1,8", 1, "Nothing sent"},
        {"--sim ufs40:wdc,wear=77 wear", 0, "cycles: 77\nEUA: supported"},
        {"--sim ufs40:wdc,fault.hr=missing wear --json", 1, "\"cycles\" : null"},
        {"--sim ufs40:wdc,node.vendor=NOBODY wear", 1, "cycles: not known\nEUA: supported"},
        {"--sim ufs40:wdc gc", 0, "is requested"},
        {"--sim ufs40:wdc,userdata=/dev/block/dm-9 gc", 1, "cannot be"},
        {"--sim ufs40:wdc version-ctrl '>0.9:ON'", 0, "FBO is on"},
        {"--sim ufs40:wdc version-ctrl 1.0:OFF", 1, "FBO is off"},
        {"--sim ufs40:wdc version-ctrl V", 3, "an error escaped the call"},
        {"--sim ufs40:micron snapshot backup", 0, "waiting, inprogress\nThe backup is complete"},
        {"--sim ufs40:wdc,fault.gsort=missing snapshot backup", 1, "no complete"},
        {"--sim ufs40:kioxia,snapshot=2 snapshot drop", 0,
         "waiting, complete_backup\nThere is no backup"},
        {"--sim ufs40:wdc,snapshot=2,drop_end=6 snapshot drop", 1, "could not"},
        {"--sim ufs40:wdc,snapshot=5 snapshot status", 0, "drop_by_device (5)"},
        {"--sim ufs40:wdc,snapshot=2 snapshot event", 0, "event: dropped"},
        {"--sim ufs40:wdc,snapshot=2,drop_end=6 snapshot event", 1, "event: the drop failed"},
        {"snapshot event 1x", 2, "process id"},
        {"eua", 2, "no command \"eua\""}, {"", 2, "no command"},
        {"frobnicate", 2, "no command \"frobnicate\""},
        {"trigger", 2, "something is missing"},
        {"support me", 2, "too much"},
        {"--nonsense support", 2, "--help"},
        {"defrag --first-block x .", 2, "takes a number"},
        {"--trace support", 2, "need --sim"},
        {"--sim ufs50:samsung support", 2, "no device profile"},
        {"--sim ufs40:samsung,colour=red support", 2, "colour=red"},
        {"support", 3, "no service; on a host use --sim"},
        {"doctor fbo", 3, "the service can be asked: there is no service"},
        {"--sim ufs40:wdc,node.fbo_prog_state=odd trigger 1,2", 3,
         "an error escaped the call: stoi"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, FboctlStatus, testing::ValuesIn(kStatuses));

TEST(Fboctl, ReadsRangesFromStandardInput) {
    const Outcome outcome = fboctl("printf '1,2,\\n 3,4\\n' | " + tool("--sim ufs40:wdc,ranges=1 "
                                                                       "--json trigger - 2>&-"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(parse(outcome.output)["zones"], 2);
}

/** On a phone it asks for the service without waiting for it. */
TEST(Fboctl, SaysOnAPhoneThatTheServiceIsNotRunning) {
    for (const char* command : {"support", "doctor", "--json doctor", "stop", "trigger 1,2",
                                "snapshot watch", "eua erase 1,2"}) {
        const Outcome outcome = fboctl(std::string(FBOCTL_PHONE) + " " + command);
        EXPECT_EQ(outcome.status, 3) << command;
        EXPECT_NE(outcome.output.find("the service is not running"), std::string::npos)
                << outcome.output;
    }
}

/** 341 KiB of ranges are more than one call is given. */
TEST(Fboctl, SendsALongRequestInParts) {
    const Outcome outcome =
            fboctl("seq -s, 1 60000 | " + tool("--sim ufs40:samsung --log trigger -"));
    EXPECT_EQ(outcome.status, 0);
    size_t calls = 0;
    for (size_t at = 0; (at = outcome.output.find("fbo_max_lrc is ", at)) != std::string::npos;) {
        ++calls;
        ++at;
    }
    EXPECT_EQ(calls, 2u);
}

/** A directory's files in order, with what cannot be done named, and a second run that pays. */
TEST(Fboctl, DefragmentsFiles) {
    const Outcome made =
            fboctl("rm -rf fboctl_files && mkdir -p fboctl_files/sub && cd fboctl_files && "
                   "head -c 28672 /dev/urandom > holes; sync holes; "
                   "for i in 1 3 5; do fallocate -p -o $((i * 4096)) -l 4096 holes; done; "
                   "head -c 9000 /dev/urandom > sub/plain; touch empty; ln -s plain sub/link");
    ASSERT_EQ(made.status, 0) << made.output;
    const std::string command = tool(
            "--sim ufs40:samsung --sim-state fboctl_files.state --json --first-block 1000000000000 "
            "defrag fboctl_files /dev/null nowhere 2>&-");
    const Outcome outcome = fboctl("rm -f fboctl_files.state; " + command);
    const Json::Value result = parse(outcome.output);
    const Json::Value& files = result["files"];
    ASSERT_EQ(files.size(), 5u) << outcome.output;
    EXPECT_EQ(files[0]["path"], "fboctl_files/empty");
    EXPECT_EQ(files[1]["path"], "fboctl_files/holes");
    EXPECT_EQ(files[2]["path"], "fboctl_files/sub/plain");
    EXPECT_EQ(files[3]["error"], "not a regular file");
    EXPECT_EQ(files[4]["error"], "No such file or directory");
    if (files[1].isMember("error")) GTEST_SKIP() << files[1]["error"].asString();
    EXPECT_EQ(outcome.status, 0);
    uint64_t blocks = 0;
    for (const Json::Value& range : files[2]["ranges"]) {
        EXPECT_GT(range[0].asUInt64(), 1000000000000u);
        blocks += range[1].asUInt64();
    }
    EXPECT_EQ(blocks, 3u);
    const Json::Value again = parse(fboctl(command).output);
    EXPECT_LT(again["before"].asInt(), result["before"].asInt());
    EXPECT_EQ(again["before"], result["after"]);
}

/** Reads `pipe` until `text` has come. */
std::string readUntil(FILE* pipe, const std::string& text) {
    std::string output;
    int c;
    while (output.find(text) == std::string::npos && (c = fgetc(pipe)) != EOF) {
        output += static_cast<char>(c);
    }
    return output;
}

/** A run that never ends by itself: the device fails every time and is asked again. */
FILE* startEndlessRun() {
    return popen(("exec 2>&1; echo $$; exec " +
                  tool("--sim ufs31:samsung,optimise=0,optimise_end=255 trigger 1,2,9,2"))
                         .c_str(),
                 "r");
}

/** The doctor names exactly what is broken, and nothing else; what is whole it finds well. */
TEST(Fboctl, DoctorNamesExactlyTheBreak) {
    const struct {
        const char *device, *what, *wrong;
    } kRows[] = {
            {"ufs40:micron", nullptr, nullptr},
            {"ufs31:samsung,platform=mtk", nullptr, nullptr},
            {"ufs40:micron,fault.hr=unreadable", "/hr is readable", "Permission denied"},
            {"ufs40:micron,node.hr=0102", "the health report is complete", "4 of 1024"},
            {"ufs40:micron,wear=2400", "the wear is below", "2400 program/erase"},
            {"ufs40:micron,node.vendor=NOBODY", "the maker of the flash", "NOBODY"},
            {"ufs40:micron,node.fbo_support=0", "the driver offers FBO", "does not begin with 1"},
            {"ufs40:micron,node.fbo_max_lrc=0", "the range limit makes sense", "is 0"},
            {"ufs40:micron,fault.fbo_max_lrc=missing", "fbo_max_lrc is readable", "No such file"},
            {"ufs31:micron,node.fbs_defrag_ops=", "fbs_defrag_ops holds a number", "no number"},
            {"ufs31:micron,fault.fbs_flc_enable=unwritable", "fbs_flc_enable is writable",
             "denied"},
            {"ufs40:micron,fault.fbo_prog_state=read-error", "prog_state is readable",
             "output error"},
            {"ufs40:micron,userdata=/dev/block/dm-9", "dm-9/gc_urgent is writable", "No such file"},
            {"ufs40:micron,eua=0", "the driver offers EUA", "eua_support is not 1"},
            {"ufs40:micron,node.inquiry=short", "the INQUIRY data", "5 of 36 bytes"},
            {"ufs40:skhynix-tarno", "no policy row excludes", "policy row (0)"},
            {"ufs40:micron,gsort_size=9437190", "the boot-LUN record", "no \"snapshot\""},
            {"ufs40:micron,node.dropfreesize=x", "dropfreesize holds a number", "no number"},
            {"ufs40:micron,prop.vendor.snapshot_devicefreeblock=x", "devicefreeblock is",
             "no number"},
            {"ufs40:micron,fault.ctrl=unwritable", "ctrl is writable", "Permission denied"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.device);
        const Outcome outcome = fboctl(tool("--json doctor 2>&- --sim ") + "'" + row.device + "'");
        EXPECT_EQ(outcome.status, row.what == nullptr ? 0 : 1);
        int wrong = 0;
        for (const Json::Value& finding : parse(outcome.output)) {
            if (finding["ok"].asBool()) continue;
            ++wrong;
            ASSERT_NE(row.what, nullptr) << finding;
            EXPECT_NE(finding["check"].asString().find(row.what), std::string::npos) << finding;
            EXPECT_NE(finding["wrong"].asString().find(row.wrong), std::string::npos) << finding;
        }
        EXPECT_EQ(wrong, row.what == nullptr ? 0 : 1) << outcome.output;
    }
}

/** A watch hears the event that another fboctl has the kernel send it. */
TEST(Fboctl, WatchesDropEvents) {
    FILE* const watch = popen(
            ("exec 2>&1; exec " + tool("--sim ufs40:samsung,snapshot=2 snapshot watch")).c_str(),
            "r");
    std::string output = readUntil(watch, "ends it");
    const std::string pid = output.substr(output.find("process ") + 8);
    std::string outcome;
    // An event that comes before the service listens is lost.
    while (outcome.empty()) {
        const Outcome sent = fboctl(tool("snapshot event ") + pid.substr(0, pid.find(';')));
        ASSERT_EQ(sent.status, 0) << sent.output;
        outcome = readUntil(watch, "\ndrop event: dropped");
    }
    kill(std::stoi(pid), SIGINT);
    EXPECT_EQ(finish(watch).status, 0);
}

TEST(Fboctl, StopsAtCtrlCAndShowsTheFigures) {
    FILE* const run = startEndlessRun();
    std::string output = readUntil(run, "zone 1 of 1");
    kill(std::stoi(output), SIGINT);
    const Outcome outcome = finish(run, output);
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    EXPECT_NE(outcome.output.find("Stopped after 1 zones.\nFragmentation before: "),
              std::string::npos)
            << outcome.output;
}

/** A device that never gets idle does not stop either; a second Ctrl-C ends the program. */
TEST(Fboctl, EndsAtTheSecondCtrlC) {
    FILE* const run = popen(("exec 2>&1; echo $$; exec " +
                             tool("--sim ufs40:samsung,pace=1,analysis=stuck trigger 1,2,3,4"))
                                    .c_str(),
                            "r");
    std::string output = readUntil(run, "zone 1 of 1");
    const pid_t pid = std::stoi(output);
    kill(pid, SIGINT);
    output += readUntil(run, "give up");
    kill(pid, SIGINT);
    EXPECT_EQ(finish(run, output).status, -SIGINT);
}

}  // namespace
