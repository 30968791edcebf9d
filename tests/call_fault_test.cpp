#include <signal.h>

#include <climits>
#include <functional>
#include <thread>

#include "support/fault_world.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

/// An operation, and its results while a call in it fails and when it is repeated.
struct Row {
    const char* call;
    int error;
    std::function<long(World&)> operation;
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

/// Runs the operation while its call fails, and returns its log lines.
std::string expectFailure(World& w, const Row& row) {
    LogCapture capture;
    const faults::Call fault(row.call, row.error, row.skipped, 1, row.everywhere);
    errno = EINTR;  // a stale value, which must be ignored
    EXPECT_EQ(row.operation(w), row.failed);
    std::string lines;
    for (const std::string& line : capture.take())
        if (line != "2 thread loop break loop!") lines += line;
    return lines;
}

void expectFailures(World& w, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.call + (" in row " + std::to_string(&row - rows.data())));
        const ptrdiff_t descriptors = openDescriptors();
        const int objects = w.counts.living;
        EXPECT_EQ(withoutNumbers(expectFailure(w, row)), row.line);
        EXPECT_EQ(row.operation(w), row.whole);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(w.counts.living, objects);
    }
}

class SystemCalls : public testing::Test {
  protected:
    Counts counts;
    World world{counts};
};

const char* const kNoThread = "5 creating thread failed: err=11";
const char* const kNoClock = "5 cannot get CPU time: error=22";

bool startThread(World& /*w*/) {
    Thread thread;
    Runnable* const task = makeRunnable([] { SystemUtil::sleep(20); });
    const bool started = thread.start(task, "named", Thread::THREAD_PRIORITY_LOW);
    thread.waitForStop();
    thread.waitForStop();  // joins if the first one failed to
    return started && !thread.isStarted();
}

// The result says whether the lock is held, which the analysis cannot follow.
bool lock(World& /*w*/) NIVUR_NO_THREAD_SAFETY_ANALYSIS {
    Mutex mutex;
    return mutex.lock() && mutex.unlock();
}

int waitTimed(World& w) {
    return w.semaphore.wait(9);
}

/// After a refused wait, the next one finds a signal.
int wait(World& w) {
    const int result = w.semaphore.wait();
    if (result != 0) w.semaphore.notify();
    return result;
}

bool sleep(World& /*w*/) {
    const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
    SystemUtil::sleep(20);
    return SystemUtil::getCPUTimeInMicroseconds() - begin >= 20000;
}

TEST_F(SystemCalls, OfThreadsLocksAndClocksMayFail) {
    const std::vector<Row> rows = {
        {"pthread_create", EAGAIN, startThread, 0, 1, kNoThread},
        {"pthread_join", EDEADLK, startThread, 1, 1, "5 thread_join() failed: err=35"},
        {"setpriority", EACCES, startThread, 1, 1,
         "4 Change the thread priority failed: named, err=13", 0, true},
        {"pthread_mutex_lock", EINVAL, lock, 0, 1},
        {"sem_wait", EINVAL, wait, -1, 0},
        {"sem_wait", EINTR, startThread, 1, 1},
        {"sem_wait", EINVAL, startThread, 1, 1},
        {"sem_clockwait", EINVAL, waitTimed, -1, 1},
        {"sem_clockwait", EINTR, waitTimed, 1, 1},
        {"sem_post", EOVERFLOW, [](World&) { return Semaphore().notify(); }, EOVERFLOW, 0},
        {"clock_gettime", EINVAL, [](World&) { return SystemUtil::getCPUTime() > 0; }, 0, 1,
         kNoClock},
        {"clock_gettime", EINVAL, waitTimed, 1, 1, kNoClock},
        {"nanosleep", EINTR, sleep, 1, 1},
    };
    expectFailures(world, rows);
}

