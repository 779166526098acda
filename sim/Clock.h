#pragma once

#include <functional>

namespace sim {

/*
 * The virtual clock. A program that links this has its own sleep() and time(): while a simulated
 * device is there, a sleep takes no time but lets that time pass on the device, and time() tells
 * the device's time. Without one they are the real ones.
 */

/** Starts the virtual clock; `let_pass` is told of every sleep before it returns. */
void startClock(std::function<void(unsigned seconds)> let_pass);

/** Has every sleep call `hook` first: the moment for something to happen in a wait. */
void onSleep(std::function<void()> hook);

/** Has every call of time() let `seconds` pass, for those who wait by looking at the time. */
void setTick(unsigned seconds);

/** Lets time() go on with the real time too, for those who wait for what comes from outside. */
void followRealTime();

/** Has a sleep of `seconds` take 1 / `pace` of them in reality; 0: no time at all. */
void setPace(unsigned pace);

}  // namespace sim
