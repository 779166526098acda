/*
 * What every service of IFbo holds to, on every device. The tests that run by default leave the
 * device as it is; they send a stop, so no run that is worth keeping should be in progress.
 *
 * With --gtest_also_run_disabled_tests the device works, and the service is made to end once, for
 * init to start it again. The ranges to work on are the user's, in the environment:
 *     FBO_VTS_RANGES  ranges to defragment, as FBO_trigger() takes them
 *     FBO_VTS_ERASE   erase requests, as EUA_SendEraseCmd() takes them; what is there is lost
 * Without them these two cases are skipped.
 */

#include <chrono>
#include <cstdlib>
#include <future>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/GtestPrinter.h>
#include <hidl/ServiceManagement.h>
#include <hidl/Status.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace {

using namespace ::android;
using namespace ::android::hardware;
using ::android::hidl::base::V1_0::IBase;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

template <typename Value>
Value valueOf(Return<Value> answer) {
    EXPECT_TRUE(answer.isOk()) << answer.description();
    return answer.withDefault({});
}

/** The text of a method that answers by callback, called with all `arguments` but that one. */
template <typename Method, typename... Arguments>
std::string textOf(const sp<IFbo>& service, Method method, const Arguments&... arguments) {
    std::string text = "(the call failed)";
    const Return<void> answer = (service.get()->*method)(
            arguments..., [&text](const hidl_string& result) { text = result; });
    EXPECT_TRUE(answer.isOk()) << answer.description();
    return text;
}

std::string fromEnvironment(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? "" : value;
}

struct Obituary : hidl_death_recipient {
    void serviceDied(uint64_t cookie, const wp<IBase>&) override { died.set_value(cookie); }
    std::promise<uint64_t> died;
};

class FboHidlTest : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        service = IFbo::getService(GetParam());
        ASSERT_NE(service, nullptr);
        ASSERT_TRUE(service->isRemote());
    }

    std::string trigger(const std::string& ranges) {
        return textOf(service, &IFbo::FBO_trigger, hidl_string(ranges));
    }
    std::string control(const std::string& command) {
        return textOf(service, &IFbo::FBO_stateCtl, hidl_string(command));
    }
    std::string wear() { return textOf(service, &IFbo::EUA_GetFreeSpaceAPECycle); }

    sp<IFbo> service;
};

TEST_P(FboHidlTest, IsTheInterfaceThatItSaysItIs) {
    EXPECT_EQ(textOf(service, &IFbo::interfaceDescriptor), IFbo::descriptor);
    std::vector<std::string> chain;
    const Return<void> asked = service->interfaceChain(
            [&](const hidl_vec<hidl_string>& names) { chain.assign(names.begin(), names.end()); });
    EXPECT_TRUE(asked.isOk());
    EXPECT_EQ(chain, (std::vector<std::string>{IFbo::descriptor, IBase::descriptor}));
    const auto look = [](const auto& hashes) {
        ASSERT_EQ(hashes.size(), 2u);
        // Those of the frozen interface, see interfaces/current.txt.
        EXPECT_EQ(hashes[0][0], 0xd1);
        EXPECT_EQ(hashes[0][31], 0xa5);
    };
    EXPECT_TRUE(service->getHashChain(look).isOk());
    EXPECT_TRUE(service->ping().isOk());
}

TEST_P(FboHidlTest, AnswersAgree) {
    const std::string report = wear();
    std::smatch parts;
    if (std::regex_match(report, parts, std::regex("(-?[0-9]+):([01])"))) {
        EXPECT_EQ(parts[2] == "1", valueOf(service->EUA_isSupport()));
        EXPECT_FALSE(std::stoi(parts[1]) >= 2400 && valueOf(service->FBO_isSupport())) << report;
    } else {
        EXPECT_EQ(report, "") << "neither a report nor none";
    }
    EXPECT_GE(valueOf(service->EUA_SupportSize()), 0);
    EXPECT_TRUE(valueOf(service->SnapShot_isSupport()));
    const int32_t status = valueOf(service->SnapShot_getStatus());
    EXPECT_TRUE(0 <= status && status <= 6) << status;
}

TEST_P(FboHidlTest, FollowsTheRulesOfTheClient) {
    const bool supported = valueOf(service->FBO_isSupport());
    for (const char* on : {"", "1.0:ON", ">0.9:ON", "V:1.0,>0.9:ON", "2.0:ON,1.0:ON", ">:ON"}) {
        EXPECT_EQ(valueOf(service->FBO_VersionCtrl(on)), supported) << on;
    }
    for (const char* off : {"1.0", "1.0:OFF", "2.0:ON", ">1.0:ON", "V:2.0,>0.9:ON", "V:1.0"}) {
        EXPECT_FALSE(valueOf(service->FBO_VersionCtrl(off))) << off;
    }
}

TEST_P(FboHidlTest, HandsBackEveryControlText) {
    const std::string long_text(256 * 1024, 'x');
    for (const std::string& text : {std::string("stop"), std::string(), std::string("STOP"),
                                    std::string("a\0b", 3), long_text, std::string("continue")}) {
        EXPECT_TRUE(control(text) == text) << text.substr(0, 10);
    }
}

