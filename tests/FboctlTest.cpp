#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <android-base/file.h>
#include <gtest/gtest.h>
#include <json/json.h>

namespace {

using testing::IsSubstring;

struct Outcome {
    int status;
    /** Standard output, with what went to standard error among it. */
    std::string output;
};

/** A shell's command on its way. */
class Running {
  public:
    explicit Running(const std::string& command)
        : pipe_(popen(("exec 2>&1; PATH=" FBOCTL_DIR ":$PATH; echo $$; " + command).c_str(), "r")),
          pid_(std::stoi(readUntil("\n"))) {}

    /** Sends a signal as a terminal does, to all that belongs to the command, a session. */
    void kill(int signal) const { ::kill(-pid_, signal); }

    /** Reads until `text` has come; returns what has come since the last call. */
    std::string readUntil(const std::string& text) {
        std::string output;
        char c;
        while (output.find(text) == output.npos && read(fileno(pipe_), &c, 1) == 1) output += c;
        return output;
    }
    Outcome finish() {
        std::string output;
        android::base::ReadFdToString(fileno(pipe_), &output);
        const int status = pclose(pipe_);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), output};
    }

  private:
    FILE* const pipe_;
    const pid_t pid_;
};

Outcome run(const std::string& command) {
    return Running(command).finish();
}

/** A command line, the status that it ends with, and a text that it says. */
struct Row {
    std::string command;
    int status;
    std::string text;
};

/** Runs each of `rows`, behind `begin`. */
void expectEach(const std::string& begin, const std::vector<Row>& rows) {
    for (const auto& [command, status, text] : rows) {
        SCOPED_TRACE(command);
        const Outcome outcome = run(begin + command);
        EXPECT_EQ(outcome.status, status) << outcome.output;
        EXPECT_PRED_FORMAT2(IsSubstring, text, outcome.output);
    }
}

