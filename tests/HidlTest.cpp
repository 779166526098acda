/*
 * The stand-in for the HIDL runtime is as strict as a phone's: what would abort or hang a client
 * there does so in every test here.
 */

#include <unistd.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "Asleep.h"
#include "fbo/Fbo.h"

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

TEST(Hidl, WaitsForADeclaredServiceOnly) {
    EXPECT_EQ(IFbo::getService("other"), nullptr);
    EXPECT_EQ(IFbo::tryGetService(), nullptr);
    const android::sp<Fbo> service = new Fbo;
    service->incStrong(nullptr);
    EXPECT_NE(service->registerAsService("other"), android::OK);

    std::atomic<bool> answered = false;
    std::thread starter([&, client = gettid()] {
        while (!answered && !isAsleep(client)) std::this_thread::yield();
        EXPECT_EQ(service->registerAsService(), android::OK);
    });
    const android::sp<IFbo> found = IFbo::getService();
    answered = true;
    starter.join();
    EXPECT_EQ(found, service);
    EXPECT_EQ(IFbo::tryGetService(), service);
    EXPECT_EQ(IFbo::tryGetService("other"), nullptr);
}

}  // namespace
