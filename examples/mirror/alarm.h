#ifndef MIRROR_ALARM_H
#define MIRROR_ALARM_H

#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <functional>

namespace mirror {

/// A one-shot timer with microsecond resolution, which a loop's own timers do not have: the loop
/// watches a timerfd. It can be set any number of times. Used on the loop's thread.
class Alarm : public NIVUR::NoCopyable {
  public:
    Alarm(NIVUR::RunLoop& loop, std::function<void()> onDue);
    ~Alarm();

    /// Calls `onDue` once, at that time of SystemUtil's clock. Replaces an earlier setting.
    void set(uint64_t dueUs);
    void cancel();

  private:
    void ring();

    NIVUR::RunLoop& _loop;
    const std::function<void()> _onDue;
    const int _descriptor;
    long _watch = 0;
    uint64_t _dueUs = 0;  // 0: not set
};

}  // namespace mirror

#endif
