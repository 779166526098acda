#include "Phone.h"
#include "fbo/Globals.h"
#include "sim/Clock.h"

namespace {

const std::string kList = "1,1,2,1,4,1,8,1";

/** The rows for an engine and a device of its generation; "L" is the list that is sent. */
std::vector<Row> forEngine(const std::string& engine, const std::string& device,
                           std::vector<Row> rows) {
    for (Row& row : rows) {
        row.call = engine + " " + kList;
        row.settings = device + (row.settings.empty() ? "" : ",") + row.settings;
        for (size_t at; (at = row.effects.find('L')) != std::string::npos;) {
            row.effects.replace(at, 1, "list=" + kList);
        }
    }
    return rows;
}

/** `text` a hundred times. */
std::string often(const std::string& text) {
    std::string texts;
    for (int i = 0; i < 100; ++i) texts += text;
    return texts;
}

/** What a UFS 3.1 device is sent if it does not accept the list `times` times. */
std::string resent(int times) {
    std::string text = "L +" + std::to_string(30 * times) + " list=";
    while (times-- > 0) text += kList;
    return text + "-";
}

// clang-format off
const std::vector<Row> kUfs40 = {
        {"analysis=6,optimise=12", "", "0 7 1 r4 f0", "L op=1 +6 op=2 +12 op=0 L op=1 +6",
         "fbo_defrag_enable success."},
        {"analysis=stuck", "", "-11 - - r200 f0", "L op=1 +1200", "flc enable abnormal, exit"},
        {"analysis=6,analysis_end=3", "", "-11 - - r1 f0", "L op=1 +6"},
        // One retry in the whole call, on whatever it is spent; a short report is not counted.
        {"analysis=0,analysis_end=0/-1,optimise=0", "", "0 7 1 r1 f1",
         "(L op=1)*2 op=2 op=0 L op=1"},
        {"analysis=0,analysis_end=255", "", "-11 - - r1 f1", "L op=1 op=0 L op=1",
         "flc ops is: 255."},
        {"analysis=0,analysis_end=9/-1/9,optimise=0", "", "-11 7 - r1 f1",
         "L op=1 op=0 L op=1 op=2 op=0 L op=1"},
        {"analysis=0,optimise=0,report=28/29", "", "0 7 1", "L op=1 op=0 L op=1 op=2 op=0 L op=1"},
        {"analysis=0,report=28", "", "-11 - -", "L op=1 op=0 L op=1", "read buff fail, retry"},
        {"analysis=0,fault.fbo_get_lr_frag_level=unreadable", "", "-11 - -", "L op=1 op=0 L op=1"},
        {"analysis=0,report=0/99,analysis_end=-1/9", "", "-11 - -", "L op=1 op=0 L op=1"},
        {"analysis=0,optimise=0,optimise_end=255", "", "0 7 - r0 f1", "L op=1 op=2",
         "optimization fail."},
        {"analysis=0,optimise=6,optimise_end=2", "", "0 7 - r1 f0", "L op=1 op=2 +6",
         "!defrag_enable"},
        {"analysis=0,optimise=6,optimise_end=255", "", "0 7 - r1 f0", "L op=1 op=2 +6",
         "!optimization fail"},
        {"analysis=0,optimise=stuck", "", "0 7 - r200 f0", "L op=1 op=2 +1200"},
        {"node.fbo_prog_state=7", "", "-11 - - r9 f10", "(op=0 +30)*10 op=0"},
        // Nothing checks the level's character: "a" is 10, all others count by their code.
        {"analysis=0,optimise=0,node.fbo_get_lr_frag_level=0123456789a................../"
         "0123456789b..................", "", "0 10 50", "L op=1 op=2 op=0 L op=1"},
        {"analysis=0,optimise=0,node.fbo_get_lr_frag_level=0123456789\xff................../"
         "0123456789A..................", "", "0 207 17", "L op=1 op=2 op=0 L op=1"},
        {"fault.fbo_prog_state=missing", "", "-10 - -"},
        {"fault.fbo_send_lr_list=missing", "", "-10 - -", "", "Open file failure"},
        {"", "", "-10 - -", "L", "Open file failure", "write buff lba",
         "fault.fbo_prog_state=missing"},
        {"", "", "-10 - -", "L", "Open file failure", "enable analysis",
         "fault.fbo_operation_control=missing"},
        // An optimisation that cannot be started goes unnoticed: the state stays the one read last.
        {"analysis=0", "", "0 7 -", "L op=1", "!Open file", "enable optimization",
         "fault.fbo_operation_control=unwritable,fault.fbo_prog_state=missing"},
        // What a node refuses is never offered again, nor is what depends on it.
        {"analysis=0,fault.fbo_send_lr_list=write-error", "", "-11 - - r1 f1", "(L! op=1!)*2"},
        {"analysis=stuck", "", "-11 - - r200 f0", "L op=1 +1200", "", "on going",
         "fault.fbo_prog_state=read-error"},
        {"node.fbo_prog_state=0/x", "", "invalid_argument", "L op=1"},
        // A stop ends the call, but only after the device has been brought back to idle.
        {"analysis=12", "", "0 - - r1 f0", "L op=1 +6 op=0", "hal stop\n;hal stop.\n",
         "flc ops is: 1", "stop"},
        {"analysis=12,optimise=6", "", "0 7 - r2 f0", "L op=1 +12 op=2 op=0",
         "hal stop\n;hal stop.\n", "enable optimization", "stop"},
        {"node.fbo_prog_state=0/1/99999999999", "", "out_of_range r1 f0", "L op=1 +6"},
};

const std::vector<Row> kUfs31 = {
        {"analysis=6,optimise=12", "", "0 7 1 r4 f0", "L flc=1 +6 defrag=1 +12 flc=0 L flc=1 +6",
         "fbs_defrag_enable success."},
        // What is sent again waits, without a line end, until the node is closed, and is then a
        // list of its own to the device.
        {"accept=61/0,analysis=0,optimise=0", "", "0 9 1 r3 f3",
         resent(3) + " flc=1 defrag=1 flc=0 L flc=1"},
        // If it is no list, the first one counts.
        {"accept=60,analysis=0,optimise=0", "", "0 7 1 r4 f4",
         resent(2) + "! flc=1 defrag=1 flc=0 " + resent(2) + "! flc=1"},
        {"node.fbs_flc_ops=0/2", "", "-11 - - r10 f10", resent(10) + "!", "write buffer fail"},
        // What the driver refused is gone; what is sent again is a new text, in one store.
        {"fault.fbo_send_lr_list=write-error", "", "-11 - - r10 f10",
         resent(10).replace(1, 0, "!") + "!"},
        {"analysis=stuck", "", "-11 - - r200 f0", "L flc=1 +1200", "flc enable fail."},
        {"analysis=6,analysis_end=1", "", "-11 - - r1 f0", "L flc=1 +6"},
        {"analysis=0,analysis_end=1/-1,optimise=0", "", "0 7 1 r1 f1",
         "L flc=1 flc=0 L flc=1 defrag=1 flc=0 L flc=1"},
        {"analysis=0,analysis_end=9", "", "-11 - - r1 f1", "L flc=1 flc=0 L flc=1",
         "flc enable abnormal, exit"},
        {"analysis=0,optimise=0,report=28/29", "", "0 7 1",
         "L flc=1 flc=0 L flc=1 defrag=1 flc=0 L flc=1"},
        // Each failure starts the first pass again, on a device that has to be cleared first.
        {"analysis=0,optimise=0,optimise_end=255/255/-1", "", "0 7 1 r0 f2",
         "L flc=1 defrag=1 flc=0 defrag=0 L flc=1 defrag=1 flc=0 defrag=0 L flc=1 defrag=1 flc=0 "
         "L flc=1",
         "fbs_defrag_enable fail."},
        {"analysis=0,optimise=6,optimise_end=255", "", "0 7 - r1 f0", "L flc=1 defrag=1 +6",
         "!defrag_enable"},
        {"analysis=0,optimise=stuck", "", "0 7 - r200 f0", "L flc=1 defrag=1 +1200"},
        // A device about to finish is asked again without a pause.
        {"analysis=0,node.fbs_defrag_ops=0/2/3/3/0", "", "0 7 7 r3 f0",
         "L flc=1 defrag=1 +6 flc=0 L flc=1"},
        {"analysis=0,node.fbs_defrag_ops=0/3", "", "0 7 - r200 f0", "L flc=1 defrag=1"},
        // What is read once more after a failure is not looked at.
        {"analysis=0,node.fbs_defrag_ops=0/255/x/0", "", "0 7 7 r0 f1",
         "L flc=1 defrag=1 flc=0 L flc=1 defrag=1 flc=0 L flc=1"},
        // What has been sent or read again counts, whatever the answer.
        {"node.fbs_flc_ops=0/2/x", "", "invalid_argument r1 f1", resent(1)},
        {"node.fbs_flc_ops=0/1/2/x", "", "invalid_argument r1 f0", "L flc=1 +6"},
        {"analysis=0,node.fbs_defrag_ops=0/2/x", "", "invalid_argument r1 f0",
         "L flc=1 defrag=1 +6"},
        {"analysis=12", "", "0 - - r1 f0", "L flc=1 +6 flc=0", "hal stop\n;hal stop.\n",
         "flc ops is: 2", "stop"},
        {"analysis=12,optimise=6", "", "0 7 - r2 f0", "L flc=1 +12 defrag=1 flc=0 defrag=0",
         "hal stop\n;!hal stop.", "enable defrag", "stop"},
        {"analysis=0,node.fbs_defrag_ops=0/3/0", "", "0 7 -", "L flc=1 defrag=1 flc=0",
         "hal stop\n", "enable defrag", "stop"},
        // The five minutes of sending again do not look at a stop; the next wait does.
        {"accept=61/0", "", "0 - - r3 f3", resent(3) + " flc=1 flc=0", "", "write buff lba", "stop"},
        // A device that keeps failing keeps the engine at it.
        {"analysis=0,optimise=0,optimise_end=" + often("255/") + "-1", "", "0 7 1 r0 f100", kAny},
        // A node that FBO_Clear() cannot open is a failure of the device, other than on UFS 4.0.
        {"fault.fbs_defrag_ops=missing", "", "-11 - -", "", "check defrag ops."},
        {"fault.fbs_flc_ops=missing", "", "-11 - -", "", "!check defrag ops."},
        {"fault.fbo_send_lr_list=unwritable", "", "-10 - -", "", "Open file failure"},
        {"", "", "-10 - -", "L", "Open file failure", "write buff lba",
         "fault.fbs_flc_ops=missing"},
        {"", "", "-10 - -", "L", "Open file failure", "write buffer success",
         "fault.fbs_flc_enable=missing"},
        // The state of the analysis, 3, is then taken for one of the defragmentation.
        {"analysis=0", "", "0 7 - r200 f0", "L flc=1", "!Open file", "enable defrag",
         "fault.fbs_defrag_enable=missing,fault.fbs_defrag_ops=missing"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Ufs40, FreshPhone,
                         testing::ValuesIn(forEngine("UFS40_FBO_Imp", "ufs40:samsung", kUfs40)));
INSTANTIATE_TEST_SUITE_P(Ufs31, FreshPhone,
                         testing::ValuesIn(forEngine("UFS31_FBO_Imp", "ufs31:samsung", kUfs31)));

/** A long list and its line feed are one store, however a stream would split them. */
TEST_F(Phone, ALongListIsOneStore) {
    std::string list;
    for (int i = 0; i < 127; ++i) list += std::to_string(1000000000 + 16 * i) + ",8,";
    list.pop_back();
    start("ufs31:samsung,ranges=127,accept=20/0,analysis=stuck");
    expect({{"", "UFS31_FBO_Imp " + list, "-11 - - r201 f1",
             "list=" + list + " +30 list=" + list + "- flc=1 +1200"}});
}

class Waiting : public FreshPhone {};

/** The nodes of an operation stay open while it waits; the answer is their number. */
TEST_P(Waiting, KeepsItsNodesOpen) {
    start(GetParam().settings);
    const size_t before = openDescriptors().size();
    size_t nodes = 0;
    sim::onSleep([&] { nodes = openDescriptors().size() - before; });
    call(GetParam().call);
    EXPECT_EQ(std::to_string(nodes), GetParam().answer);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(, Waiting, testing::ValuesIn(std::vector<Row>{
        {"ufs40:samsung,node.fbo_prog_state=7", "UFS40_FBO_Imp 1,2", "2"},
        {"ufs40:samsung,analysis=6,optimise=stuck", "UFS40_FBO_Imp 1,2", "2"},
        {"ufs40:samsung,analysis=stuck,linear=0", "FBO_trigger 1,2,", "3"},
        {"ufs31:samsung,accept=stuck", "UFS31_FBO_Imp 1,2", "2"},
        {"ufs40:samsung,mapping=stuck", "FBO2_Linear_Mapping 1|2", "2"},
        {"ufs40:samsung,backup=2", "SnapShot_startBackup", "1"},
        {"ufs40:kioxia,snapshot=2,drop=2", "SnapShot_startDrop", "1"},
        {"ufs40:samsung", "EUA_SendEraseCmd 1,2", "1"}, {"ufs40:samsung", "drop_caches 1", "1"},
}));
// clang-format on

}  // namespace