TEST(Fboctl, AnswersByTextAndExitStatus) {
    // clang-format off
    expectEach("fboctl --sim ", {
            {"ufs40:kioxia stop", 2, "a device of its own has no run"},
            {"ufs40:kioxia,platform=mtk run fboctl continue --json", 0, "\"sent\" : true"},
            {"ufs40:wdc,wear=2400 run fboctl support", 1, "FBO: not supported, the flash is"},
            {"ufs31:micron run fboctl trigger 1,2,9,2", 0, "zone 1 of 1\nFrag"},
            {"ufs40:samsung --log run fboctl eua size", 0, "[EUA-HAL] eua_support_size is"},
            {"ufs40:samsung,snapshot=2 run fboctl snapshot event", 0, "event: dropped"},
            {"ufs40:samsung run fboctl doctor", 2, "out of sight"},
            {"ufs40:samsung --trace run fboctl gc", 0, "write gc_urgent"},
            {"ufs40:samsung run sh -c 'fboctl version-ctrl V; exec fboctl gc'", 3,
             "fboctl: the service is not running"},
            {"ufs40:samsung run --restart sh -c 'echo got $1' -- --help", 0, "got --help\n"},
            {"ufs40:samsung run -- echo -1 -- --json", 0, "-1 -- --json\n"},
            {"ufs40:samsung run sh -c 'exit 7'", 7, ""},
            {"ufs40:samsung run sh -c 'kill -9 $$'", 137, ""},
            {"ufs40:samsung run ./nothing", 127, "./nothing: No such file"},
            {"ufs40:nobody run true", 2, "no device profile"},
            {"ufs40:micron trigger 1,2,9,2", 0, "before: 9728, after: 256"},
            {"ufs40:samsung,ranges=2,optimise_end=7/-1 trigger 8,8,64,8,100,8,200,8", 1,
             "248832, after: 4864\nOf the zones that were measured, before: 124416, after: 4864"},
            {"ufs31:kioxia,ranges=2,optimise_end=9/-1 --json trigger 8,8,64,8,100,8,200,8", 1,
             "\"unmeasured_zones\" : 1"},
            {"ufs40:micron,analysis_end=9 --json trigger 1,2", 1, "\"measured\" : null"},
            {"ufs40:micron trigger - <&-", 2, "standard input: Bad file"},
            {"ufs40:micron --raw trigger - </", 2, "standard input: Is a directory"},
            {"ufs40:micron,mapping_end=9 trigger 1,2", 1, "The linear mapping failed."},
            {"ufs40:micron --raw trigger 1", 1, "did not take the request"},
            {"ufs40:micron --log --raw trigger 1,29", 0, "lba is: 1,2 ."},
            {"ufs40:wdc,ranges=1 trigger - <<.\n1,2,\n 3,4\n.\n", 0, "zone 2 of 2\nFrag"},
            {"ufs40:wdc trigger - <<.\n$(seq -s, 1 60000)\n.\n", 0, "zone 1 of 469\nzone "},
            {"ufs31:micron --trace trigger 1,2", 0, "0 s  write fbo_send_lr_list \"1,2\\n\""},
            {"ufs40:samsung,fault.eua_support=missing eua support", 1, "no EUA nodes"},
            {"ufs40:samsung,node.fbo_support=0,eua=0 support", 1,
             "supported, the driver says no, or nothing\nEUA: not supported, the driver says 0\n"},
            {"ufs31:samsung,hardware=mtk support", 3, "FBO: not supported, this phone has no UFS"},
            {"ufs40:samsung,device=corvi eua size", 1, "EUA size: 0"},
            {"ufs40:wdc --trace eua erase 1,8:9,8", 0, "5 s  write eua_file_lba"},
            {"ufs40:samsung,fault.eua_file_lba_unmap=missing eua erase 1,8", 1, "Nothing sent"},
            {"ufs40:wdc eua erase 1,8:", 0, "gone through: 1;"},
            {"ufs40:wdc eua erase :", 2, "is empty"}, {"ufs40:wdc eua erase 1,2::", 2, "is empty"},
            {"ufs40:wdc,fault.hr=missing wear --json", 1, "\"cycles\" : null"},
            {"ufs40:wdc,node.vendor=NOBODY wear", 1, "cycles: not known\nEUA: supported"},
            {"ufs40:wdc --log gc", 0, "  0 s  D mem_fbo: FBO_GCADisCard:"},
            {"ufs40:wdc,userdata=dm-9 gc", 1, "cannot be"},
            {"ufs40:wdc version-ctrl '>0.9:ON'", 0, "FBO is on"},
            {"ufs40:wdc version-ctrl 1.0:OFF", 1, "FBO is off"},
            {"ufs40:wdc version-ctrl V --json", 3, "\"error\" : \"an error escaped the call"},
            {"ufs40:micron snapshot backup", 0, "waiting, inprogress\nThe backup is complete"},
            {"ufs40:wdc,fault.gsort=missing snapshot backup", 1, "no complete"},
            {"ufs40:kioxia,snapshot=2 snapshot drop", 0, "waiting, complete_backup\nThere is no"},
            {"ufs40:wdc,snapshot=2,drop_end=6 snapshot drop", 1, "could not"},
            {"ufs40:wdc,eua=0 eua erase 1,8", 1, "EUA is not supported here: nothing is erased"},
            {"ufs40:wdc,snapshot=6 snapshot drop", 1, "The device reports an internal error"},
            {"ufs40:wdc,snapshot=1 snapshot drop", 1, "A backup is in progress"},
            {"ufs40:wdc,fault.status=missing snapshot status", 1,
             "idle (0); but the status cannot"},
            {"ufs40:wdc,node.status=odd snapshot status", 1, "idle (0); but the driver says \"odd"},
            {"ufs40:wdc,snapshot=5 snapshot status", 0, "drop_by_device (5)"},
            {"ufs40:wdc,snapshot=2,drop_end=6 snapshot event", 1, "event: the drop failed"},
            {"ufs40:wdc,snapshot=2 --json snapshot event", 0, "{\n  \"event\" : \"dropped\"\n}"},
            {"ufs40:wdc,eua=0 doctor", 1,
             "eua_support is not 1\n           -> EUA_isSupport answers false\n\u2713 eua   "},
            {"ufs40:wdc,eua=0 doctor eua --json", 1,
             "\"advice\" : \"EUA_isSupport answers false\",\n    \"check\" : \"the driver offers"
             " EUA\",\n    \"feature\" : \"eua\",\n    \"ok\" : false,\n    \"wrong\" : \"eua_s"},
            {"ufs40:samsung,fault.ufsfbo/fbo_support=missing support", 1, "the driver has no FBO"},
            {"ufs40:wdc,node.fbo_prog_state=0/~30:1/\\!EIO/* --trace trigger 1,8", 0,
             "0 s  wait 30\n      30 s  read fbo_prog_state \"1\"\n      30 s  sleep 6\n"
             "      36 s  read fbo_prog_state Input/output error\n      36 s  sleep 6\n"},
            {"ufs40:wdc,after.fbo_operation_control.2=node.fbo_prog_state=7 --trace trigger 1,8", 1,
             "write fbo_operation_control \"2\\n\"\n      12 s  read fbo_prog_state \"7\""},
            {"list run true", 2, "no command"}});
    expectEach("fboctl ", {
            {"--sim list", 0, "ufs31:kioxia"},
            {"run --help", 0, "Usage: fboctl [OPTION…] run COMMAND"},
            {"run --json true", 2, "run takes no --json"}, {"serve", 2, "need --sim"},
            {"snapshot event 1x", 2, "process id"}, {"snapshot event $$", 2, "has no simulated"},
            {"eua", 2, "no command \"eua\"; there are eua support, eua size, eua erase\n"},
            {"", 2, "no command"}, {"frobnicate", 2, "no command \"frobnicate\"\n"},
            {"gx", 2, "did you mean gc?"}, {"snapshot stattus", 2, "did you mean snapshot status?"},
            {"gc --raw", 2, "gc takes no --raw"}, {"trigger -1,8", 2, "ranges are START,COUNT"},
            {"trigger 1,2,3", 2, "ranges are START"}, {"trigger 1,,2,", 2, "ranges are START"},
            {"--version", 0, "hardware.fbo@1.0"},
            {"defrag --help", 0, "--min-size BYTES      Leave"},
            {"--help", 0, "--yes                 exercise: Do what"},
            {"completion", 0, " manual --first-block --min-extents "},
            {"manual", 0, ".SH DESCRIPTION"}, {"defrag --dry-run /proc", 1, "give --first-block"},
            {"defrag --min-size 1X .", 2, "takes a number"},
            {"defrag --limit 0 .", 2, "--limit takes 1 or more"},
            {"--help", 0, "exercise [FEATURE] [FILE]"},
            {"exercise --yes snapshot .", 2, "too much"}, {"trigger", 2, "RANGES is missing"},
            {"support me", 2, "too much"}, {"--nonsense support", 2, "--help"},
            {"--trace support", 2, "need --sim"}, {"support", 3, "no service; on a host use --sim"},
            {"doctor fbo", 3, "the service can be asked: there is no service"}});
    // clang-format on
}

