// A TCP connection on a run loop: it connects without waiting, receives until it would block, sends
// the rest when the socket is writable, and may be closed on any thread.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>
#include <utility>

using NIVUR::IoResult;
using NIVUR::RunLoop;
using NIVUR::SocketAddress;

class Connection {
  public:
    Connection(RunLoop& loop, const SocketAddress& peer) : _loop(loop) {
        IoResult result = _socket.create(SocketAddress(peer.isIPv6() ? "::" : "0.0.0.0", 0));
        if (result && _socket.setBlocking(false) == 0) {
            result = _socket.connect(peer);  // usually in progress, see finishConnect()
        }
        const bool failed = result.status == IoResult::FAILED;
        // Last: the loop may run the task at once.
        post([this, failed, result] { failed ? endUnlessReady(result) : watchWritable(true); });
    }

    // Order: first the watches and tasks, none of which runs after this call, on any thread; then
    // the members, and with them the descriptor.
    ~Connection() { _loop.cancelTasksForObject(this); }

    // May be called on any thread.
    void send(const std::string& data) {
        post([this, data] {
            _unsent += data;
            watchWritable(!_over);
        });
    }

    // Waits for the end of the connection and returns what was received.
    const std::string& waitForEnd() {
        _ended.wait();
        return _received;
    }

  private:
    // Everything below runs on the loop's thread only, and needs no lock. The destructor cancels it
    // by the object, `this`.
    template <class Task>
    void post(Task task) {
        _loop.postItem(NIVUR::makeRunnable(task, this), false, false);
    }

    long watch(RunLoop::Readiness readiness, void (Connection::*task)()) {
        return _loop.addWatch(_socket.descriptor(), readiness,
                              NIVUR::makeRunnable([this, task] { (this->*task)(); }, this));
    }

    // A socket is nearly always writable: it is watched only while there is something to send.
    void watchWritable(bool wanted) {
        if (wanted && _writable == 0) {
            _writable = watch(RunLoop::WRITABLE, &Connection::onWritable);
        } else if (!wanted) {
            _loop.removeWatch(std::exchange(_writable, 0));
        }
    }

    void onWritable() {
        IoResult result = _readable == 0 ? _socket.finishConnect() : IoResult();
        if (result && _readable == 0) {
            _readable = watch(RunLoop::READABLE, &Connection::onReadable);
        }
        while (result && !_unsent.empty()) {
            result = _socket.send(_unsent.data(), _unsent.size());
            _unsent.erase(0, result.count);
        }
        if (result) {
            watchWritable(false);
        }
        endUnlessReady(result);
    }

    // At most 16 calls, so that others on the loop get their turn; the watch runs again.
    void onReadable() {
        char data[16384];
        IoResult result;
        for (int i = 0; result && i < 16; ++i) {
            result = _socket.receive(data, sizeof(data));
            _received.append(data, result.count);
        }
        endUnlessReady(result);
    }

    void endUnlessReady(const IoResult& result) {
        if (result || result.status == IoResult::WOULD_BLOCK) {
            return;
        }
        if (result.status == IoResult::FAILED) {
            std::printf("the connection failed: error %d\n", result.error);
        }
        _over = true;
        watchWritable(false);
        _loop.removeWatch(_readable);
        _ended.notify();
    }

    RunLoop& _loop;
    NIVUR::ClientSocket _socket;
    long _readable = 0;  // ids of watches; 0 if there is none
    long _writable = 0;
    bool _over = false;
    std::string _unsent;
    std::string _received;
    NIVUR::Semaphore _ended;
};

// Reads a whole question and answers it.
static size_t serve(const NIVUR::ServerSocket& listener, size_t length) {
    NIVUR::ClientSocket client;
    char data[16384];
    size_t count = 0;
    IoResult result = listener.accept(client);
    while (result && count < length) {
        result = client.receive(data, sizeof(data));
        count += result.count;
    }
    client.send("thanks", 6);
    return count;
}

int main() {
    NIVUR::ServerSocket listener;
    RunLoop loop("network");
    if (!listener.create(SocketAddress("127.0.0.1", 0)) || !listener.listen(8) || !loop.start()) {
        return 1;
    }
    const std::string question(4 << 20, '?');  // more than the system accepts at once
    Connection connection(loop, listener.localAddress());
    connection.send(question);
    std::printf("the server received %zu bytes\n", serve(listener, question.size()));
    const bool thanked = connection.waitForEnd() == "thanks";
    std::printf("the answer: %s\n", thanked ? "thanks" : "none");
    return thanked ? 0 : 1;
}
