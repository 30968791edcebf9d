// A server that echoes lines to any number of clients and disconnects silent ones. The listener,
// the clients and a timer share one loop, so that nothing here needs a lock.

#include <nivur/nivur.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>

using NIVUR::IoResult;
using NIVUR::SocketAddress;
using NIVUR::SystemUtil;

class LineServer {
  public:
    explicit LineServer(NIVUR::RunLoop& loop) : _loop(loop) {
        _listener.create(SocketAddress("127.0.0.1", 0));
        _listener.listen(8);
        _listener.setBlocking(false);
        listen();
        _loop.addTimer(NIVUR::makeRunnable([this] { onTimer(); }, this), 20, true);
    }

    // After this call no task of the server runs, so that its sockets can be closed.
    ~LineServer() { _loop.cancelTasksForObject(this); }

    SocketAddress address() const { return _listener.localAddress(); }

  private:
    struct Client {
        NIVUR::ClientSocket socket;
        std::string received;
        uint64_t lastHeard = SystemUtil::getCPUTime();
        long watch = 0;
    };

    template <class Task>
    long watch(int descriptor, Task task) {
        return _loop.addWatch(descriptor, NIVUR::RunLoop::READABLE,
                              NIVUR::makeRunnable(task, this));
    }

    void listen() {
        _listening = watch(_listener.descriptor(), [this] { accept(); });
    }

    void accept() {
        Client client;
        IoResult result;
        while ((result = _listener.accept(client.socket))) {
            const int descriptor = client.socket.descriptor();
            client.socket.setBlocking(false);
            client.watch = watch(descriptor, [this, descriptor] { onReadable(descriptor); });
            _clients[descriptor] = std::move(client);
            client = Client();
        }
        if (result.status == IoResult::FAILED) {  // no descriptors left: the timer tries again
            _loop.removeWatch(std::exchange(_listening, 0));
        }
    }

    void onReadable(int descriptor) {
        Client& client = _clients[descriptor];
        client.lastHeard = SystemUtil::getCPUTime();
        char data[1024];
        const IoResult result = client.socket.receive(data, sizeof(data));
        client.received.append(data, result.count);
        const size_t lines = client.received.rfind('\n') + 1;  // npos + 1 is 0
        const IoResult sent = client.socket.send(client.received.data(), lines);
        client.received.erase(0, lines);
        const bool open = result || result.status == IoResult::WOULD_BLOCK;
        if (!open || sent.count < lines) {  // closed, or the client does not read
            hangUp(descriptor);
        }
    }

    void onTimer() {
        if (_listening == 0) {
            listen();
        }
        const uint64_t now = SystemUtil::getCPUTime();
        for (auto next = _clients.begin(); next != _clients.end();) {
            const auto& [descriptor, client] = *next++;
            if (now - client.lastHeard >= 100) {
                hangUp(descriptor);
            }
        }
    }

    void hangUp(int descriptor) {
        _loop.removeWatch(_clients[descriptor].watch);  // first: closing frees the descriptor
        _clients.erase(descriptor);
    }

    NIVUR::RunLoop& _loop;
    NIVUR::ServerSocket _listener;
    long _listening = 0;
    std::map<int, Client> _clients;  // used on the loop's thread only
};

int main() {
    NIVUR::RunLoop loop("server");
    LineServer server(loop);
    NIVUR::ClientSocket client;
    if (!loop.start() || !client.create(SocketAddress("127.0.0.1", 0)) ||
        !client.connect(server.address())) {
        return 1;
    }
    client.send("good ", 5);
    client.send("morning\nand bye\n", 16);
    char data[64];
    std::string echoed;
    IoResult result;
    while ((result = client.receive(data, sizeof(data)))) {
        echoed.append(data, result.count);
    }
    std::printf("%s", echoed.c_str());
    std::puts(result.status == IoResult::CLOSED ? "the server hung up" : "the connection failed");
    return echoed == "good morning\nand bye\n" ? 0 : 1;
}
