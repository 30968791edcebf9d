#include "alarm.h"

#include <nivur/system_util.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

using NIVUR::makeRunnable;

namespace mirror {

Alarm::Alarm(NIVUR::RunLoop& loop, std::function<void()> onDue)
    : _loop(loop),
      _onDue(std::move(onDue)),
      _descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (_descriptor != -1) {
        _watch = _loop.addWatch(_descriptor, NIVUR::RunLoop::READABLE,
                                makeRunnable([this] { ring(); }, this));
    }
}

Alarm::~Alarm() {
    _loop.removeWatch(_watch);
    if (_descriptor != -1) {
        ::close(_descriptor);
    }
}

void Alarm::set(uint64_t dueUs) {
    if (dueUs == _dueUs) {
        return;
    }
    _dueUs = dueUs;
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(dueUs / 1'000'000);
    when.it_value.tv_nsec = static_cast<long>(dueUs % 1'000'000 * 1000);
    ::timerfd_settime(_descriptor, TFD_TIMER_ABSTIME, &when, nullptr);
}

void Alarm::cancel() {
    set(0);  // which disarms it
}

void Alarm::ring() {
    uint64_t count = 0;
    if (::read(_descriptor, &count, sizeof(count)) > 0 && std::exchange(_dueUs, 0) != 0) {
        _onDue();
    }
}

}  // namespace mirror
