/*
 * What a client holds of a service in another process.
 */

#include "FboProxy.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Wire.h"

namespace host {

namespace {

using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::sp;
using android::wp;
using android::base::unique_fd;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hidl::base::V1_0::DebugInfo;
using android::hidl::base::V1_0::IBase;
using android::hidl::manager::V1_0::IServiceNotification;
using vendor::nivora::hardware::fbo::V1_0::IFbo;

/** What came of a call. */
struct Answer {
    Status status;
    uint64_t value = 0;
    std::string text;
};

Answer transact(uint64_t service, Code code, const std::string& text = {}) {
    // What does not fit does not leave the client.
    if (costOf(text.size()) > kBufferSize) return {Status::fromStatusT(FAILED_TRANSACTION), 0, {}};
    const unique_fd fd = connectToService();
    Request request;
    request.code = code;
    request.service = service;
    Reply reply;
    Answer answer;
    // A service that refuses a request may do so before it has read all of it.
    if (fd.ok()) sendRequest(fd.get(), request, text);
    if (!fd.ok() || !receiveReply(fd.get(), reply, answer.text)) {
        return {Status::fromStatusT(DEAD_OBJECT), 0, {}};
    }
    answer.value = reply.value;
    answer.status = reply.error != OK
                            ? Status::fromStatusT(reply.error)
                            : Status::fromExceptionCode(reply.exception, answer.text.c_str());
    return answer;
}

/** A connection that lasts as long as the service does; -1 if that is dead. */
unique_fd openLink(uint64_t service) {
    unique_fd fd = connectToService();
    Request request;
    request.code = Code::kLink;
    request.service = service;
    Reply reply;
    std::string text;
    const bool is_alive = fd.ok() && sendRequest(fd.get(), request) &&
                          receiveReply(fd.get(), reply, text) && reply.error == OK;
    return is_alive ? std::move(fd) : unique_fd();
}

/** Whom to tell of the death of a service. */
struct DeathWatch {
    std::mutex mutex;
    /** -1 while nobody wants to know. */
    unique_fd link;
    bool is_dead = false;
    std::vector<std::pair<sp<hidl_death_recipient>, uint64_t>> recipients;
};

/** What a client meets that hands over nothing to take the answer; the service is not asked. */
Status nullCallback() {
    return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT,
                                     "Null synchronous callback passed.");
}

class FboProxy : public IFbo {
  public:
    explicit FboProxy(uint64_t service) : service_(service) {}
    ~FboProxy() override {
        // Whoever was to be told is told no more.
        const std::lock_guard<std::mutex> lock(deaths_->mutex);
        deaths_->recipients.clear();
        if (deaths_->link.ok()) shutdown(deaths_->link.get(), SHUT_RDWR);
    }

    bool isRemote() const override { return true; }

    Return<bool> FBO_isSupport() override { return call<bool>(Code::kFboIsSupport); }
    Return<void> FBO_trigger(const hidl_string& command, FBO_trigger_cb _hidl_cb) override {
        return call(Code::kFboTrigger, command, _hidl_cb);
    }
    Return<void> FBO_stateCtl(const hidl_string& command, FBO_stateCtl_cb _hidl_cb) override {
        return call(Code::kFboStateCtl, command, _hidl_cb);
    }
    Return<bool> FBO_GCADisCard() override { return call<bool>(Code::kFboGcaDisCard); }
    Return<bool> FBO_VersionCtrl(const hidl_string& version) override {
        return call<bool>(Code::kFboVersionCtrl, version);
    }
    Return<void> EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb _hidl_cb) override {
        return call(Code::kEuaGetFreeSpaceAPECycle, {}, _hidl_cb);
    }
    Return<bool> EUA_SendEraseCmd(const hidl_string& command) override {
        return call<bool>(Code::kEuaSendEraseCmd, command);
    }
    Return<bool> EUA_isSupport() override { return call<bool>(Code::kEuaIsSupport); }
    Return<int32_t> EUA_SupportSize() override { return call<int32_t>(Code::kEuaSupportSize); }
    Return<bool> SnapShot_isSupport() override { return call<bool>(Code::kSnapShotIsSupport); }
    Return<bool> SnapShot_startBackup() override { return call<bool>(Code::kSnapShotStartBackup); }
    Return<bool> SnapShot_startDrop() override { return call<bool>(Code::kSnapShotStartDrop); }
    Return<int32_t> SnapShot_getStatus() override {
        return call<int32_t>(Code::kSnapShotGetStatus);
    }

