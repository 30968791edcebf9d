#include <signal.h>

#include <climits>
#include <functional>
#include <thread>

#include "support/fault_world.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

bool startThread() {
    Thread thread;
    Runnable* const task = makeRunnable([] { SystemUtil::sleep(20); });
    const bool started = thread.start(task, "named", Thread::THREAD_PRIORITY_LOW);
    thread.waitForStop();
    thread.waitForStop();  // joins if the first one failed to
    return started && !thread.isStarted();
}

/// An operation, and its results while a call in it fails and when it is repeated.
struct Row {
    const char* call;
    int error;
    std::function<long()> operation;
    long failed, whole;
    const char* line = "";  // N stands for a descriptor or port
    int skipped = 0;
    bool everywhere = false;
};

std::string withoutNumbers(std::string line) {
    for (const std::string name : {"socket=", "port=", "descriptor "}) {
        const size_t at = line.find(name) + name.size();
        if (at >= name.size() && at < line.size())
            line.replace(at, std::strspn(&line[at], "0123456789"), "N");
    }
    return line;
}

/// Returns the count of a result that is DONE, or the negative error number of one that is FAILED.
long figure(const IoResult& result) {
    EXPECT_EQ(result.status, result ? IoResult::DONE : IoResult::FAILED);
    return result ? static_cast<long>(result.count) : -result.error;
}

