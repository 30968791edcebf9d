#include "stop_watch.h"

#include "system_util.h"

namespace NIVUR {

StopWatch::StopWatch() : _startTime(SystemUtil::getCPUTime()), _count(0) {}

unsigned int StopWatch::record() {
    ++_count;
    return static_cast<unsigned int>(SystemUtil::getCPUTime() - _startTime);
}

}  // namespace NIVUR