/** What the device cannot do, or could do without effect, is refused, with what may be meant. */
TEST(Fboctl, RefusesSettingsThatDoNothing) {
    // clang-format off
    expectEach("fboctl support --sim ", {
            {"ufs40:samsun", 2, "is called \"ufs40:samsun\"; did you mean ufs40:samsung?"},
            {"ufs31:wdc,mapping=3", 2, "this does nothing on ufs31:wdc, only on UFS 4.0"},
            {"ufs31:skhynix,wear=65536", 2, "to 65535"}});
    expectEach("fboctl support --sim ufs40:wdc,", {
            {"analysi=3", 2, "no setting \"analysi\"; did you mean analysis?"},
            {"fbo_support=0", 2, "this is a node; did you mean node.fbo_support=?"},
            {"node.xy=0", 2, "no node is called xy\n"},
            {"colour=red", 2, "colour=red: the device has no setting \"colour\"\n"},
            {"accept=3", 2, "only on UFS 3.1"}, {"drop=3", 2, "only on MICRON, KIOXIA"},
            {"tbw=3", 2, "only on SKhynix"}, {"linear=2", 2, "2 is not from 0 to 1"},
            {"analysis=3/-1", 2, "-1 is not from 0 to stuck"},
            {"report=x", 2, "\"x\" is no number"}, {"gsort_size=1x", 2, "it is not from 0"},
            {"revision=12345", 2, "4 characters"},
            {"product=12345678901234567", 2, "16 characters"},
            {"node.fbo_prog_stat=1", 2, "node is called fbo_prog_stat; did you mean fbo_"},
            {"node.fbs_flc_ops=0", 2, "wdc has no node fbs_flc_ops, but ufs31:samsung"},
            {"fault.trace=missing", 2, "no node is called trace"},
            {"node.=1", 2, "name of a node is missing"},
            {"fault.fbo_prog_state=read-error/write-error", 2, "state is never written"},
            {"fault.drop_caches=unreadable", 2, "/drop_caches is never read"},
            {"fault.ufsfbo=read-error", 2, "/ufsfbo is never read"},
            {"fault.debug=odd", 2, "a node cannot be odd, only missing, unreadable"},
            {"node.ctrl=1", 2, "/ctrl is never read"}, {"store.hr=*", 2, "/hr is never written"},
            {"after.hr.1=wear=1", 2, "/hr is never written"},
            {"store.debug=7", 2, "\"7\" is neither"}, {"node.gsort=7", 2, "\"7\" is neither"},
            {"node.debug=!EFOO", 2, "\"EFOO\" is no errno"}, {"node.debug=~x:", 2, "~SECONDS:"},
            {"node.debug=\\\\x2", 2, "behind a \\ comes"}, {"after.debug=wear=1", 2, "number of a"},
            {"after.debug.1=wear=-1", 2, "-1 is not"}, {"nodes.debug=1", 2, "prop, node, store"},
            {"@nowhere", 2, "nowhere: No such file"}});
    // clang-format on
}