TEST(SystemCalls, MayFail) {
    World w;
    Mutex mutex;
    char data[8];
    unsigned int length = sizeof(data);
    const auto timed = [&] { return w.semaphore.wait(9); };
    const auto wait = [&] {  // after a refused wait, the next one finds a signal
        const int result = w.semaphore.wait();
        if (result != 0) w.semaphore.notify();
        return result;
    };
    const auto notify = [] { return Semaphore().notify(); };
    const auto create = [] { return UDPSocket().create(kLocal, 0); };
    const auto accept = [&] {
        ClientSocket other;
        EXPECT_TRUE(other.create(kLocal, 0) && other.connect(kLocal, w.listener.port()));
        return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr;
    };
    const auto receive = [&] {
        return w.accepted->send("x", 1, nullptr) && w.client.recv(data, length);
    };
    const auto sleep = [] {
        const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
        SystemUtil::sleep(20);
        return SystemUtil::getCPUTimeInMicroseconds() - begin >= 20000;
    };
    // The result says whether the lock is held, which the analysis cannot follow.
    const auto lock = [&]() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
        return mutex.lock() && mutex.unlock();
    };
    const auto copied = [&] {
        const ClientSocket copy(w.client);
        EXPECT_EQ(copy.remotePort(), copy.descriptor() == -1 ? 0 : w.listener.port());
        return copy.descriptor() != -1;
    };
    const auto post = [&] {  // the poster waits before the task runs
        w.loop.postItem(makeRunnable([&] { w.semaphore.wait(300); }), false, false);
        const int before = runs;
        w.loop.postItem(new Counted, false, true);
        const bool ran = runs > before;
        if (!ran) w.semaphore.notify();
        w.loop.postItem(makeRunnable([] {}), false, true);
        return ran;
    };
    const auto watch = [&] {
        RunLoop own("loop");
        const bool watched = own.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, new Counted) != 0;
        const int before = runs;
        EXPECT_TRUE(own.start());
        while (watched && runs == before)
            std::this_thread::yield();
        own.postItem(makeRunnable([] {}), false, true);
        return watched;
    };
    const auto connect = [&] { return figure(w.connectAndAccept()); };
    const auto exchange = [&] { return figure(w.exchange()); };
    const auto sendMany = [&] {  // the datagrams stay unread in `receiver`
        UDPSocket receiver;
        EXPECT_TRUE(receiver.create(kAnyPort));
        const std::string many(40007, 'x');
        return figure(w.udp.sendDatagrams(receiver.localAddress(), many.data(), many.size(), 400));
    };
    const auto finishFresh = [] {
        ClientSocket fresh;
        EXPECT_TRUE(fresh.create(kAnyPort));
        return figure(fresh.finishConnect());
    };
    const auto list = [&] { return figure(w.list()); };
    const long all = list();
    const long others = all - std::count_if(  // those not of the first interface
                                  w.addresses.begin(), w.addresses.end(), [](const auto& each) {
                                      return each.isLoopback() && !each.address.isIPv6();
                                  });
    const char* const noWatch = "5 cannot watch descriptor N: err=24";
    const char* const noThread = "5 creating thread failed: err=11";
    const char* const noClock = "5 cannot get CPU time: error=22";
    const Row rows[] = {
        {"pthread_create", EAGAIN, startThread, 0, 1, noThread},
        {"pthread_create", EAGAIN, startLoop, 0, 1, noThread},
        {"pthread_join", EDEADLK, startThread, 1, 1, "5 thread_join() failed: err=35"},
        {"setpriority", EACCES, startThread, 1, 1,
         "4 Change the thread priority failed: named, err=13", 0, true},
        {"pthread_mutex_lock", EINVAL, lock, 0, 1},
        {"sem_wait", EINVAL, wait, -1, 0},
        {"sem_wait", EINTR, startThread, 1, 1},
        {"sem_wait", EINVAL, startThread, 1, 1},
        {"sem_wait", EINVAL, post, 0, 1, "5 Semaphore wait error, run loop item may not run"},
        {"sem_clockwait", EINVAL, timed, -1, 1},
        {"sem_clockwait", EINTR, timed, 1, 1},
        {"sem_wait", EINVAL, startLoop, 1, 1, "", 0, true},
        {"epoll_create1", EMFILE, watch, 0, 1, noWatch},
        {"eventfd", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch, 1},
        {"epoll_wait", EINTR, watch, 1, 1, "", 0, true},
        {"read", EINTR, watch, 1, 1, "", 0, true},
        {"read", EAGAIN, watch, 1, 1, "", 0, true},
        {"sem_post", EOVERFLOW, notify, EOVERFLOW, 0},
        {"clock_gettime", EINVAL, [] { return SystemUtil::getCPUTime() > 0; }, 0, 1, noClock},
        {"clock_gettime", EINVAL, timed, 1, 1, noClock},
        {"nanosleep", EINTR, sleep, 1, 1},
        {"socket", EMFILE, create, 0, 1, "5 socket create failed, err=24"},
        {"bind", EACCES, create, 0, 1, "5 socket bind failed, err=13"},
        {"accept4", ECONNABORTED, accept, 0, 1,
         "5 accept() failed: socket=N, ip=127.0.0.1, port=N, err=103"},
        {"recv", ECONNRESET, receive, 0, 1, "2 recv data failed: socket=N, err=104"},
        {"fcntl", EMFILE, copied, 0, 1},
        {"getsockname", ENOBUFS, [&] { return w.udp.port() > 0; }, 0, 1},
        {"getsockname", ENOBUFS, [&] { return w.udp.address() == kLocal; }, 0, 1},
        {"ioctl", ENOTTY, [&] { return w.udp.setBlocking(true); }, -1, 0},
        {"setsockopt", ENOBUFS, [&] { return w.udp.setBufLength(5000); }, -1, 0, "", 1},
        {"ppoll", EINTR, [&] { return w.udp.select(0); }, -1, 1,
         "2 select breaks, socket=N, errno=4"},
        {"ppoll", ENOMEM, [&] { return Socket::waitMultipleSocket({&w.listener}, 0).size(); }, 0,
         1},
        {"socket", EMFILE, listInterfaces, -1, 1},
        {"socket", ENFILE, listInterfaces, 0, 1, "", 1},
        {"send", ENOBUFS, listInterfaces, -1, 1},
        {"recv", EINTR, listInterfaces, -1, 1},
        {"recv", 0, listInterfaces, -1, 1},
        {"if_indextoname", ENXIO, listInterfaces, 0, 1},
        {"ioctl", ENODEV, listInterfaces, 0, 1},
        {"socket", EMFILE, connect, -EMFILE, 0},
        {"setsockopt", ENOPROTOOPT, connect, -ENOPROTOOPT, 0},
        {"bind", EACCES, connect, -EACCES, 0},
        {"connect", EINTR, connect, 0, 0},
        {"connect", ENETUNREACH, connect, -ENETUNREACH, 0},
        {"accept4", EINTR, connect, 0, 0},
        {"accept4", EMFILE, connect, -EMFILE, 0},
        {"getsockopt", ENOBUFS, finishFresh, -ENOBUFS, -ENOTCONN},
        {"getpeername", ENOBUFS, [&] { return figure(w.client.finishConnect()); }, -ENOBUFS, 0},
        {"recvfrom", EINTR, exchange, 5, 5},
        {"getsockopt", ENOPROTOOPT, exchange, 5, 5},
        {"sendmsg", EINTR, exchange, 5, 5},
        {"sendmsg", EIO, exchange, 5, 5},
        {"sendmsg", EINVAL, exchange, 5, 5},
        {"sendmsg", EMSGSIZE, exchange, 5, 5},
        {"sendmsg", ENOBUFS, sendMany, 64L * 400, 40007, "", 1},
        {"sendmsg", ENOBUFS, exchange, -ENOBUFS, 5},
        {"socket", EMFILE, list, -EMFILE, all},
        {"socket", ENFILE, list, -ENFILE, all, "", 1},
        {"send", ENOBUFS, list, -ENOBUFS, all},
        {"recv", ENOBUFS, list, -ENOBUFS, all},
        {"if_indextoname", ENXIO, list, others, all},
        {"ioctl", ENODEV, list, others, all},
        {"ioctl", EPERM, list, -EPERM, all},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.call + (" " + std::to_string(&row - rows)));
        const ptrdiff_t descriptors = openDescriptors();
        const int objects = living;
        std::string lines;
        {
            LogCapture capture;
            const faults::Call fault(row.call, row.error, row.skipped, 1, row.everywhere);
            errno = EINTR;  // a stale value, which must be ignored
            EXPECT_EQ(row.operation(), row.failed);
            for (const std::string& line : capture.take())
                if (line != "2 thread loop break loop!") lines += line;
        }
        EXPECT_EQ(withoutNumbers(lines), row.line);
        EXPECT_EQ(row.operation(), row.whole);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(living, objects);
    }
    std::printf("%d calls failed\n", faults::Call::injected.load());
}

