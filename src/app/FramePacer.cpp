#include "FramePacer.h"

#include <QThread>

#include <chrono>

FramePacer::FramePacer()
    : now([] {
          return std::int64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                  std::chrono::steady_clock::now().time_since_epoch())
                                  .count());
      }),
      sleep([](unsigned long milliseconds) { QThread::msleep(milliseconds); })
{
}

void FramePacer::start()
{
    lastFrameTime = now();
}

unsigned long FramePacer::pace()
{
    // Whole milliseconds, truncated, as the sleep takes them.
    const std::int64_t elapsed = (now() - lastFrameTime) / 1000000;
    const double wait = kFrameMilliseconds - double(elapsed);
    const unsigned long milliseconds = wait > 0.0 ? static_cast<unsigned long>(wait) : 0;
    sleep(milliseconds);
    // After the sleep, so that stepping and drawing count into the next frame.
    lastFrameTime = now();
    return milliseconds;
}
