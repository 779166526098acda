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

/** Makes every sleep call `hook` first, so that a test can change something during a wait. */
void onSleep(std::function<void()> hook);

/** Makes every call of time() let `seconds` pass, for callers that wait by reading the time. */
void setTick(unsigned seconds);

/** Lets time() advance with real time too, for a program that waits for events from outside. */
void followRealTime();

/** Makes a sleep take 1 / `pace` of its seconds in real time; 0: no real time at all. */
void setPace(unsigned pace);

}  // namespace sim