/// Posts a task whose poster waits before the task runs.
bool post(World& w) {
    w.loop.postItem(makeRunnable([&] { w.semaphore.wait(300); }), false, false);
    const int before = w.counts.runs;
    w.loop.postItem(new Counted(w.counts), false, true);
    const bool ran = w.counts.runs > before;
    if (!ran) w.semaphore.notify();
    w.loop.postItem(makeRunnable([] {}), false, true);
    return ran;
}

bool watch(World& w) {
    RunLoop own("loop");
    const long id = own.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, new Counted(w.counts));
    const int before = w.counts.runs;
    EXPECT_TRUE(own.start());
    while (id != 0 && w.counts.runs == before)
        std::this_thread::yield();
    own.postItem(makeRunnable([] {}), false, true);
    return id != 0;
}

TEST_F(SystemCalls, OfLoopsMayFail) {
    const char* const noWatch = "5 cannot watch descriptor N: err=24";
    const std::vector<Row> rows = {
        {"pthread_create", EAGAIN, &World::startLoop, 0, 1, kNoThread},
        {"sem_wait", EINVAL, &World::startLoop, 1, 1, "", 0, true},
        {"sem_wait", EINVAL, post, 0, 1, "5 Semaphore wait error, run loop item may not run"},
        {"epoll_create1", EMFILE, watch, 0, 1, noWatch},
        {"eventfd", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch, 1},
        {"epoll_wait", EINTR, watch, 1, 1, "", 0, true},
        {"read", EINTR, watch, 1, 1, "", 0, true},
        {"read", EAGAIN, watch, 1, 1, "", 0, true},
    };
    expectFailures(world, rows);
}

bool create(World& /*w*/) {
    return UDPSocket().create(kLocal, 0);
}

bool accept(World& w) {
    ClientSocket other;
    EXPECT_TRUE(other.create(kLocal, 0));
    EXPECT_TRUE(other.connect(kLocal, w.listener.port()));
    return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr;
}

bool receive(World& w) {
    char data[8];
    unsigned int length = sizeof(data);
    EXPECT_TRUE(w.accepted->send("x", 1, nullptr));
    return w.client.recv(data, length);
}

bool copyClient(World& w) {
    const ClientSocket copy(w.client);
    EXPECT_EQ(copy.remotePort(), copy.descriptor() == -1 ? 0 : w.listener.port());
    return copy.descriptor() != -1;
}

TEST_F(SystemCalls, OfSocketsThatLogMayFail) {
    const std::vector<Row> rows = {
        {"socket", EMFILE, create, 0, 1, "5 socket create failed, err=24"},
        {"bind", EACCES, create, 0, 1, "5 socket bind failed, err=13"},
        {"accept4", ECONNABORTED, accept, 0, 1,
         "5 accept() failed: socket=N, ip=127.0.0.1, port=N, err=103"},
        {"recv", ECONNRESET, receive, 0, 1, "2 recv data failed: socket=N, err=104"},
        {"fcntl", EMFILE, copyClient, 0, 1},
        {"getsockname", ENOBUFS, [](World& w) { return w.udp.port() > 0; }, 0, 1},
        {"getsockname", ENOBUFS, [](World& w) { return w.udp.address() == kLocal; }, 0, 1},
        {"ioctl", ENOTTY, [](World& w) { return w.udp.setBlocking(true); }, -1, 0},
        {"setsockopt", ENOBUFS, [](World& w) { return w.udp.setBufLength(5000); }, -1, 0, "", 1},
        {"ppoll", EINTR, [](World& w) { return w.udp.select(0); }, -1, 1,
         "2 select breaks, socket=N, errno=4"},
        {"ppoll", ENOMEM,
         [](World& w) { return Socket::waitMultipleSocket({&w.listener}, 0).size(); }, 0, 1},
    };
    expectFailures(world, rows);
}

/// Returns the count of a result that is DONE, or the negative error number of one that is FAILED.
long figure(const IoResult& result) {
    EXPECT_EQ(result.status, result ? IoResult::DONE : IoResult::FAILED);
    return result ? static_cast<long>(result.count) : -result.error;
}

