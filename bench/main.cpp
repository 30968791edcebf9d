#include <sys/resource.h>

#include <QCoreApplication>
#include <thread>

#include "bench.h"

namespace {

// A thousand sockets and their peers need more descriptors than many systems initially grant.
void raiseDescriptorLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    // The standard library counts references and locks without atomic operations until the process
    // has started a second thread.
    std::thread([] {}).join();
    raiseDescriptorLimit();
    const QCoreApplication application(argc, argv);
    bench::addRunLoop();
    bench::addTimers();
    bench::addWatches();
    bench::addRuntime();
    bench::addPool();
    bench::addRing();
    bench::addDictionary();
    bench::addJson();
    bench::addEvents();
    bench::addSockets();
    bench::addInterfaces();
    bench::addText();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
}
