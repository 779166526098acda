#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>

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
        : pipe_(popen(("exec 2>&1; " + command).c_str(), "r")) {}

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
};

Outcome run(const std::string& command) {
    return Running(command).finish();
}

TEST(Fboctl, AnswersByTextAndExitStatus) {
    // The command line, on the device with which it begins; its status, and what it says.
    // clang-format off
    const struct { std::string arguments; int status; const char* text; } kRows[] = {
            {"--help", 0, "Exit status"}, {"--sim list", 0, "ufs31:kioxia"},
            {"ufs40:samsung support", 0, "FBO: supported"},
            {"ufs31:wdc,wear=2400 support", 1, "FBO: not supported, the flash is worn: 2400"},
            {"ufs40:kioxia stop", 2, "a device of its own has no run"},
            {"ufs40:kioxia,platform=mtk run " FBOCTL " continue --json", 0, "\"sent\" : true"},
            {"ufs40:wdc,wear=2400 run " FBOCTL " support", 1, "FBO: not supported, the flash is"},
            {"ufs31:micron run " FBOCTL " trigger 1,2,9,2", 0, "zone 1 of 1\nFrag"},
            {"ufs40:samsung --log run " FBOCTL " eua size", 0, "[EUA-HAL] eua_support_size is"},
            {"ufs40:samsung,snapshot=2 run " FBOCTL " snapshot event", 0, "event: dropped"},
            {"ufs40:samsung run " FBOCTL " doctor", 2, "out of sight"},
            {"ufs40:samsung --trace run " FBOCTL " gc", 0, "write gc_urgent"},
            {"ufs40:samsung run sh -c '" FBOCTL " version-ctrl V; exec " FBOCTL " gc'", 3,
             "fboctl: the service is not running"},
            {"ufs40:samsung run --restart sh -c 'echo got $1' -- --help", 0, "got --help\n"},
            {"ufs40:samsung run -- echo -1 -- --json", 0, "-1 -- --json\n"},
            {"run --help", 0, "Usage: fboctl [OPTION…] run COMMAND"},
            {"run --json true", 2, "run takes no --json"}, {"list run true", 2, "no command"},
            {"--json completion", 2, "completion takes no --json"},
            {"ufs40:wdc manual", 2, "manual takes no --sim"},
            {"explain --log", 2, "explain takes no --log"},
            {"ufs40:samsung run sh -c 'exit 7'", 7, ""}, {"ufs40:samsung run false", 1, ""},
            {"ufs40:samsung run sh -c 'kill -9 $$'", 137, ""}, {"run true", 2, "need --sim"},
            {"ufs40:samsung run ./nothing", 127, "./nothing: No such file"},
            {"ufs40:nobody run true", 2, "no device profile"}, {"serve", 2, "need --sim"},
            {"ufs40:micron trigger 1,2,9,2", 0, "before: 9728, after: 256"},
            {"ufs40:micron,analysis_end=9 trigger 1,2,9,2", 1, "1 of 1 zones"},
            {"ufs40:micron,optimise=stuck trigger 1,2", 1, "1 of 1 zones not measured: for"},
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
            {"ufs40:wdc trigger - <<.\n$(seq -s, 1 60000)\n.\n", 0,
             "zone 1 of 469\nzone "},
            {"ufs31:micron --trace trigger 1,2", 0, "0 s  write fbo_send_lr_list \"1,2\\n\""},
            {"ufs40:samsung,eua=0 support", 1, "EUA: not supported, the driver says 0"},
            {"ufs40:samsung,fault.eua_support=missing eua support", 1, "no EUA nodes"},
            {"ufs40:skhynix-tarno eua support", 1, "policy row (0), device (tarno), vendor (SK"},
            {"ufs40:samsung,fault.fbo_support=missing support", 1, "not supported, the driver has"},
            {"ufs40:samsung,node.fbo_support=0 support", 1, "FBO: not supported, the driver says"},
            {"ufs31:samsung,fault.ufshcd-qcom=missing support", 3, "not supported, this phone"},
            {"ufs40:wdc eua size", 0, "EUA size: 65536"},
            {"ufs40:samsung,device=corvi eua size", 1, "EUA size: 0"},
            {"ufs40:wdc --trace eua erase 1,8:9,8", 0, "5 s  write eua_file_lba"},
            {"ufs40:samsung,fault.eua_file_lba_unmap=missing eua erase 1,8", 1, "Nothing sent"},
            {"ufs40:wdc eua erase 1,8:", 0, "gone through: 1;"},
            {"ufs40:wdc eua erase ''", 2, "is empty"}, {"ufs40:wdc eua erase :", 2, "is empty"},
            {"ufs40:wdc eua erase 1,2::3,4", 2, "is empty"},
            {"ufs40:wdc eua erase 1,2::", 2, "is empty"},
            {"ufs40:wdc,wear=77 wear", 0, "cycles: 77\nEUA: supported"},
            {"ufs40:wdc,fault.hr=missing wear --json", 1, "\"cycles\" : null"},
            {"ufs40:wdc,node.vendor=NOBODY wear", 1, "cycles: not known\nEUA: supported"},
            {"ufs40:wdc gc", 0, "is requested"}, {"ufs40:wdc,userdata=dm-9 gc", 1, "cannot be"},
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
            {"ufs40:wdc snapshot drop", 0, "There is no backup any more"},
            {"ufs40:wdc,fault.status=missing snapshot status", 1, "idle (0); but the status cannot"},
            {"ufs40:wdc,node.status=odd snapshot status", 1, "idle (0); but the driver says \"odd"},
            {"ufs40:wdc,snapshot=5 snapshot status", 0, "drop_by_device (5)"},
            {"ufs40:wdc,snapshot=2 snapshot event", 0, "event: dropped"},
            {"ufs40:wdc,snapshot=2,drop_end=6 snapshot event", 1, "event: the drop failed"},
            {"ufs40:wdc,snapshot=2 --json snapshot event", 0, "{\n  \"event\" : \"dropped\"\n}"},
            {"snapshot event 1x", 2, "process id"}, {"snapshot event $$", 2, "has no simulated"},
            {"eua", 2, "no command \"eua\"; there are eua support, eua size, eua erase\n"},
            {"snapshot", 2, "there are snapshot backup, snapshot drop, snapshot status, snap"},
            {"", 2, "no command"}, {"frobnicate", 2, "no command \"frobnicate\"\n"},
            {"snapshot stattus", 2, "did you mean snapshot status?"}, {"gc --raw", 2, "gc takes no --raw"},
            {"trigger -1,8", 2, "ranges are START,COUNT"}, {"trigger 1,2,3", 2, "ranges are START"},
            {"trigger 1,,2,", 2, "ranges are START"}, {"--version", 0, "hardware.fbo@1.0"},
            {"defrag --help", 0, "--min-size BYTES"}, {"completion", 0, "snapshot watch"},
            {"manual", 0, ".SH DESCRIPTION"}, {"defrag --dry-run /proc", 1, "give --first-block"},
            {"defrag --min-size 1X .", 2, "takes a number"},
            {"defrag --limit 0 .", 2, "--limit takes 1 or more"},
            {"--help", 0, "exercise [FEATURE] [FILE]"},
            {"exercise --yes snapshot .", 2, "too much after it"},
            {"trigger", 2, "RANGES is missing"}, {"support me", 2, "too much"},
            {"--nonsense support", 2, "--help"}, {"defrag --first-block x .", 2, "takes a number"},
            {"--trace support", 2, "need --sim"}, {"support", 3, "no service; on a host use --sim"},
            {"ufs40:samsung,colour=red support", 2, "colour=red"},
            {"--sim ufs50:samsung support", 2, "no device profile"},
            {"ufs40:micron doctor", 0, "fbo_support is readable"},
            {"ufs40:wdc,eua=0 doctor eua --json", 1, "\"wrong\" : \"eua_support is not 1\""},
            {"doctor fbo", 3, "the service can be asked: there is no service"},
            {"ufs40:wdc,node.fbo_prog_state=odd trigger 1,2", 3,
             "a node or property that must hold a number holds none"},
            {"ufs40:samsung,fault.ufsfbo/fbo_support=missing support", 1, "the driver has no FBO"},
            {"ufs40:wdc,'node.vendor=KIO\\x58IA\\x2c\\x2f\\n' --trace wear", 0,
             "vendor \"KIOXIA,/\\n\"\n"},
            {"ufs40:wdc,node.fbo_prog_state=0/~30:1/\\!EIO/* --trace trigger 1,8", 0,
             "0 s  wait 30\n      30 s  read fbo_prog_state \"1\"\n      30 s  sleep 6\n"
             "      36 s  read fbo_prog_state Input/output error\n      36 s  sleep 6\n"
             "      42 s  read fbo_prog_state \"2\\n\""},
            {"ufs40:wdc,store.fbo_send_lr_list=*/~7:\\!ENOSPC/* --trace trigger 1,8", 0,
             "write fbo_send_lr_list \"1,8\\n\" No space left"},
            {"ufs40:wdc,after.fbo_operation_control.2=node.fbo_prog_state=7 --trace trigger 1,8", 1,
             "write fbo_operation_control \"2\\n\"\n      12 s  read fbo_prog_state \"7\""},
    };
    // clang-format on
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.arguments);
        const std::string program =
                row.arguments.find("ufs") == 0 || row.arguments.find("list") == 0 ? FBOCTL " --sim "
                                                                                  : FBOCTL " ";
        const Outcome outcome = run(program + row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_PRED_FORMAT2(IsSubstring, row.text, outcome.output);
    }
}