long connect(World& w) {
    return figure(w.connectAndAccept());
}

long exchange(World& w) {
    return figure(w.exchange());
}

/// Sends datagrams that stay unread.
long sendMany(World& w) {
    UDPSocket receiver;
    EXPECT_TRUE(receiver.create(kAnyPort));
    const std::string many(40007, 'x');
    return figure(w.udp.sendDatagrams(receiver.localAddress(), many.data(), many.size(), 400));
}

long finishFresh(World& /*w*/) {
    ClientSocket fresh;
    EXPECT_TRUE(fresh.create(kAnyPort));
    return figure(fresh.finishConnect());
}

TEST_F(SystemCalls, OfSocketsWithResultsMayFail) {
    const std::vector<Row> rows = {
        {"socket", EMFILE, connect, -EMFILE, 0},
        {"setsockopt", ENOPROTOOPT, connect, -ENOPROTOOPT, 0},
        {"bind", EACCES, connect, -EACCES, 0},
        {"connect", EINTR, connect, 0, 0},
        {"connect", ENETUNREACH, connect, -ENETUNREACH, 0},
        {"accept4", EINTR, connect, 0, 0},
        {"accept4", EMFILE, connect, -EMFILE, 0},
        {"getsockopt", ENOBUFS, finishFresh, -ENOBUFS, -ENOTCONN},
        {"getpeername", ENOBUFS, [](World& w) { return figure(w.client.finishConnect()); },
         -ENOBUFS, 0},
        {"recvfrom", EINTR, exchange, 5, 5},
        {"getsockopt", ENOPROTOOPT, exchange, 5, 5},
        {"sendmsg", EINTR, exchange, 5, 5},
        {"sendmsg", EIO, exchange, 5, 5},
        {"sendmsg", EINVAL, exchange, 5, 5},
        {"sendmsg", EMSGSIZE, exchange, 5, 5},
        {"sendmsg", ENOBUFS, sendMany, 64L * 400, 40007, "", 1},
        {"sendmsg", ENOBUFS, exchange, -ENOBUFS, 5},
    };
    expectFailures(world, rows);
}

int listPlatforms(World& /*w*/) {
    return listInterfaces();
}

long list(World& w) {
    return figure(w.list());
}

TEST_F(SystemCalls, OfListsOfInterfacesMayFail) {
    const long all = list(world);
    const auto isOfFirst = [](const InterfaceAddress& each) {
        return each.isLoopback() && !each.address.isIPv6();
    };
    const std::vector<InterfaceAddress>& listed = world.addresses;
    const long others = all - std::count_if(listed.begin(), listed.end(), isOfFirst);
    const std::vector<Row> rows = {
        {"socket", EMFILE, listPlatforms, -1, 1},
        {"socket", ENFILE, listPlatforms, 0, 1, "", 1},
        {"send", ENOBUFS, listPlatforms, -1, 1},
        {"recv", EINTR, listPlatforms, -1, 1},
        {"recv", 0, listPlatforms, -1, 1},
        {"if_indextoname", ENXIO, listPlatforms, 0, 1},
        {"ioctl", ENODEV, listPlatforms, 0, 1},
        {"socket", EMFILE, list, -EMFILE, all},
        {"socket", ENFILE, list, -ENFILE, all, "", 1},
        {"send", ENOBUFS, list, -ENOBUFS, all},
        {"recv", ENOBUFS, list, -ENOBUFS, all},
        {"if_indextoname", ENXIO, list, others, all},
        {"ioctl", ENODEV, list, others, all},
        {"ioctl", EPERM, list, -EPERM, all},
    };
    expectFailures(world, rows);
}