TEST(Fboctl, TakesSettingsFromAFile) {
    const Outcome outcome =
            run("printf '# odd\n\nnode.vendor=WDC,KIOXIA\neua=0\n' >fboctl_settings; "
                "fboctl --log --sim ufs40:kioxia,@fboctl_settings,node.eua_support=7 wear");
    EXPECT_PRED_FORMAT2(IsSubstring, "vendor: WDC,KIOXIA", outcome.output);
    EXPECT_PRED_FORMAT2(IsSubstring, "eua_support is 7", outcome.output);
}

/** On a phone it asks for the service without waiting for it. */
TEST(Fboctl, SaysOnAPhoneThatTheServiceIsNotRunning) {
    for (const char* command : {"support", "doctor", "--json doctor", "stop", "snapshot watch"}) {
        expectEach("fboctl_phone ", {{command, 3, "the service is not running"}});
    }
}

Json::Value jsonOf(const std::string& command) {
    Json::Value value;
    std::istringstream(run(command).output) >> value;
    return value;
}

/** A directory's files in order, with what cannot be done named, and a second run that pays. */
TEST(Fboctl, DefragmentsFiles) {
    ASSERT_EQ(run("rm -rf fboctl_files* && mkdir -p fboctl_files/sub && cd fboctl_files && "
                  "head -c 28672 /dev/urandom > holes; sync holes; "
                  "for i in 1 3 5; do fallocate -p -o $((i * 4096)) -l 4096 holes; done; "
                  "head -c 9000 /dev/urandom > sub/plain; ln -s plain sub/link; "
                  "fallocate -l 8192 empty; touch \"$(printf 'x\\033\\377')\"")
                      .status,
              0);
    const std::string command =
            "fboctl --sim ufs40:samsung --sim-state fboctl_files.state --first-block 1000000000000"
            " --json defrag fboctl_files /dev/null nowhere 2>&-";
    const Json::Value result = jsonOf(command);
    const Json::Value& files = result["files"];
    std::string names;
    for (const auto& f : files) {
        names += f["path"].asString() + " " + f["error"].asString() + f["path_bytes"].asString() +
                 "\n";
    }
    // Not everywhere can a file system tell where files lie.
    if (files[1].isMember("error")) GTEST_SKIP() << names;
    EXPECT_EQ(names,
              "fboctl_files/empty \nfboctl_files/holes \nfboctl_files/sub/plain \n"
              "fboctl_files/x\\x1b\\xff 66626f63746c5f66696c65732f781bff\n"
              "/dev/null not a regular file\nnowhere No such file or directory\n");
    uint64_t blocks = 0;
    for (const Json::Value& range : files[2]["ranges"]) {
        EXPECT_GT(range[0].asUInt64(), 1000000000000u);
        blocks += range[1].asUInt64();
    }
    EXPECT_EQ(blocks, 3u);
    const Json::Value again = jsonOf(command);
    EXPECT_LT(again["before"].asInt(), result["before"].asInt());
    EXPECT_EQ(again["before"], result["after"]);

    const auto ranges = std::to_string(result["ranges"].asUInt()) + " ranges in ";
    // The file with holes has four ranges; those of the others are one at the most.
    expectEach("fboctl --sim ufs40:samsung,ranges=2 defrag fboctl_files ",
               {{"--dry-run fboctl_files/holes", 0, ranges},
                {"--dry-run --min-extents 2", 0, "\n1 file, "},
                {"--dry-run --min-size 9000", 0, "\n2 files, "},
                {"--dry-run --min-size 9K", 0, "\n1 file, "},
                {"--dry-run --min-extents 1 --limit 2", 0, "holes\n1 file, 4 ranges in 2 zones\n"},
                // Where it does not fit, smaller ones do.
                {"--dry-run --min-extents 1 --limit 1", 0, "plain\n1 file, 1 range in 1 zone\n"},
                {"--dry-run --min-size 9K nowhere", 1, "4 ranges in 2 zones; 1 not read\n"},
                {"--dry-run --min-size 9K --json nowhere", 1, "\"path\" : \"nowhere\""},
                {"--min-size 9K nowhere", 1, "before: "},
                {"--dry-run --first-block 18446744073709551615", 1, "holes: does not fit on a"}});
    // What the driver is tried with is no more than its limit.
    expectEach("fboctl --sim ufs40:samsung,ranges=1 --trace exercise fbo --first-block 9 ",
               {{"fboctl_files/holes 2>&1 | grep -q 'send_lr_list \"[0-9]*,[0-9]*.n\"'", 0, ""}});
}