/** What the device cannot do, or could do without effect, is refused, with what may be meant. */
TEST(Fboctl, RefusesSettingsThatDoNothing) {
    // clang-format off
    const struct { const char *device, *reason; } kRows[] = {
            {"ufs40:samsun", "is called \"ufs40:samsun\"; did you mean ufs40:samsung?"},
            {"ufs40:wdc,analysi=3", "no setting \"analysi\"; did you mean analysis?"},
            {"ufs40:wdc,fbo_support=0", "this is a node; did you mean node.fbo_support=?"},
            {"ufs40:wdc,node.xy=0", "no node is called xy\n"},
            {"ufs40:wdc,colour=red", "colour=red: the device has no setting \"colour\"\n"},
            {"ufs31:wdc,mapping=3", "this does nothing on ufs31:wdc, only on UFS 4.0"},
            {"ufs40:wdc,accept=3", "only on UFS 3.1"},
            {"ufs40:wdc,drop=3", "only on MICRON, KIOXIA"},
            {"ufs40:wdc,tbw=3", "only on SKhynix"}, {"ufs40:wdc,linear=2", "2 is not from 0 to 1"},
            {"ufs40:wdc,wear=4294967296", "to 4294967295"},
            {"ufs31:skhynix,wear=65536", "to 65535"},
            {"ufs40:wdc,analysis=3/-1", "-1 is not from 0 to stuck"},
            {"ufs40:wdc,eua_size=stuck", "to 2147483647"},
            {"ufs40:wdc,report=x", "\"x\" is no number"},
            {"ufs40:wdc,gsort_size=1x", "it is not from 0"},
            {"ufs40:wdc,revision=12345", "4 characters"},
            {"ufs40:wdc,product=12345678901234567", "16 characters"},
            {"ufs40:wdc,node.fbo_prog_stat=1", "node is called fbo_prog_stat; did you mean fbo_"},
            {"ufs40:wdc,node.fbs_flc_ops=0", "wdc has no node fbs_flc_ops, but ufs31:samsung"},
            {"ufs40:wdc,fault.trace=missing", "no node is called trace"},
            {"ufs40:wdc,node.=1", "name of a node is missing"},
            {"ufs40:wdc,fault.fbo_prog_state=read-error/write-error", "state is never written"},
            {"ufs40:wdc,fault.drop_caches=unreadable", "/drop_caches is never read"},
            {"ufs40:wdc,fault.ufsfbo=read-error", "/ufsfbo is never read"},
            {"ufs40:wdc,fault.debug=odd", "a node cannot be odd, only missing, unreadable"},
            {"ufs40:wdc,node.ctrl=1", "/ctrl is never read"},
            {"ufs40:wdc,store.hr=*", "/hr is never written"},
            {"ufs40:wdc,store.debug=7", "\"7\" is neither"},
            {"ufs40:wdc,node.gsort=7", "\"7\" is neither"},
            {"ufs40:wdc,node.debug=!EFOO", "\"EFOO\" is no errno"},
            {"ufs40:wdc,node.debug=~x:", "~SECONDS:"},
            {"ufs40:wdc,node.debug=\\x2", "behind a \\ comes"},
            {"ufs40:wdc,after.debug=wear=1", "number of a"},
            {"ufs40:wdc,after.debug.1=wear=-1", "-1 is not"},
            {"ufs40:wdc,nodes.debug=1", "prop, node, store"},
            {"ufs40:wdc,@nowhere", "nowhere: No such file"},
    };
    // clang-format on
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.device);
        const Outcome outcome = run(FBOCTL " support --sim '" + std::string(row.device) + "'");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_PRED_FORMAT2(IsSubstring, row.reason, outcome.output);
    }
}

