#ifndef NIVUR_TESTS_SUPPORT_FAULT_INJECTOR_H
#define NIVUR_TESTS_SUPPORT_FAULT_INJECTOR_H

#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

/// Makes calls of the platform fail. A program includes this in one source only: it defines
/// functions that the program calls instead of the platform's. Its state is global, because those
/// functions have no argument that could lead to it.
namespace faults {

inline std::atomic<long> livingBlocks{0};     ///< allocated, not freed; 0 under a sanitizer
inline std::atomic<long> wallClockOffset{0};  ///< in seconds, for this program only

/// While it exists, makes `count` calls after the first `skipped` fail with `error`, or return 0 if
/// `error` is 0; of one function, by this thread or by all threads. Only one object of each kind
/// may exist.
template <int kKind>
class Fault {
  public:
    Fault(const char* name, int error, int skipped = 0, int count = 1, bool everywhere = false) {
        _thread = everywhere ? 0 : pthread_self();
        _name = name;
        _error = error;
        _skipped = skipped;
        _left = count;
    }
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    ~Fault() { _left = 0; }

    static inline std::atomic<int> injected{0};  ///< the number of calls that have failed

    static int error() { return _error; }
    static bool isDue(const char* name) {
        if (_left <= 0 || std::strcmp(name, _name) != 0) return false;
        if (_thread != 0 && _thread != pthread_self()) return false;
        const bool due = _skipped-- <= 0 && _left-- > 0;
        injected += due ? 1 : 0;
        return due;
    }

