#include "private/common/poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "private/common/descriptor.h"

namespace NIVUR::platform {

namespace {

epoll_event request(int descriptor, unsigned int readiness, uint32_t tag) {
    epoll_event event{};
    event.events = ((readiness & Poller::READABLE) != 0U ? EPOLLIN : 0U) |
                   ((readiness & Poller::WRITABLE) != 0U ? EPOLLOUT : 0U);
    event.data.u64 = static_cast<uint64_t>(tag) << 32 | static_cast<uint32_t>(descriptor);
    return event;
}

class EpollPoller : public Poller {
  public:
    EpollPoller()
        : _epoll(::epoll_create1(EPOLL_CLOEXEC)),
          _signals(_epoll.get() == -1 ? -1 : ::eventfd(0, EFD_CLOEXEC)) {}

    /// Returns false, with the reason in errno, if a descriptor could not be created.
    bool prepare() { return _signals.get() != -1 && add(_signals.get(), READABLE, 0); }

    bool add(int descriptor, unsigned int readiness, uint32_t tag) override {
        return control(EPOLL_CTL_ADD, descriptor, readiness, tag);
    }

    bool change(int descriptor, unsigned int readiness, uint32_t tag) override {
        return control(EPOLL_CTL_MOD, descriptor, readiness, tag) ||
               (errno == ENOENT && add(descriptor, readiness, tag));
    }

    void remove(int descriptor) override {
        epoll_event ignored{};
        ::epoll_ctl(_epoll.get(), EPOLL_CTL_DEL, descriptor, &ignored);
    }

    size_t wait(int timeoutMs) override {
        const int count =
            ::epoll_wait(_epoll.get(), _events.data(), static_cast<int>(_events.size()), timeoutMs);
        return count > 0 ? static_cast<size_t>(count) : 0;  // -1 if a signal handler has run
    }

    Event event(size_t index) const override {
        const epoll_event& event = _events[index];
        const uint32_t both = event.events & (EPOLLHUP | EPOLLERR);
        return {static_cast<int>(static_cast<uint32_t>(event.data.u64)),
                static_cast<uint32_t>(event.data.u64 >> 32),
                ((event.events & EPOLLIN) != 0U || both != 0U ? READABLE : 0U) |
                    ((event.events & EPOLLOUT) != 0U || both != 0U ? WRITABLE : 0U)};
    }

    void signal() override {
        const uint64_t one = 1;
        repeat([&] { return ::write(_signals.get(), &one, sizeof one); });
    }

    void takeSignal() override {
        uint64_t count = 0;
        repeat([&] { return ::read(_signals.get(), &count, sizeof count); });
    }

  private:
    /// Repeats a call while signal handlers interrupt it.
    template <class Call>
    static void repeat(Call call) {
        while (call() == -1 && errno == EINTR) {
        }
    }

    bool control(int operation, int descriptor, unsigned int readiness, uint32_t tag) {
        epoll_event event = request(descriptor, readiness, tag);
        return ::epoll_ctl(_epoll.get(), operation, descriptor, &event) == 0;
    }

    const Descriptor _epoll;
    const Descriptor _signals;
    std::array<epoll_event, kMostEvents> _events{};
};

}  // namespace

std::unique_ptr<Poller> Poller::create() {
    auto poller = std::make_unique<EpollPoller>();
    return poller->prepare() ? std::move(poller) : nullptr;
}

}  // namespace NIVUR::platform
