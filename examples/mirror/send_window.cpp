#include "send_window.h"

#include <utility>

using NIVUR::Buffer;
using NIVUR::SharedPtr;

namespace mirror {

void SendWindow::add(SharedPtr<Buffer> datagram, uint64_t nowUs) {
    _entries.push_back({std::move(datagram), nowUs});
}

const Buffer* SendWindow::find(uint64_t index) const {
    return index >= _base && index < next()
               ? _entries[static_cast<size_t>(index - _base)].datagram.get()
               : nullptr;
}

bool SendWindow::confirm(uint64_t base, uint64_t newest, uint64_t nowUs) {
    if (base < _base || base > newest || newest < _newest || newest > next()) {
        return false;
    }
    for (; _base < base; ++_base) {
        _latencies.add(nowUs - _entries.front().sentUs);
        _entries.pop_front();
    }
    _newest = newest;
    return true;
}

}  // namespace mirror