TEST(MonotonicClock, MayFailUnderALoopWithoutMakingItSpinOrHang) {
    RunLoop loop("loop");
    ASSERT_TRUE(loop.start());
    loop.addTimer(new Counted, 3600000, true);
    const int before = faults::Call::injected;
    {
        const faults::Call fault("clock_gettime", EINVAL, 0, INT_MAX, true);
        for (int posts = 0; posts < 5; ++posts) {
            SystemUtil::sleep(20);  // the time in which the loop's waits are counted
            loop.postItem(new Counted, false, true);
        }
    }
    EXPECT_LT(faults::Call::injected - before, 200);
    Semaphore rang;
    loop.addTimer(makeRunnable([&] { rang.notify(); }), 1, false);
    EXPECT_EQ(rang.wait(20000), 0);
}

TEST(WallClock, MayBeSetByAnHourUnderWaitsAndTimers) {
    uint64_t latest = 101;
    for (int attempt = 0; attempt < 5 && latest > 100; ++attempt) {  // the machine may be slow
        World w;
        latest = 0;
        uint64_t due = SystemUtil::getCPUTime();
        const auto tick = [&] {
            const uint64_t now = SystemUtil::getCPUTime();
            EXPECT_GE(now, due += 20);
            latest = std::max(latest, now - due);
            faults::wallClockOffset = faults::wallClockOffset > 0 ? -3600 : 3600;
        };
        w.loop.addTimer(makeRunnable(tick), 20, true);
        for (const unsigned int timeout : {1U, 30U, 250U}) {
            const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
            EXPECT_EQ(w.semaphore.wait(timeout), 1);
            EXPECT_GE(SystemUtil::getCPUTimeInMicroseconds() - begin, timeout * 1000);
        }
        w.loop.stop();
    }
    EXPECT_LE(latest, 100U);
}

std::atomic<int> handled{0};

// Each wait must end after 60 ms and 20 signals. Only calls that the platform interrupts end
// earlier: those of sockets, unless the handler restarts them.
TEST(Signals, ShortenNoWaitOfTheLibraryItself) {
    World w;
    char data[8];
    unsigned int length = sizeof(data);
    UDPSocket silent;
    ClientSocket late, waiting[3];
    ASSERT_TRUE(silent.create(kLocal, 0) && late.create(kLocal, 0));
    const auto nothing = [] {};
    const auto sleep = [] { return SystemUtil::sleep(60), 0; };
    const auto accept = [&] {
        return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr;
    };
    const std::tuple<std::function<void()>, std::function<long()>, long, long> rows[] = {
        {nothing, sleep, 0, 0},
        {nothing, [&] { return w.semaphore.wait(60); }, 1, 1},
        {[&] { w.semaphore.notify(); }, [&] { return w.semaphore.wait(); }, 0, 0},
        {nothing, [&] { return w.loop.postItem(makeRunnable(sleep), true, true), 0; }, 0, 0},
        {[&] { w.accepted->send("x", 1, nullptr); }, [&] { return w.client.recv(data, length); }, 0,
         1},
        {[&] { late.connect(kLocal, w.listener.port()); }, accept, 0, 1},
        {nothing, [&] { return silent.select(); }, -1, -1},
        {nothing, [&] { return silent.select(9999); }, -1, -1},
        {nothing, [&] { return Socket::waitMultipleSocket({&silent}, 9999).size(); }, 0, 0},
    };
    for (const int flags : {0, SA_RESTART}) {
        struct sigaction action {};
        action.sa_handler = [](int) { ++handled; };
        action.sa_flags = flags;
        ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
        for (const auto& [later, operation, interrupted, restarted] : rows) {
            SCOPED_TRACE(&later - &std::get<0>(rows[0]));
            const pthread_t waiter = pthread_self();
            const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
            std::atomic<bool> over{false};
            handled = 0;
            std::thread pelting([&, wanted = &later]() mutable {
                while (!over) {
                    pthread_kill(waiter, SIGUSR1);
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    const uint64_t passed = SystemUtil::getCPUTimeInMicroseconds() - begin;
                    const bool pelted =
                        handled >= 20 || passed >= 1000000;  // a sanitizer may delay them
                    if (wanted != nullptr && pelted && passed >= 60000)
                        (*std::exchange(wanted, nullptr))();
                }
            });
            const long result = operation();
            const uint64_t passed = SystemUtil::getCPUTimeInMicroseconds() - begin;
            over = true;
            pelting.join();
            EXPECT_EQ(result, flags == 0 ? interrupted : restarted);
            EXPECT_GE(passed, &operation <= &std::get<1>(rows[3]) ? 59000U : 0U);
            EXPECT_LT(passed, 5000000U);
        }
    }
}

}  // namespace
}  // namespace NIVUR
