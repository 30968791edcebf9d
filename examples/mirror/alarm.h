#ifndef MIRROR_ALARM_H
#define MIRROR_ALARM_H

#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <functional>

namespace mirror {

/// A timer on a loop with the resolution of microseconds, which a loop's own timers do not have: a
/// descriptor of the system, watched. One is set again and again for all that waits. On the loop.
class Alarm : public NIVUR::NoCopyable {
  public:
    Alarm(NIVUR::RunLoop& loop, std::function<void()> onDue);
    ~Alarm();

    /// Calls `onDue` once, at that time of SystemUtil's clock, in place of an earlier setting.
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