    Return<void> ping() override { return transact(service_, Code::kPing).status; }
    Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb) override {
        if (!_hidl_cb) return nullCallback();
        const Answer answer = transact(service_, Code::kGetDebugInfo);
        if (!answer.status.isOk()) return answer.status;
        return IBase::getDebugInfo([&](DebugInfo info) {
            info.pid = static_cast<int32_t>(answer.value);
            _hidl_cb(info);
        });
    }

    // What both processes know answers in the name of a service that lives.
    Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        return ifAlive(_hidl_cb, [&] { return IFbo::interfaceChain(_hidl_cb); });
    }
    Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override {
        return ifAlive(_hidl_cb, [&] { return IFbo::interfaceDescriptor(_hidl_cb); });
    }
    Return<void> getHashChain(getHashChain_cb _hidl_cb) override {
        return ifAlive(_hidl_cb, [&] { return IFbo::getHashChain(_hidl_cb); });
    }
    Return<void> debug(const hidl_handle&, const hidl_vec<hidl_string>&) override { return ping(); }
    Return<void> setHALInstrumentation() override { return ping(); }
    Return<void> notifySyspropsChanged() override { return ping(); }

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        const std::lock_guard<std::mutex> lock(deaths_->mutex);
        if (recipient == nullptr || deaths_->is_dead) return false;
        if (!deaths_->link.ok()) {
            deaths_->link = openLink(service_);
            if (!deaths_->link.ok()) return false;
            std::thread(awaitDeath, deaths_, wp<IBase>(this)).detach();
        }
        deaths_->recipients.emplace_back(recipient, cookie);
        return true;
    }

    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        const std::lock_guard<std::mutex> lock(deaths_->mutex);
        auto& recipients = deaths_->recipients;
        const auto found = std::find_if(recipients.begin(), recipients.end(),
                                        [&](auto& linked) { return linked.first == recipient; });
        if (found == recipients.end()) return false;
        recipients.erase(found);
        return true;
    }

  private:
    template <typename Value>
    Return<Value> call(Code code, const std::string& text = {}) {
        const Answer answer = transact(service_, code, text);
        if (!answer.status.isOk()) return answer.status;
        return static_cast<Value>(answer.value);
    }

    Return<void> call(Code code, const std::string& text,
                      const std::function<void(const hidl_string&)>& callback) {
        if (!callback) return nullCallback();
        const Answer answer = transact(service_, code, text);
        if (answer.status.isOk()) callback(answer.text);
        return answer.status;
    }

    template <typename Callback, typename Local>
    Return<void> ifAlive(const Callback& callback, Local local) {
        if (!callback) return nullCallback();
        Return<void> alive = ping();
        return alive.isOk() ? local() : std::move(alive);
    }

    static void awaitDeath(const std::shared_ptr<DeathWatch>& deaths, const wp<IBase>& who) {
        awaitEnd(deaths->link.get());
        std::vector<std::pair<sp<hidl_death_recipient>, uint64_t>> recipients;
        {
            const std::lock_guard<std::mutex> lock(deaths->mutex);
            deaths->is_dead = true;
            recipients.swap(deaths->recipients);
        }
        for (const auto& [recipient, cookie] : recipients) recipient->serviceDied(cookie, who);
    }

    const uint64_t service_;
    /** The thread that waits may outlive the proxy. */
    const std::shared_ptr<DeathWatch> deaths_ = std::make_shared<DeathWatch>();
};

}  // namespace

sp<IFbo> findRemoteService() {
    const Answer answer = transact(0, Code::kPing);
    return answer.status.isOk() ? sp<IFbo>(new FboProxy(answer.value)) : nullptr;
}

void watchRemoteServices(const sp<IServiceNotification>& notification) {
    // Whether there is one is looked at here and now, and later ones are new.
    std::thread([notification, link = openLink(0)]() mutable {
        for (bool preexisting = true;; preexisting = false) {
            if (link.ok()) {
                // Its answer is of no use to anybody, and may be a failure.
                (void)notification->onRegistration(IFbo::descriptor, "default", preexisting).isOk();
                awaitEnd(link.get());
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            link = openLink(0);
        }
    }).detach();
}

}  // namespace host