TEST(Fboctl, TakesSettingsFromAFile) {
    const Outcome outcome =
            run("printf '# odd\n\nnode.vendor=WDC,KIOXIA\neua=0\n' >fboctl_settings; " FBOCTL
                " --log --sim ufs40:kioxia,@fboctl_settings,node.eua_support=7 wear");
    EXPECT_PRED_FORMAT2(IsSubstring, "vendor: WDC,KIOXIA", outcome.output);
    EXPECT_PRED_FORMAT2(IsSubstring, "eua_support is 7", outcome.output);
}

/** On a phone it asks for the service without waiting for it. */
TEST(Fboctl, SaysOnAPhoneThatTheServiceIsNotRunning) {
    for (const char* command : {"support", "doctor", "--json doctor", "stop", "trigger 1,2",
                                "snapshot watch", "eua erase 1,2"}) {
        const Outcome outcome = run(std::string(FBOCTL_PHONE) + " " + command);
        EXPECT_EQ(outcome.status, 3) << command;
        EXPECT_PRED_FORMAT2(IsSubstring, "the service is not running", outcome.output);
    }
}

/** A directory's files in order, with what cannot be done named, and a second run that pays. */
TEST(Fboctl, DefragmentsFiles) {
    const Outcome made =
            run("rm -rf fboctl_files && mkdir -p fboctl_files/sub && cd fboctl_files && "
                "head -c 28672 /dev/urandom > holes; sync holes; "
                "for i in 1 3 5; do fallocate -p -o $((i * 4096)) -l 4096 holes; done; "
                "head -c 9000 /dev/urandom > sub/plain; touch empty; ln -s plain sub/link; "
                "touch \"$(printf 'x\\033\\377')\"");
    ASSERT_EQ(made.status, 0) << made.output;
    const std::string command = FBOCTL
            " --sim ufs40:samsung --sim-state fboctl_files.state --first-block 1000000000000"
            " --json defrag fboctl_files /dev/null nowhere 2>&-";
    const Outcome outcome = run("rm -f fboctl_files.state; " + command);
    Json::Value result;
    std::istringstream(outcome.output) >> result;
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
    EXPECT_EQ(outcome.status, 1);
    uint64_t blocks = 0;
    for (const Json::Value& range : files[2]["ranges"]) {
        EXPECT_GT(range[0].asUInt64(), 1000000000000u);
        blocks += range[1].asUInt64();
    }
    EXPECT_EQ(blocks, 3u);
    // What is named twice is sent once; files of one extent, or small ones, are left alone.
    const std::string dry = FBOCTL " --sim ufs40:samsung,ranges=2 --dry-run defrag fboctl_files ";
    const auto ranges = std::to_string(result["ranges"].asUInt()) + " ranges in ";
    EXPECT_PRED_FORMAT2(IsSubstring, ranges, run(dry + "fboctl_files/holes").output);
    EXPECT_PRED_FORMAT2(IsSubstring, "\n1 file, ", run(dry + "--min-extents 2").output);
    EXPECT_PRED_FORMAT2(IsSubstring, "\n2 files, ", run(dry + "--min-size 9000").output);
    EXPECT_PRED_FORMAT2(IsSubstring, "\n1 file, ", run(dry + "--min-size 9K").output);
    // The file with holes has four ranges.
    EXPECT_PRED_FORMAT2(IsSubstring, "holes\n1 file, 4 ranges in 2 zones\n",
                        run(dry + "--min-extents 1 --limit 2").output);
    // What cannot be read is counted apart, and so is what would lie behind the last block.
    for (const char* rest : {"--min-size 9K nowhere", "--min-size 9K --json nowhere"}) {
        const Outcome partial = run(dry + rest);
        EXPECT_EQ(partial.status, 1);
        EXPECT_PRED_FORMAT2(IsSubstring, "nowhere", partial.output);
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "\n1 file, 4 ranges in 2 zones; 1 not read\n",
                        run(dry + "--min-size 9K nowhere").output);
    const Outcome behind = run(dry + "--first-block 18446744073709551615");
    EXPECT_EQ(behind.status, 1);
    EXPECT_PRED_FORMAT2(IsSubstring, "holes: does not fit on a unit", behind.output);
    // Where it does not fit, smaller ones do.
    EXPECT_PRED_FORMAT2(IsSubstring, "plain\n1 file, 1 range in 1 zone\n",
                        run(dry + "--min-extents 1 --limit 1").output);
    Json::Value again;
    std::istringstream(run(command).output) >> again;
    EXPECT_LT(again["before"].asInt(), result["before"].asInt());
    EXPECT_EQ(again["before"], result["after"]);
}

