#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Calls.h"
#include "sim/Simulator.h"

/**
 * The function that a test wants called, and what comes of it. Settings and calls may be several,
 * with ";" between: then each is tried with each, and the same has to come of it every time.
 */
struct Row {
    /** What the device is set to for this call: "KEY=VALUE,KEY=VALUE". */
    std::string settings;
    /** See callByName(). */
    std::string call;
    /**
     * What the call returns, or the error that escapes it. Behind that, " r2 f1": what it has added
     * to the counters of retries and failures, unless that is nothing.
     */
    std::string answer;
    /** What happens to the device, see effectsOf(); kAny: whatever it is. */
    std::string effects = "";
    /** Texts, with ";" between, that the log has to hold; after a "!", must not hold. */
    std::string log = "";
    /** When this is logged … */
    std::string moment = "";
    /** … the device is set to this, or a stop is requested ("stop"), by a flag that is not 0. */
    std::string change = "";
};

void PrintTo(const Row& row, std::ostream* out);

constexpr char kAny[] = "*";

/**
 * The stores and sleeps of a trace: "NODE=TEXT" without the line feed that ends a text, or with
 * "-" if none does, and "!" if the node refused it; "+SECONDS", added up; "(…)*N" for what happens
 * N times in a row. The four nodes of the engines have short names: list, op, flc and defrag.
 */
std::string effectsOf(const sim::Trace& trace);

/** The log lines of a trace, a line each: "PRIORITY FUNCTION TEXT". */
std::string logOf(const sim::Trace& trace);

/** A trace with its log: what happens to the nodes after a line is told behind it. */
std::string transcriptOf(const sim::Trace& trace);

/**
 * A test on a simulated phone. The phone, like the library's own state, is the process's: every
 * test runs in a process of its own. In the end no descriptor may be left open.
 */
class Phone : public testing::Test {
  protected:
    /** Switches on a phone with `device`, see sim::Simulator, and makes a service. */
    void start(const std::string& device);
    void TearDown() override;

    sim::Simulator& phone() { return *phone_; }
    void set(const std::string& key, const std::string& value) { phone_->set(key, value); }
    /** Changes the device by several settings, with commas between. */
    void set(const std::string& settings);

    /** What happened since the last call of this function. */
    sim::Trace events();

    /** As callByName(), on the service made last. */
    std::string call(const std::string& text);

    /**
     * Makes the calls, one after the other. After each one the faults and the texts of nodes that
     * its settings have set are taken back.
     */
    void expect(const std::vector<Row>& rows);

    /** Has `action` run, once, when a line is logged that contains `text`. */
    void onLog(const std::string& text, std::function<void()> action);
    /** Has `action` run when sleep number `sleep` (1, 2, …) from now begins. */
    void onSleep(int sleep, std::function<void()> action);
    /** Waits until the phone has logged `text` so and so often since the last events(). */
    void await(const std::string& text, int times = 1);

    /**
     * The service. It is kept for good, as a service process does: destroying it while its worker
     * runs would end the process.
     */
    android::sp<Fbo> service;
    /** Makes a service that stands beside the one above; that is the one which call() asks then. */
    template <typename Service>
    android::sp<Service> serve() {
        const android::sp<Service> made = new Service;
        made->incStrong(nullptr);
        waitForWorker();
        asked_ = made;
        return made;
    }

    /** The descriptors that this process has open. */
    static std::vector<int> openDescriptors();
    /** The descriptors of one worker are gone. */
    void workerEnded() { --workers_; }

  private:
    /** Waits until the worker of one more service listens. */
    void waitForWorker();
    void check(const Row& row);

    std::unique_ptr<sim::Simulator> phone_;
    android::sp<Fbo> asked_;
    size_t descriptors_ = 0;
    size_t workers_ = 0;
    /** Guards what the log's readers, on any thread, are to do. */
    std::mutex mutex_;
    std::string awaited_;
    std::function<void()> action_;
};

/** Rows of which each has a phone of its own: their settings are the device's. */
class FreshPhone : public Phone, public testing::WithParamInterface<Row> {};