/** A name is shown as it is only if no terminal obeys it, and none takes it for another one. */
TEST(Fboctl, ShowsNamesOfFiles) {
    // What a name has behind an "e-acute", and what is shown instead of both, if anything is.
    // clang-format off
    const char* const kRows[][2] = {
            {"\u00a0", ""}, {"\u2029", ""}, {"\u206a", ""}, {"\u0800", ""}, {"\ud7ff", ""},
            {"\U00010000", ""}, {"\U0010ffff", ""}, {"\xc2\x85", "\u00e9\\xc2\\x85"},
            {"\u202e", "\u00e9\\xe2\\x80\\xae"}, {"\u2069", "\u00e9\\xe2\\x81\\xa9"},
            {"\xe0\x9f\xbf", "\\xc3\\xa9\\xe0\\x9f\\xbf"},
            {"\xed\xa0\x80", "\\xc3\\xa9\\xed\\xa0\\x80"},
            {"\xf0\x8f\xbf\xbf", "\\xc3\\xa9\\xf0\\x8f\\xbf\\xbf"},
            {"\xf4\x90\x80\x80", "\\xc3\\xa9\\xf4\\x90\\x80\\x80"},
            {"\xe2\x82", "\\xc3\\xa9\\xe2\\x82"}, {"\xe2\x82x", "\\xc3\\xa9\\xe2\\x82x"}};
    // clang-format on
    run("rm -rf fboctl_names && mkdir fboctl_names");
    for (const auto& [end, instead] : kRows) {
        const std::string name = std::string("fboctl_names/\u00e9") + end + ".";
        ASSERT_TRUE(android::base::WriteStringToFile("", name));
    }
    const std::string output = run("fboctl --sim ufs40:wdc --dry-run defrag fboctl_names").output;
    for (const auto& [end, instead] : kRows) {
        const std::string name = *instead == '\0' ? std::string("\u00e9") + end : instead;
        EXPECT_PRED_FORMAT2(IsSubstring, "fboctl_names/" + name + ".\n", output);
    }
}

/** A state that cannot be used or kept, and output that nobody gets, are failures. */
TEST(Fboctl, SaysWhatIsLost) {
    // clang-format off
    expectEach("rm -rf fboctl_state; mkdir fboctl_state; cd fboctl_state; "
               "sim() { fboctl --sim ufs40:wdc \"$@\"; }; "
               "kept() { sim --sim-state state \"$@\"; }; ", {
            {"echo 1,2,x >state; kept support", 2, "fboctl: state is no state file"},
            {"echo 1,18446744073709551615 >state; kept support", 2, "state is no state file"},
            {"mkfifo state; kept support", 2, "state is no state file"},
            {"flock state fboctl --sim ufs40:wdc --sim-state state support", 3,
             "state is in use by another fboctl"},
            {"mkdir state.new; kept support", 1, "state is not kept: state.new: Is a directory"},
            {"mkdir state.new; kept run true", 1, "state is not kept: state.new: Is a directory"},
            {"mkdir state.new; kept run sh -c 'exit 7'", 7, "state is not kept"},
            {"sim support >/dev/full", 1, "standard output: "},
            {"sim wear --json >/dev/full", 1, "standard output: No space left on device"},
            {"kept support >&-", 1, "standard output: "},
            {"touch other; chmod 640 other; ln -s other state; kept trigger 1,2,9,2 && "
             "stat -c '%F %a' state other && cat other", 0,
             "symbolic link 777\nregular file 640\n1,2,9,2"}});
    // clang-format on
}