/** A name is shown as it is only if no terminal obeys it, and none takes it for another one. */
TEST(Fboctl, ShowsNamesOfFiles) {
    // The name, which begins with "e-acute", as printf takes it, and as it is shown.
    // clang-format off
    const struct { const char *name, *shown; } kRows[] = {
            {"\\302\\240", "\u00e9\u00a0"}, {"\\302\\205", "\u00e9\\xc2\\x85"},
            {"\\342\\200\\251", "\u00e9\u2029"}, {"\\342\\200\\256", "\u00e9\\xe2\\x80\\xae"},
            {"\\342\\201\\251", "\u00e9\\xe2\\x81\\xa9"}, {"\\342\\201\\252", "\u00e9\u206a"},
            {"\\340\\240\\200", "\u00e9\u0800"}, {"\\340\\237\\277", "\\xc3\\xa9\\xe0\\x9f\\xbf"},
            {"\\355\\237\\277", "\u00e9\ud7ff"}, {"\\355\\240\\200", "\\xc3\\xa9\\xed\\xa0\\x80"},
            {"\\360\\220\\200\\200", "\u00e9\U00010000"},
            {"\\360\\217\\277\\277", "\\xc3\\xa9\\xf0\\x8f\\xbf\\xbf"},
            {"\\364\\217\\277\\277", "\u00e9\U0010ffff"},
            {"\\364\\220\\200\\200", "\\xc3\\xa9\\xf4\\x90\\x80\\x80"},
            {"\\342\\202", "\\xc3\\xa9\\xe2\\x82"}, {"\\342\\202x", "\\xc3\\xa9\\xe2\\x82x"},
    };
    // clang-format on
    for (const auto& row : kRows) {
        const std::string output =
                run("rm -rf fboctl_names && mkdir fboctl_names && "
                    "touch \"$(printf 'fboctl_names/\\303\\251" +
                    std::string(row.name) +
                    ".')\"; " FBOCTL " --sim ufs40:wdc --dry-run defrag fboctl_names")
                        .output;
        EXPECT_PRED_FORMAT2(IsSubstring, "fboctl_names/" + std::string(row.shown) + ".", output);
    }
}

