/*
 * The stand-in for the HIDL runtime is as strict as a phone's: what would abort or hang a client
 * there does so in every test here.
 */

#include <unistd.h>

#include <atomic>
#include <thread>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "Asleep.h"
#include "fbo/Fbo.h"

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;
using ::android::hardware::Status;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

Return<bool> fail() {
    return Status::fromStatusT(android::DEAD_OBJECT);
}

TEST(Hidl, AFailedAnswerAbortsWhoeverDoesNotLook) {
    EXPECT_DEATH(fail(), "nobody looked at the answer");
    EXPECT_DEATH(static_cast<void>(fail().description()), "nobody looked");
    EXPECT_DEATH(
            Return<void>(Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no callback")),
            "no callback");
    EXPECT_DEATH(static_cast<void>(static_cast<bool>(fail())), "took the value");
    EXPECT_DEATH(
            {
                Return<bool> answer = fail();
                // Looked at or not, there is no value.
                if (!answer.isOk()) static_cast<void>(static_cast<bool>(answer));
            },
            "took the value");
    EXPECT_DEATH(
            {
                Return<bool> answer = fail();
                answer = true;
            },
            "nobody looked");
}

TEST(Hidl, AFailedAnswerThatIsLookedAtIsHarmless) {
    static_assert(!std::is_copy_constructible_v<Return<bool>>);
    Return<bool> answer = fail();
    Return<bool> moved = std::move(answer);
    EXPECT_TRUE(moved.isDeadObject());
    EXPECT_FALSE(moved.isOk());
    EXPECT_TRUE(moved.withDefault(true));
    EXPECT_EQ(Return<int32_t>(7), 7);
}

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