  private:
    static inline std::atomic<const char*> _name{nullptr};
    static inline std::atomic<pthread_t> _thread{0};
    static inline std::atomic<int> _error{0}, _skipped{0}, _left{0};
};

using Call = Fault<0>;
using Memory = Fault<1>;  ///< its function is named "memory"

/// Calls the function that a definition of this program hides: a sanitizer's, or the C library's.
template <auto kFunction, class... Args>
auto callHidden(const char* name, Args... args) {
    static const auto hidden = reinterpret_cast<decltype(kFunction)>(dlsym(RTLD_NEXT, name));
    return hidden(args...);
}

/// Calls the hidden function, or fails in its place.
template <auto kFunction, class... Args>
auto pass(const char* name, Args... args) {
    using Result = decltype(kFunction(args...));
    if (!Call::isDue(name)) return callHidden<kFunction>(name, args...);
    if (std::strncmp(name, "pthread_", 8) != 0) errno = Call::error();
    if constexpr (std::is_pointer_v<Result>) {
        return Result{nullptr};
    } else {
        if (std::strncmp(name, "pthread_", 8) == 0) return Result{Call::error()};
        return Result{errno == 0 ? 0 : -1};
    }
}

template <auto kFunction, class... Args>
void* newBlock(const char* name, Args... args) {
    void* const block = Memory::isDue("memory") ? nullptr : callHidden<kFunction>(name, args...);
    livingBlocks += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace faults

extern "C" {

int pthread_join(pthread_t thread, void** result) {
    if (faults::Call::isDue("pthread_join")) return faults::Call::error();
    return faults::callHidden<&pthread_join>("pthread_join", thread, result);
}
int nanosleep(const timespec* request, timespec* remainder) {
    *remainder = *request;
    return faults::pass<&nanosleep>("nanosleep", request, remainder);
}
int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int result = faults::pass<&clock_gettime>("clock_gettime", clock, now);
    now->tv_sec += clock == CLOCK_REALTIME ? faults::wallClockOffset.load() : 0;
    return result;
}
int gettimeofday(timeval* now, void* zone) noexcept {
    const int result = faults::callHidden<&gettimeofday>("gettimeofday", now, zone);
    now->tv_sec += faults::wallClockOffset;
    return result;
}
int ioctl(int socket, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return faults::pass<&ioctl>("ioctl", socket, request, argument);
}

int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return faults::pass<&fcntl>("fcntl", descriptor, command, argument);
}

// Defines a function that can be made to fail; `mark` is the text after its parameters.
#define PASS(result, name, mark, parameters, ...)         \
    result name parameters mark {                         \
        return faults::pass<&::name>(#name, __VA_ARGS__); \
    }

using Lock = pthread_mutex_t;
using Attributes = pthread_attr_t;
PASS(int, pthread_create, noexcept,
     (pthread_t * t, const Attributes* a, void* (*r)(void*), void* p), t, a, r, p)
PASS(int, pthread_mutex_lock, noexcept, (Lock * m), m)
PASS(int, sem_wait, , (sem_t * s), s)
PASS(int, sem_clockwait, , (sem_t * s, clockid_t i, const timespec* t), s, i, t)
PASS(int, sem_post, noexcept, (sem_t * s), s)
PASS(int, epoll_create1, noexcept, (int f), f)
PASS(int, eventfd, noexcept, (unsigned int v, int f), v, f)
PASS(int, epoll_ctl, noexcept, (int p, int o, int d, epoll_event* e), p, o, d, e)
PASS(int, epoll_wait, , (int p, epoll_event* e, int n, int t), p, e, n, t)
PASS(ssize_t, read, , (int d, void* b, size_t n), d, b, n)
PASS(int, setpriority, noexcept, (__priority_which_t w, id_t i, int p), w, i, p)
PASS(int, socket, noexcept, (int f, int t, int p), f, t, p)
PASS(int, bind, noexcept, (int s, const sockaddr* a, socklen_t n), s, a, n)
PASS(int, getsockname, noexcept, (int s, sockaddr* a, socklen_t* n), s, a, n)
PASS(int, setsockopt, noexcept, (int s, int l, int o, const void* v, socklen_t n), s, l, o, v, n)
PASS(int, accept4, , (int s, sockaddr* a, socklen_t* n, int f), s, a, n, f)
PASS(int, ppoll, , (pollfd * p, nfds_t n, const timespec* t, const sigset_t* m), p, n, t, m)
PASS(int, getsockopt, noexcept, (int s, int l, int o, void* v, socklen_t* n), s, l, o, v, n)
PASS(int, getpeername, noexcept, (int s, sockaddr* a, socklen_t* n), s, a, n)
PASS(int, connect, , (int s, const sockaddr* a, socklen_t n), s, a, n)
PASS(ssize_t, sendmsg, , (int s, const msghdr* m, int f), s, m, f)
PASS(ssize_t, send, , (int s, const void* d, size_t n, int f), s, d, n, f)
PASS(ssize_t, recv, , (int s, void* d, size_t n, int f), s, d, n, f)
PASS(ssize_t, recvfrom, , (int s, void* d, size_t n, int f, sockaddr* a, socklen_t* l), s, d, n, f,
     a, l)
PASS(char*, if_indextoname, noexcept, (unsigned int i, char* n), i, n)
#undef PASS

// A sanitizer allocates before this program could replace malloc(). There operator new fails
// instead, whose blocks the sanitizer then regards as malloc()'s. The sanitizer finds leaks itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const char* __asan_default_options() {
    return "alloc_dealloc_mismatch=0";
}
}  // extern "C"
void* operator new(size_t size) {
    if (faults::Memory::isDue("memory")) throw std::bad_alloc();
    return std::malloc(size);
}
void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return faults::Memory::isDue("memory") ? nullptr : std::malloc(size);
}
#else
void* malloc(size_t size) noexcept {
    return faults::newBlock<&malloc>("malloc", size);
}
void* calloc(size_t count, size_t size) noexcept {
    return faults::newBlock<&calloc>("calloc", count, size);
}
void free(void* block) noexcept {
    faults::livingBlocks -= block != nullptr ? 1 : 0;
    faults::callHidden<&free>("free", block);
}
}  // extern "C"
#endif

#endif