/** A state that cannot be used or kept, and output that nobody gets, are failures. */
TEST(Fboctl, SaysWhatIsLost) {
    // A shell's command before fboctl, what follows fboctl's options, and what comes of it.
    // clang-format off
    const struct { const char *before, *command; int status; const char* text; } kRows[] = {
            {"echo 1,2,x >state;", "support", 2, "fboctl: state is no state file"},
            {"echo 1,18446744073709551615 >state;", "support", 2, "state is no state file"},
            {"ln -s /dev/null state;", "support", 2, "state is no state file"},
            {"flock state", "support", 3, "state is in use by another fboctl"},
            {"mkdir state.new;", "support", 1, "state is not kept: state.new: Is a directory"},
            {"mkdir state.new;", "run true", 1, "state is not kept: state.new: Is a directory"},
            {"mkdir state.new;", "run sh -c 'exit 7'", 7, "state is not kept"},
            {"", "support >/dev/full", 1, "standard output: "},
            {"", "wear --json >/dev/full", 1, "standard output: No space left on device"},
            {"", "support >&-", 1, "standard output: "},
            {"touch other; chmod 600 other; ln -s other state;",
             "trigger 1,2,9,2 && stat -c '%F %a' state other && cat other", 0,
             "symbolic link 777\nregular file 600\n1,2,9,2"},
    };
    // clang-format on
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.command);
        const Outcome outcome =
                run("rm -rf fboctl_state && mkdir fboctl_state && cd fboctl_state && " +
                    std::string(row.before) + " " FBOCTL " --sim ufs40:wdc --sim-state state " +
                    row.command);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_PRED_FORMAT2(IsSubstring, row.text, outcome.output);
    }
}