TEST_P(FboHidlTest, ATriggerWithoutRangesDoesNothing) {
    for (const char* nothing : {"", ",", "8"}) EXPECT_EQ(trigger(nothing), "Fbo:0:0") << nothing;
}

TEST_P(FboHidlTest, WhatCannotBeSentFailsAtTheClient) {
    EXPECT_FALSE(service->FBO_trigger("", nullptr).isOk());
    EXPECT_FALSE(service->EUA_GetFreeSpaceAPECycle(nullptr).isOk());
    const Return<void> without_callback = service->FBO_stateCtl("", nullptr);
    EXPECT_FALSE(without_callback.isOk() || without_callback.isDeadObject());
    const Return<void> beyond_buffer = service->FBO_stateCtl(
            std::string(1040384, 'x'), [](const hidl_string&) { FAIL() << "an answer"; });
    EXPECT_FALSE(beyond_buffer.isOk() || beyond_buffer.isDeadObject());
    EXPECT_EQ(control("continue"), "continue");
}

TEST_P(FboHidlTest, AnswersSeveralClientsAtOnceAndAlike) {
    const auto ask = [this] {
        return std::tuple(valueOf(service->FBO_isSupport()), valueOf(service->EUA_isSupport()),
                          valueOf(service->EUA_SupportSize()), wear());
    };
    const auto expected = ask();
    std::vector<std::thread> clients;
    for (const char* client : {"1", "2", "3", "4", "5", "6"}) {
        clients.emplace_back([&, client] {
            for (int call = 0; call < 20; ++call) {
                EXPECT_EQ(ask(), expected);
                EXPECT_EQ(control(client), client);
            }
        });
    }
    for (std::thread& client : clients) client.join();
}

TEST_P(FboHidlTest, LinksToDeathAndUnlinks) {
    const sp<Obituary> obituary = new Obituary;
    EXPECT_FALSE(valueOf(service->unlinkToDeath(obituary)));
    EXPECT_TRUE(valueOf(service->linkToDeath(obituary, 1)));
    EXPECT_TRUE(valueOf(service->unlinkToDeath(obituary)));
}

TEST_P(FboHidlTest, DISABLED_DefragmentsAndStops) {
    const std::string ranges = fromEnvironment("FBO_VTS_RANGES");
    if (ranges.empty()) GTEST_SKIP() << "there is no FBO_VTS_RANGES";
    if (!valueOf(service->FBO_isSupport())) GTEST_SKIP() << "FBO is not supported";
    const std::regex form("Fbo:([0-9]+):([0-9]+)");
    std::smatch figures;
    const std::string whole = trigger(ranges);
    ASSERT_TRUE(std::regex_match(whole, figures, form)) << whole;
    EXPECT_LE(std::stoi(figures[2]), std::stoi(figures[1]));

    std::future<std::string> stopped =
            std::async(std::launch::async, [&] { return trigger(ranges); });
    EXPECT_EQ(control("stop"), "stop");
    const std::string part = stopped.get();
    EXPECT_TRUE(std::regex_match(part, form)) << part;
}

TEST_P(FboHidlTest, DISABLED_SendsEraseRequests) {
    const std::string items = fromEnvironment("FBO_VTS_ERASE");
    if (items.empty()) GTEST_SKIP() << "there is no FBO_VTS_ERASE";
    if (!valueOf(service->EUA_isSupport())) GTEST_SKIP() << "EUA is not supported";
    EXPECT_TRUE(valueOf(service->EUA_SendEraseCmd(items)));
}

TEST_P(FboHidlTest, DISABLED_TakesAndDropsASnapshot) {
    if (!valueOf(service->SnapShot_startBackup())) GTEST_SKIP() << "no snapshot can be taken now";
    EXPECT_EQ(valueOf(service->SnapShot_getStatus()), 2);
    EXPECT_TRUE(valueOf(service->SnapShot_startDrop()));
    EXPECT_NE(valueOf(service->SnapShot_getStatus()), 2);
}

TEST_P(FboHidlTest, DISABLED_IsStartedAgainAfterAnError) {
    if (!valueOf(service->FBO_isSupport())) GTEST_SKIP() << "FBO is not supported";
    const sp<Obituary> obituary = new Obituary;
    std::future<uint64_t> death = obituary->died.get_future();
    ASSERT_TRUE(valueOf(service->linkToDeath(obituary, 1234)));
    EXPECT_TRUE(service->FBO_VersionCtrl("V").isDeadObject());
    ASSERT_EQ(death.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(death.get(), 1234u);
    EXPECT_FALSE(valueOf(service->unlinkToDeath(obituary)));
    // For a moment the dead one may still be found.
    for (int attempt = 0; attempt < 300 && !service->ping().isOk(); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        service = IFbo::getService(GetParam());
    }
    EXPECT_TRUE(valueOf(service->FBO_isSupport()));
}

INSTANTIATE_TEST_SUITE_P(
        PerInstance, FboHidlTest,
        testing::ValuesIn(android::hardware::getAllHalInstanceNames(IFbo::descriptor)),
        android::hardware::PrintInstanceNameToString);

}  // namespace
