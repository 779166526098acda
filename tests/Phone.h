#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fbo/Fbo.h"
#include "sim/Simulator.h"

using namespace vendor::nivora::hardware::fbo::implementation;

/**
 * A test on a simulated phone. The phone, like the library's own state, is the process's: every
 * test runs in a process of its own. In the end no descriptor may be left open and no node have
 * been written that the service has no business with.
 */
class Phone : public testing::Test {
  protected:
    /** Switches on a phone with `device`, see sim::Simulator. */
    void start(const std::string& device);
    void TearDown() override;

    sim::Simulator& phone() { return *phone_; }
    void set(const std::string& key, const std::string& value) { phone_->set(key, value); }

    /**
     * What happened since the last call, a line each, in order: "read NODE "TEXT"", "write NODE
     * "TEXT"", "sleep SECONDS" and "log PRIORITY FUNCTION TEXT".
     */
    std::vector<std::string> events();
    /** The events that begin with `what`, without that. */
    std::vector<std::string> events(const std::string& what);
    /** Whether the phone has logged `line`, "PRIORITY FUNCTION TEXT", since the last events(). */
    bool logged(const std::string& line);

    /**
     * The events as `function` tells them: its own log lines as "PRIORITY TEXT", without the
     * area, those of other functions left out, and the traffic as it is.
     */
    std::vector<std::string> story(const std::string& function);
    /** Has `action` run when a line is logged that contains `text`. */
    void onLog(const std::string& text, std::function<void()> action);

    /** Waits until the phone has logged `text` so and so often since the last events(). */
    void await(const std::string& text, int times = 1);

    /** Runs `text` through FBO_trigger and returns its answer. */
    std::string trigger(const std::string& text);
    std::string stateCtl(const std::string& text);
    /** Has FBO_stateCtl be told `text` when sleep number `sleep` (1, 2, …) begins. */
    void tellAtSleep(int sleep, const std::string& text);

    /**
     * The service. It is kept for good, as a service process does: destroying it while its worker
     * runs would end the process.
     */
    android::sp<Fbo> service;
    /** Makes a service that stands for the one above; start() makes an Fbo. */
    template <typename Service>
    android::sp<Service> serve() {
        const android::sp<Service> made = new Service;
        made->incStrong(nullptr);
        waitForWorker();
        return made;
    }

    /** The descriptors that the service has open: those of its worker. */
    std::vector<int> serviceDescriptors() const;
    /** The descriptors of one worker are gone. */
    void workerEnded() { --workers_; }

  private:
    /** Waits until the worker of one more service listens. */
    void waitForWorker();

    std::vector<int> openDescriptors() const;

    std::unique_ptr<sim::Simulator> phone_;
    std::vector<int> descriptors_;
    size_t workers_ = 0;
    /** Guards what the log's readers, on any thread, are to do. */
    std::mutex mutex_;
    std::string awaited_;
    std::function<void()> action_;
};

/** `text` cut at its line ends. */
std::vector<std::string> lines(const std::string& text);

/** The last `count` of `events`. */
std::vector<std::string> tail(std::vector<std::string> events, size_t count);