/** The doctor names exactly what is broken, and nothing else; what is whole it finds well. */
TEST(Fboctl, DoctorNamesExactlyTheBreak) {
    // Ends with the number of findings.
    const std::string begin =
            "doctor() { fboctl doctor --sim $1 | grep \u2717 >fboctl_wrong; "
            "cat fboctl_wrong; exit $(wc -l <fboctl_wrong); }; doctor ";
    // clang-format off
    expectEach(begin, {
            {"ufs40:micron", 0, ""}, {"ufs31:samsung,platform=mtk", 0, ""},
            {"ufs31:wdc,prop.vendor.snapshot_control=false/default", 0, ""},
            {"ufs31:micron,node.fbs_defrag_ops=", 1, "defrag_ops holds a number: \"\" is no"},
            {"ufs31:micron,fault.fbs_flc_enable=unwritable", 1, "flc_enable is writable: Perm"},
            {"ufs40:skhynix-tarno", 1,
             "no policy row excludes phone and part from EUA: policy row"},
            {"ufs31:wdc,node.fbs_defrag_ops=3", 1, "defrag_ops is at rest: state 3, the device is"},
            {"ufs31:wdc,node.fbs_flc_ops=255", 1, "flc_ops is at rest: state 255, the last"}});
    expectEach(begin + "ufs40:wdc,", {
            {"node.status=bogus", 1, "is a quiet one: \"bogus\" is no word"},
            {"snapshot=6", 1, "is a quiet one: it is internal_error"},
            {"node.is_ufs31=2", 1, "UFS generation makes sense: is_ufs31 is 2"},
            {"eua_size=0", 1, "the EUA size is above 0: it is 0"},
            {"node.fbo_prog_state=1", 1, "prog_state is at rest: state 1, the device is at"},
            {"prop.vendor.snapshot_control=false", 1, "leaves snapshots on: it says \"false"},
            {"product=THGJFLT2E46BATPB,prop.vendor.snapshot_control=THGJFLT2E46BATPB", 1,
             "on: it names this part, THGJ"}});
    expectEach(begin + "ufs40:micron,", {
            {"fault.hr=unreadable", 1, "/hr is readable: Permission"},
            {"node.hr=0102", 1, "report is complete: 4 of 1024"},
            {"wear=2400", 1, "below 2400 cycles: 2400"},
            {"node.vendor=NOBODY", 1, "flash is known: \"NOBODY\""},
            {"node.fbo_support=0", 1, "offers FBO: fbo_support does not"},
            {"node.fbo_max_lrc=0", 1, "makes sense: fbo_max_lrc is 0"},
            {"fault.fbo_max_lrc=missing", 1, "fbo_max_lrc is readable: No such"},
            {"fault.fbo_prog_state=read-error", 1, "prog_state is readable: Input"},
            {"userdata=/dev/block/dm-9", 1, "gc_urgent is writable: No such"},
            {"node.inquiry=short", 1, "INQUIRY data is long enough: 5 of 36"},
            {"gsort_size=9437190", 1, "its magic: no \"snap"},
            {"node.dropfreesize=x", 1, "dropfreesize holds a number: \"x\" is"},
            {"prop.vendor.snapshot_devicefreeblock=x", 1, "block is a number: \"x\" is"},
            {"fault.ctrl=unwritable", 1, "ctrl is writable: Permission"}});
    // clang-format on
}

/** A watch hears the events that another fboctl has the kernel send it. */
TEST(Fboctl, WatchesDropEvents) {
    Running watch("exec setsid fboctl --sim ufs40:samsung,snapshot=2 snapshot watch");
    watch.readUntil("process ");
    const std::string pid = watch.readUntil(";");
    // What comes before the service listens is lost, so events are sent as long as there is a
    // watch.
    Running events("while fboctl --json snapshot event " + std::to_string(std::stoi(pid)) +
                   "; do :; done");
    EXPECT_PRED_FORMAT2(IsSubstring, "\ndrop event: dropped", watch.readUntil("dropped"));
    watch.kill(SIGINT);
    EXPECT_EQ(watch.finish().status, 0);
    EXPECT_PRED_FORMAT2(IsSubstring, "\"event\" : \"sent\"", events.finish().output);
}