/** The doctor names exactly what is broken, and nothing else; what is whole it finds well. */
TEST(Fboctl, DoctorNamesExactlyTheBreak) {
    // clang-format off
    const struct { const char *device, *finding; } kRows[] = {
            {"ufs40:micron", ""}, {"ufs31:samsung,platform=mtk", ""},
            {"ufs40:micron,fault.hr=unreadable", "/hr is readable: Permission denied"},
            {"ufs40:micron,node.hr=0102", "the health report is complete: 4 of 1024"},
            {"ufs40:micron,wear=2400", "the wear is below 2400 cycles: 2400 program/erase"},
            {"ufs40:micron,node.vendor=NOBODY", "the maker of the flash is known: \"NOBODY\""},
            {"ufs40:micron,node.fbo_support=0", "the driver offers FBO: fbo_support does not"},
            {"ufs40:micron,node.fbo_max_lrc=0", "the range limit makes sense: fbo_max_lrc is 0"},
            {"ufs40:micron,fault.fbo_max_lrc=missing", "fbo_max_lrc is readable: No such file"},
            {"ufs31:micron,node.fbs_defrag_ops=", "defrag_ops holds a number: \"\" is no number"},
            {"ufs31:micron,fault.fbs_flc_enable=unwritable", "flc_enable is writable: Permission"},
            {"ufs40:micron,fault.fbo_prog_state=read-error", "prog_state is readable: Input"},
            {"ufs40:micron,userdata=/dev/block/dm-9", "dm-9/gc_urgent is writable: No such file"},
            {"ufs40:micron,eua=0", "the driver offers EUA: eua_support is not 1"},
            {"ufs40:micron,node.inquiry=short", "the INQUIRY data is long enough: 5 of 36 bytes"},
            {"ufs40:skhynix-tarno", "no policy row excludes phone and part from EUA: policy row"},
            {"ufs40:micron,gsort_size=9437190", "the boot-LUN record has its magic: no \"snap"},
            {"ufs40:micron,node.dropfreesize=x", "dropfreesize holds a number: \"x\" is no number"},
            {"ufs40:micron,prop.vendor.snapshot_devicefreeblock=x", "block is a number: \"x\" is"},
            {"ufs40:micron,fault.ctrl=unwritable", "ctrl is writable: Permission denied"},
            {"ufs40:wdc,prop.vendor.snapshot_control=false", "leaves snapshots on: it says \"false"},
            {"ufs40:wdc,product=THGJFLT2E46BATPB,prop.vendor.snapshot_control=THGJFLT2E46BATPB",
             "leaves snapshots on: it names this part, THGJ"},
            {"ufs40:wdc,node.status=bogus", "is a quiet one: \"bogus\" is no word"},
            {"ufs40:wdc,snapshot=6", "the snapshot status is a quiet one: it is internal_error"},
            {"ufs40:wdc,node.is_ufs31=2", "the UFS generation makes sense: is_ufs31 is 2"},
            {"ufs40:wdc,eua_size=0", "the EUA size is above 0: it is 0"},
            {"ufs40:wdc,node.fbo_prog_state=1", "prog_state is at rest: state 1, the device is at"},
            {"ufs31:wdc,node.fbs_defrag_ops=3", "defrag_ops is at rest: state 3, the device is at"},
            {"ufs31:wdc,node.fbs_flc_ops=255", "flc_ops is at rest: state 255, the last operation"},
    };
    // clang-format on
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.device);
        const std::string wrong =
                run(FBOCTL " doctor --sim '" + std::string(row.device) + "' | grep \u2717").output;
        EXPECT_EQ(std::count(wrong.begin(), wrong.end(), '\n'), *row.finding == '\0' ? 0 : 1)
                << wrong;
        EXPECT_PRED_FORMAT2(IsSubstring, row.finding, wrong);
    }
}

/** A watch hears the events that another fboctl has the kernel send it. */
TEST(Fboctl, WatchesDropEvents) {
    Running watch("exec " FBOCTL " --sim ufs40:samsung,snapshot=2 snapshot watch");
    watch.readUntil("process ");
    const pid_t pid = std::stoi(watch.readUntil(";"));
    // What comes before the service listens is lost, so events are sent as long as there is a
    // watch.
    Running events("while " FBOCTL " --json snapshot event " + std::to_string(pid) +
                   "; do :; done");
    EXPECT_PRED_FORMAT2(IsSubstring, "\ndrop event: dropped", watch.readUntil("dropped"));
    kill(pid, SIGINT);
    EXPECT_EQ(watch.finish().status, 0);
    EXPECT_PRED_FORMAT2(IsSubstring, "\"event\" : \"sent\"", events.finish().output);
}