TEST(MonotonicClock, MayFailUnderALoopWithoutMakingItSpinOrHang) {
    Counts counts;
    RunLoop loop("loop");
    ASSERT_TRUE(loop.start());
    loop.addTimer(new Counted(counts), 3600000, true);
    const int before = faults::Call::injected;
    {
        const faults::Call fault("clock_gettime", EINVAL, 0, INT_MAX, true);
        for (int posts = 0; posts < 5; ++posts) {
            SystemUtil::sleep(20);  // the time in which the loop's waits are counted
            loop.postItem(new Counted(counts), false, true);
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
        Counts counts;
        World w(counts);
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

std::atomic<int> handled{0};  // written by a signal handler, which has no argument to pass state

/// Sends the calling thread a signal every millisecond while it exists. After 60 ms and 20 signals
/// it calls `later`, on a thread of its own.
class Pelting {
  public:
    explicit Pelting(const std::function<void()>& later) : _later(later) {
        handled = 0;
        _thread = std::thread([this] { pelt(); });
    }
    Pelting(const Pelting&) = delete;
    Pelting& operator=(const Pelting&) = delete;
    ~Pelting() {
        _over = true;
        _thread.join();
    }
    uint64_t passed() const { return SystemUtil::getCPUTimeInMicroseconds() - _begin; }

  private:
    void pelt() {
        for (bool called = false; !_over;) {
            pthread_kill(_waiter, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const bool pelted = handled >= 20 || passed() >= 1000000;  // a sanitizer may delay them
            if (!called && pelted && passed() >= 60000) {
                called = true;
                _later();
            }
        }
    }

    const std::function<void()>& _later;
    const pthread_t _waiter = pthread_self();
    const uint64_t _begin = SystemUtil::getCPUTimeInMicroseconds();
    std::atomic<bool> _over{false};
    std::thread _thread;
};

// Each wait must end after 60 ms and 20 signals. Only calls that the platform interrupts end
// earlier: those of sockets, unless the handler restarts them.
TEST(Signals, ShortenNoWaitOfTheLibraryItself) {
    Counts counts;
    World w(counts);
    UDPSocket silent;
    ClientSocket late;
    ASSERT_TRUE(silent.create(kLocal, 0));
    ASSERT_TRUE(late.create(kLocal, 0));
    const auto nothing = [] {};
    const auto sleepLong = [] { return SystemUtil::sleep(60), 0; };
    const auto acceptLate = [&] {
        return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr;
    };
    const auto receiveLate = [&] {
        char data[8];
        unsigned int length = sizeof(data);
        return w.client.recv(data, length);
    };
    const struct {
        std::function<void()> later;
        std::function<long()> operation;
        long interrupted, restarted;
        uint64_t leastUs;
    } rows[] = {
        {nothing, sleepLong, 0, 0, 59000},
        {nothing, [&] { return w.semaphore.wait(60); }, 1, 1, 59000},
        {[&] { w.semaphore.notify(); }, [&] { return w.semaphore.wait(); }, 0, 0, 59000},
        {nothing, [&] { return w.loop.postItem(makeRunnable(sleepLong), true, true), 0; }, 0, 0,
         59000},
        {[&] { w.accepted->send("x", 1, nullptr); }, receiveLate, 0, 1, 0},
        {[&] { late.connect(kLocal, w.listener.port()); }, acceptLate, 0, 1, 0},
        {nothing, [&] { return silent.select(); }, -1, -1, 0},
        {nothing, [&] { return silent.select(9999); }, -1, -1, 0},
        {nothing, [&] { return Socket::waitMultipleSocket({&silent}, 9999).size(); }, 0, 0, 0},
    };
    for (const int flags : {0, SA_RESTART}) {
        struct sigaction action {};
        action.sa_handler = [](int) { ++handled; };
        action.sa_flags = flags;
        ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
        for (const auto& row : rows) {
            SCOPED_TRACE("row " + std::to_string(&row - rows));
            const Pelting pelting(row.later);
            EXPECT_EQ(row.operation(), flags == 0 ? row.interrupted : row.restarted);
            EXPECT_GE(pelting.passed(), row.leastUs);
            EXPECT_LT(pelting.passed(), 5000000U);
        }
    }
}

}  // namespace
}  // namespace NIVUR
