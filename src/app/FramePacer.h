#pragma once

#include <cstdint>
#include <functional>

// Holds the simulation's playback to 30 frames a second by sleeping on the
// GUI thread: a frame that took less than its share of a second sleeps the
// rest, a late one none, and a late frame is never followed by a short one.
// The clock and the sleep are fields, so that tests can run it on a clock of
// their own.
class FramePacer {
public:
    static constexpr double kFrameMilliseconds = 1000.0 / 30.0;

    // Nanoseconds of a monotonic clock.
    std::function<std::int64_t()> now;
    std::function<void(unsigned long milliseconds)> sleep;

    FramePacer();

    // The clock starts: the first frame counts from here.
    void start();
    // Sleeps what is left of the frame since the last one and marks the frame's
    // start; returns the milliseconds slept.
    unsigned long pace();

    // Nanoseconds of the clock at the start of the current frame.
    std::int64_t lastFrameTime = 0;
};
