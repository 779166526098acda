#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>

#include "Phone.h"

namespace {

using android::base::unique_fd;

const std::string kDirectory = "/sys/devices/platform/soc/1d84000.ufshc/ufsfbo/";

std::string outcome(ssize_t result) {
    return result < 0 ? strerrorname_np(errno) : std::to_string(result);
}

/** What one write(2) to a node comes to. */
std::string store(const std::string& name, const std::string& text) {
    const std::string path = name[0] == '/' ? name : kDirectory + name;
    const unique_fd node(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return outcome(write(node.get(), text.data(), text.size()));
}

/** Stores to a node, one after the other, and what comes of each. */
struct Stores {
    const char* node;
    std::vector<std::pair<std::string, std::string>> outcomes;
};

void expectStores(const std::vector<Stores>& rows) {
    for (const auto& [node, outcomes] : rows) {
        for (const auto& [text, outcome] : outcomes) {
            EXPECT_EQ(store(node, text), outcome) << text.substr(0, 40) << " to " << node;
        }
    }
}

constexpr char kList[] = "fbo_send_lr_list";

/** A list of `count` ranges, 11 characters each. */
std::string listOf(size_t count) {
    std::string list;
    while (list.size() < 11 * count) list += "12345678,1,";
    list.back() = '\n';
    return list;
}

TEST_F(Phone, AStoreIsAPageAtMostAndAListIsALine) {
    start("ufs40:samsung");
    expectStores({{"../ufseua/eua_file_lba_unmap", {{"8,8\n", "4"}, {"8,8", "EINVAL"}}},
                  {kList, {{"8,8\n", "4"}, {"8,8", "EINVAL"}}},
                  {kList, {{listOf(372), "4092"}, {listOf(373), "EINVAL"}}},
                  {"/proc/sys/vm/drop_caches", {{std::string(5000, '3'), "4096"}}}});
}

TEST_F(Phone, ARefusedListAndAClearLeaveNone) {
    constexpr char kOperation[] = "fbo_operation_control";
    start("ufs40:samsung,analysis=0");
    expectStores({{kList, {{"8,8\n", "4"}, {"8,x\n", "EINVAL"}}},
                  {kOperation, {{"1\n", "EINVAL"}, {"4\n", "EINVAL"}}},
                  {kList, {{"8,8\n", "4"}}},
                  {kOperation, {{"1\n", "2"}, {"0\n", "2"}, {"1\n", "EINVAL"}}}});
}

TEST_F(Phone, AUfs31DeviceTakesAListThatIsSentAgain) {
    constexpr char kAnalysis[] = "fbs_flc_enable";
    start("ufs31:samsung");
    expectStores({{kList, {{"8,8", "3"}}},
                  {kAnalysis, {{"1\n", "2"}, {"0\n", "2"}, {"1\n", "EINVAL"}}},
                  {kList, {{"8,8\n", "4"}, {"8,88,8", "EINVAL"}}},
                  {kAnalysis, {{"1\n", "2"}, {"0\n", "2"}}},
                  {kList, {{"8,8\n", "4"}, {"8,x\n", "EINVAL"}}},
                  {kAnalysis, {{"1\n", "EINVAL"}}},
                  {kList, {{"8,8\n", "4"}, {listOf(373), "EINVAL"}}},
                  {kAnalysis, {{"1\n", "EINVAL"}}}});
}

TEST_F(Phone, ANodeTakesNumbersAsTheKernelDoes) {
    using namespace std::string_literals;
    start("ufs40:samsung");
    expectStores({{"debug", {{"2147483647", "10"}, {"-2147483648\n", "12"}, {"+7\n", "3"}}},
                  {"debug", {{"010\0x"s, "5"}, {"2147483648", "ERANGE"}, {"", "0"}}},
                  {"debug", {{"-2147483649\n", "ERANGE"}, {"-+7", "EINVAL"}, {"\n", "EINVAL"}}},
                  {"debug", {{"7\n\n", "EINVAL"}, {" 7", "EINVAL"}, {"0x7", "EINVAL"}}},
                  {"fbo_operation_control", {{"4294967296\n", "ERANGE"}, {"+0\n", "3"}}}});
    expect({{"", "readFileToString " + kDirectory + "debug", "true 10"}});
}

/** The names in a directory, in the order in which they are listed. */
std::vector<std::string> list(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

TEST_F(Phone, ADirectoryListsAllThatItHasInNoOrder) {
    start("ufs40:samsung");
    const std::string driver = "/sys/bus/platform/drivers/ufshcd-qcom";
    const std::pair<std::string, std::set<std::string>> kRows[] = {
            {"", {"bind", "unbind", "uevent", "module", "1d84000.ufshc"}},
            {"/1d84000.ufshc",
             {"driver", "power", "subsystem", "uevent", "host0", "ufseua", "ufsfbo",
              "ufssnapshot"}},
            {"/1d84000.ufshc/subsystem/drivers", {"ufshcd-qcom"}},
            {"/1d84000.ufshc/driver/1d84000.ufshc/ufseua",
             {"eua_support", "eua_support_size", "eua_file_lba_unmap"}}};
    for (const auto& [directory, names] : kRows) {
        const std::vector<std::string> found = list(driver + directory);
        EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), names) << directory;
    }
    const std::vector<std::string> nodes = list(kDirectory);
    EXPECT_FALSE(std::is_sorted(nodes.begin(), nodes.end()));
    set("fault.debug", "missing");
    EXPECT_EQ(list(kDirectory).size(), nodes.size() - 1);
}

/** What stood open when the driver was unbound, or the node went, is dead; what comes back is not.
 */
TEST_F(Phone, AnOpenNodeThatGoesStaysDead) {
    start("ufs40:samsung");
    const std::string path = kDirectory + "debug";
    for (const char* lost : {"1d84000.ufshc", "ufsfbo", "debug"}) {
        SCOPED_TRACE(lost);
        char byte;
        const unique_fd before(open(path.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(outcome(pread(before.get(), &byte, 1, 0)), "1");
        set("fault." + std::string(lost), "missing");
        EXPECT_EQ(outcome(pread(before.get(), &byte, 1, 0)), "ENODEV");
        EXPECT_EQ(outcome(open(path.c_str(), O_RDWR | O_CLOEXEC)), "ENOENT");
        set("fault." + std::string(lost), "none");
        EXPECT_EQ(outcome(pread(before.get(), &byte, 1, 0)), "ENODEV");
        EXPECT_EQ(outcome(write(before.get(), "7\n", 2)), "ENODEV");
        EXPECT_EQ(store("debug", "1\n"), "2");
    }
}

/** Modes hold for everybody but root. */
TEST_F(Phone, AnotherUserReadsWhatItMayAndWritesNothing) {
    start("ufs40:samsung");
    const pid_t other = fork();
    if (other == 0) {
        if (setresuid(65534, 65534, 65534) != 0) _exit(77);
        const auto may = [](const std::string& name, int mode) {
            return access((kDirectory + name).c_str(), mode) == 0;
        };
        _exit(may("fbo_support", R_OK) && may("debug", R_OK) && !may("debug", W_OK) &&
                              !may(kList, W_OK) && !may(kList, R_OK)
                      ? 0
                      : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this user can become no other";
    EXPECT_EQ(status, 0);
}

}  // namespace