TEST(Fboctl, StopsAtCtrlCAndEndsAtTheSecond) {
    const std::string trigger = "exec setsid fboctl trigger 1,2,9,2 --sim ufs31:samsung,";
    // The one device fails every time and is asked again, the other one never gets idle.
    const std::pair<const char*, Outcome> kRows[] = {
            {"pace=1000,optimise=0,optimise_end=255",
             {1, "Stopped after 1 zone; the figures are partial.\n1 of 1 zones not "}},
            {"pace=1,analysis=stuck", {-SIGINT, ""}}};
    for (const auto& [settings, ended] : kRows) {
        Running program(trigger + settings);
        program.readUntil("zone 1 of 1");
        program.kill(SIGINT);
        program.readUntil("give up\n");
        if (ended.status < 0) program.kill(SIGINT);
        const Outcome outcome = program.finish();
        EXPECT_EQ(outcome.status, ended.status);
        EXPECT_PRED_FORMAT2(IsSubstring, ended.output, outcome.output);
    }
}

/** Every device passes, and what is wrong with a driver is named, by the first step that shows it.
 */
TEST(Fboctl, ExercisesADriver) {
    const Outcome made =
            run("head -c 9000 /dev/urandom > fboctl_file; sync fboctl_file; "
                "fboctl --sim ufs40:wdc --first-block 9 exercise fbo fboctl_file");
    if (made.output.find("FIEMAP") != std::string::npos) GTEST_SKIP() << made.output;
    // Says the first wrong step alone, without what lays the columns out.
    const std::string begin =
            "exercise() { fboctl exercise --first-block 9 $1 --sim $2 >fboctl_steps; "
            "s=$?; grep -m1 \u2717 fboctl_steps | tr -s ' '; exit $s; }; exercise ";
    // clang-format off
    expectEach(begin + "'fbo fboctl_file' ", {
            {"ufs40:kioxia", 0, ""}, {"ufs31:wdc", 0, ""},
            {"ufs40:wdc,analysis=stuck", 1, "analysis ends fbo_prog_state 1, wanted: 2 (1200 s)"},
            {"ufs31:wdc,optimise_end=255", 1, "defragmentation ends fbs_defrag_ops 255, wanted"},
            {"ufs40:wdc,report=28", 1, "the report has a level fbo_get_lr_frag_level frag_lvl"},
            {"ufs40:wdc,clear=400", 1, "idle after success fbo_prog_state 3, wanted: 0 (300 s)"},
            {"ufs31:wdc,accept=stuck", 1, "list is accepted fbs_flc_ops 0, wanted: 1 (300 s)"},
            {"ufs40:wdc,fault.debug=write-error", 1, "switch debug \"1\" Input/output error"},
            {"ufs40:wdc,store.fbo_send_lr_list=!EIO", 1, "list of the first pass fbo_send_lr_list"},
            {"ufs40:wdc,after.fbo_operation_control.2=node.fbo_prog_state=2", 1,
             "optimisation starts"},
            {"ufs40:wdc,fault.fbo_err_cnt=unwritable", 1, "failures are counted fbo_err_cnt"}});
    expectEach(begin + "'eua --yes fboctl_file' ", {
            {"ufs40:micron", 0, ""},
            {"ufs40:wdc,eua=0", 1, "EUA is offered eua_support 0, wanted: 1"},
            {"ufs40:wdc,eua_size=0", 1, "the size is above 0 eua_support_size 0, wanted"}});
    expectEach(begin + "'snapshot --yes' ", {
            {"ufs40:samsung", 0, ""}, {"ufs31:kioxia,backup_idle=9", 0, ""},
            {"ufs40:wdc,backup_end=6", 1, "the backup is complete status internal_error, w"},
            {"ufs40:micron,drop=stuck", 1, "the backup is dropped status complete_backup"}});
    // clang-format on
    expectEach("fboctl --sim ufs40:wdc exercise ",
               {{"snapshot", 2, "--yes says so"}, {"eua fboctl_file", 2, "--yes says so"}});
    // A failed step and Ctrl-C leave a device idle, though that takes its time.
    const std::string stuck = "fboctl --sim ufs40:wdc,analysis=stuck,clear=20,pace=";
    const std::string exercise = " exercise --first-block 9 fbo fboctl_file";
    EXPECT_PRED_FORMAT2(IsSubstring, " 0 (30 s)\n", run(stuck + "9999" + exercise).output);
    Running interrupted("exec setsid " + stuck + "50" + exercise);
    interrupted.readUntil("analysis starts");
    interrupted.kill(SIGINT);
    const std::string end = interrupted.finish().output;
    EXPECT_PRED_FORMAT2(IsSubstring, "idle after Ctrl-C", end);
    EXPECT_PRED_FORMAT2(IsSubstring, " 0 (30 s)\n", end);
}

