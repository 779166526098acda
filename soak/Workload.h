#pragma once

#include <thread>

#include "sim/Simulator.h"
#include "soak/Record.h"
#include "soak/Schedule.h"
#include "soak/Service.h"

namespace soak {

/** Runs the tasks of a schedule through a service while its events happen. */
class Workload {
  public:
    Workload(sim::Simulator& phone, const Schedule& schedule, Record& record, bool print);

    /**
     * Runs the tasks, has the second thread come to its end and takes back what is wrong with the
     * device. The service then rests.
     *
     * @throws Violation if a task ends in a way that none may end in.
     */
    void run();

    Service& service() { return service_; }

  private:
    void perform(const Task& task);
    void call(const Task& task);
    void trigger(const std::string& request);
    void backUp();
    void query();
    void keepCompany();

    void slept();
    void lineLogged();
    /** Has the events happen whose moment is now. */
    void reach(Moment::Mark mark, int number);
    void happen(size_t event);
    void tell(const std::string& command);
    void sendDrop(bool is_awaited);

    sim::Simulator& phone_;
    const Schedule& schedule_;
    Record& record_;
    const std::thread::id caller_;
    int sleeps_ = 0;
    int lines_ = 0;
    Service service_;
};

/**
 * Notes which faults the service came across, then takes back all that is wrong with the device.
 * What it is doing goes on; only what the service cannot end is waited for.
 *
 * @throws Violation if an error has escaped that none of the faults explains.
 */
void takeBack(sim::Simulator& phone, const Schedule& schedule, Record& record);

}  // namespace soak