TEST(Fboctl, StopsAtCtrlCAndEndsAtTheSecond) {
    // The one device fails every time and is asked again, the other one never gets idle.
    for (const bool stuck : {false, true}) {
        Running program("echo $$; exec " FBOCTL " trigger 1,2,9,2 --sim ufs31:samsung," +
                        std::string(stuck ? "pace=1,analysis=stuck"
                                          : "pace=1000,optimise=0,optimise_end=255"));
        const pid_t pid = std::stoi(program.readUntil("\n"));
        program.readUntil("zone 1 of 1");
        kill(pid, SIGINT);
        program.readUntil("give up\n");
        if (stuck) kill(pid, SIGINT);
        const Outcome outcome = program.finish();
        EXPECT_EQ(outcome.status, stuck ? -SIGINT : 1);
        EXPECT_PRED_FORMAT2(
                IsSubstring,
                stuck ? "" : "Stopped after 1 zone; the figures are partial.\n1 of 1 zones not ",
                outcome.output);
    }
}

/** Every device passes, and what is wrong with a driver is named, by the first step that shows it.
 */
TEST(Fboctl, ExercisesADriver) {
    // clang-format off
    const struct { const char *feature, *device, *wrong; } kRows[] = {
            {"fbo", "ufs40:kioxia", ""}, {"fbo", "ufs31:wdc", ""}, {"eua", "ufs40:micron", ""},
            {"snapshot", "ufs40:samsung", ""}, {"snapshot", "ufs31:kioxia,backup_idle=9", ""},
            {"fbo", "ufs40:wdc,analysis=stuck", "analysis ends fbo_prog_state 1, wanted: 2 (1200 s)"},
            {"fbo", "ufs31:wdc,optimise_end=255", "defragmentation ends fbs_defrag_ops 255, wanted"},
            {"fbo", "ufs40:wdc,report=28", "the report has a level fbo_get_lr_frag_level frag_lvl"},
            {"fbo", "ufs40:wdc,clear=400", "idle after success fbo_prog_state 3, wanted: 0 (300 s)"},
            {"fbo", "ufs31:wdc,accept=stuck", "list is accepted fbs_flc_ops 0, wanted: 1 (300 s)"},
            {"fbo", "ufs40:wdc,fault.debug=missing", "switch debug \"1\" No such file or directory"},
            {"fbo", "ufs40:wdc,store.fbo_send_lr_list=!EIO", "list of the first pass fbo_send_lr_list"},
            {"fbo", "ufs40:wdc,after.fbo_operation_control.2=node.fbo_prog_state=2", "optimisation starts"},
            {"fbo", "ufs40:wdc,fault.fbo_err_cnt=unwritable", "failures are counted fbo_err_cnt"},
            {"eua", "ufs40:wdc,eua=0", "EUA is offered eua_support 0, wanted: 1"},
            {"eua", "ufs40:wdc,eua_size=0", "the size is above 0 eua_support_size 0, wanted"},
            {"snapshot", "ufs40:wdc,backup_end=6", "the backup is complete status internal_error, w"},
            {"snapshot", "ufs40:micron,drop=stuck", "the backup is dropped status complete_backup"},
    };
    // clang-format on
    ASSERT_EQ(run("head -c 9000 /dev/urandom > fboctl_file; sync fboctl_file").status, 0);
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::string(row.feature) + " " + row.device);
        const std::string feature = row.feature;
        const Outcome outcome =
                run(FBOCTL " exercise --first-block 9 " +
                    (feature == "fbo" ? "fbo" : feature + " --yes") +
                    (feature == "snapshot" ? "" : " fboctl_file") + " --sim '" + row.device + "'");
        if (outcome.output.find("FIEMAP") != std::string::npos) GTEST_SKIP() << outcome.output;
        EXPECT_EQ(outcome.status, *row.wrong == '\0' ? 0 : 1) << outcome.output;
        std::string line;
        std::istringstream lines(outcome.output);
        while (line.find("\u2717") != 0 && std::getline(lines, line)) {
        }
        // Without what lays the columns out.
        line.erase(std::unique(line.begin(), line.end(),
                               [](char one, char other) { return one == ' ' && other == ' '; }),
                   line.end());
        EXPECT_PRED_FORMAT2(IsSubstring, row.wrong, line) << outcome.output;
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "--yes says so",
                        run(FBOCTL " --sim ufs40:wdc exercise snapshot").output);
    // Ctrl-C leaves a device at rest.
    Running stuck("echo $$; exec " FBOCTL
                  " --sim ufs40:wdc,pace=6,analysis=stuck exercise fbo fboctl_file");
    const pid_t pid = std::stoi(stuck.readUntil("\n"));
    stuck.readUntil("analysis starts");
    kill(pid, SIGINT);
    EXPECT_PRED_FORMAT2(IsSubstring, "idle after Ctrl-C", stuck.finish().output);
}