TEST(Fboctl, KeepsItsProgressInTheWidthOfTheTerminal) {
    const std::string text =
            run("script -qec 'stty cols 50; "
                "fboctl --sim ufs40:wdc,ranges=1 trigger 1,2,9,2' /dev/null | tr '\\r' '\\n'")
                    .output;
    EXPECT_PRED_FORMAT2(IsSubstring, "] zone 2 of 2  0:00:0", text);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 49u) << line;
    // Elsewhere it says little, and nothing beside JSON.
    const std::string many = "fboctl --sim ufs40:wdc,ranges=1 trigger 1,2,3,2,5,2,7,2";
    EXPECT_PRED_FORMAT2(IsSubstring, "zone 1 of 4\nzone 4 of 4\nFrag", run(many).output);
    EXPECT_EQ(run(many + " --json").output.find("zone 1"), std::string::npos);
}

/** Whatever it was started with, and whoever goes away meanwhile. */
TEST(Fboctl, RunsBesideWhatMisbehaves) {
    // clang-format off
    expectEach("rm -rf fboctl_tmp; mkdir fboctl_tmp; export TMPDIR=fboctl_tmp; "
               "simulate() { fboctl --sim ufs40:samsung \"$@\"; }; ", {
            {"exec env --ignore-signal=CHLD fboctl --sim ufs40:samsung run sh -c 'exit 6'", 6, ""},
            {"simulate run true && rmdir fboctl_tmp", 0, ""},
            {"simulate run sh -c 'kill -9 $PPID; until rmdir fboctl_tmp || [ ! -e fboctl_tmp ]; do "
             ":; done; echo gone'", 137, "gone"},
            // Ctrl-C is for the command, but comes to all that belong to the terminal.
            {"setsid --wait fboctl --sim ufs40:samsung run sh -c 'trap : INT; kill -INT 0; "
             "fboctl eua size'", 0, "EUA size: 65536"},
            {"simulate run sh -c 'trap \"exit 9\" TERM; kill $PPID; while kill -0 $PPID; do :; "
             "done'", 9, ""},
            // Nobody reads log and trace any more.
            {"simulate --log --trace run sh -c 'for i in 1 2 3 4 5 6 7 8; do fboctl eua size; done "
             ">fboctl_sizes' 2>&1 | head -c 1; grep -c 65536 fboctl_sizes", 0, "8\n"}});
    // clang-format on
}

TEST(Fboctl, ServesOtherProgramsUntilItEnds) {
    setenv("NIVORA_FBO_PHONE", "fboctl_phone", 1);
    expectEach("rm -rf fboctl_phone; mkdir -m 755 fboctl_phone; ",
               {{"fboctl --sim ufs40:wdc serve", 3, "fboctl_phone is not this user's alone"}});
    // What one that was killed has left behind is no hindrance.
    run("chmod 700 fboctl_phone; touch fboctl_phone/service");
    const std::string serve =
            "fboctl --sim ufs31:samsung,pace=1000,optimise=0,optimise_end=255 --restart serve";
    for (const int end : {SIGINT, SIGKILL}) {
        Running phone("exec setsid " + serve);
        phone.readUntil("ends it\n");
        Running trigger("exec fboctl trigger 1,2,9,2");
        trigger.readUntil("zone 1 of 1");
        // What the service says to somebody else is not of this run.
        expectEach("", {{serve, 3, "fboctl_phone is served already"},
                        {"fboctl --raw trigger 1", 1, "did not take"},
                        {"fboctl stop", 0, "stop: sent\n"}});
        const Outcome stopped = trigger.finish();
        EXPECT_EQ(stopped.status, 1);
        EXPECT_PRED_FORMAT2(IsSubstring, "Stopped after 1 zone; the figures are partial.",
                            stopped.output);
        EXPECT_EQ(stopped.output.find("did not take"), std::string::npos) << stopped.output;

        expectEach("", {{"fboctl version-ctrl V", 3, "fboctl: the service has died\n"}});
        phone.readUntil("started again\n");
        expectEach("until fboctl support; do :; done; ", {{"fboctl support", 0, "FBO: supported"}});
        phone.kill(end);
        EXPECT_EQ(phone.finish().status, end == SIGINT ? 0 : -SIGKILL);
        expectEach("", {{"fboctl support", 3, ""}});
    }
}

}  // namespace