TEST(Fboctl, KeepsItsProgressInTheWidthOfTheTerminal) {
    const std::string text =
            run("script -qec 'stty cols 50; " FBOCTL
                " --sim ufs40:wdc,ranges=1 trigger 1,2,9,2' /dev/null | tr '\\r' '\\n'")
                    .output;
    EXPECT_PRED_FORMAT2(IsSubstring, "] zone 2 of 2  0:00:0", text);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 49u) << line;
    // Elsewhere it says little, and nothing beside JSON.
    const std::string many = FBOCTL " --sim ufs40:wdc,ranges=1 trigger 1,2,3,2,5,2,7,2";
    EXPECT_PRED_FORMAT2(IsSubstring, "zone 1 of 4\nzone 4 of 4\nFrag", run(many).output);
    EXPECT_EQ(run(many + " --json").output.find("zone 1"), std::string::npos);
}

/** Whatever it was started with, and whoever goes away meanwhile. */
TEST(Fboctl, RunsBesideWhatMisbehaves) {
    EXPECT_EQ(run("trap '' CHLD; exec " FBOCTL " --sim ufs40:samsung run sh -c 'exit 6'").status,
              6);
    const std::string ask = "for i in 1 2 3 4 5 6 7 8; do " FBOCTL " eua size; done > fboctl_sizes";
    run(FBOCTL " --sim ufs40:samsung --log --trace run sh -c '" + ask + "' | head -c 1");
    EXPECT_EQ(run("grep -c 65536 fboctl_sizes").output, "8\n") << "nobody reads the log any more";
    EXPECT_PRED_FORMAT2(IsSubstring, "gone",
                        run("rm -rf fboctl_tmp; mkdir fboctl_tmp; TMPDIR=fboctl_tmp " FBOCTL
                            " --sim ufs40:samsung run sh -c 'kill -9 $PPID; "
                            "while ls fboctl_tmp | grep -q nivora; do :; done; echo gone'")
                                .output);
}

TEST(Fboctl, ServesOtherProgramsUntilItEnds) {
    setenv("NIVORA_FBO_PHONE", "fboctl_phone", 1);
    EXPECT_PRED_FORMAT2(
            IsSubstring, "fboctl_phone is not this user's alone",
            run("rm -rf fboctl_phone; mkdir -m 755 fboctl_phone; " FBOCTL " --sim ufs40:wdc serve")
                    .output);
    // What one that was killed has left behind is no hindrance.
    run("chmod 700 fboctl_phone; touch fboctl_phone/service");
    const std::string serve =
            "echo $$; exec " FBOCTL
            " --sim ufs31:samsung,pace=1000,optimise=0,optimise_end=255 --restart serve";
    for (const int end : {SIGINT, SIGKILL}) {
        Running phone(serve);
        const pid_t pid = std::stoi(phone.readUntil("\n"));
        phone.readUntil("ends it\n");
        EXPECT_PRED_FORMAT2(IsSubstring, "fboctl_phone is served already", run(serve).output);
        Running trigger("exec " FBOCTL " trigger 1,2,9,2");
        trigger.readUntil("zone 1 of 1");
        // What the service says to somebody else is not of this run.
        EXPECT_PRED_FORMAT2(IsSubstring, "did not take", run(FBOCTL " --raw trigger 1").output);
        EXPECT_EQ(run(FBOCTL " stop").output, "stop: sent\n");
        const Outcome stopped = trigger.finish();
        EXPECT_EQ(stopped.status, 1);
        EXPECT_PRED_FORMAT2(IsSubstring, "Stopped after 1 zone; the figures are partial.",
                            stopped.output);
        EXPECT_EQ(stopped.output.find("did not take"), std::string::npos) << stopped.output;

        EXPECT_EQ(run(FBOCTL " version-ctrl V").output, "fboctl: the service has died\n");
        phone.readUntil("started again\n");
        while (run(FBOCTL " support").status != 0) {
        }
        kill(pid, end);
        EXPECT_EQ(phone.finish().status, end == SIGINT ? 0 : -SIGKILL);
        EXPECT_EQ(run(FBOCTL " support").status, 3);
    }
}

}  // namespace
