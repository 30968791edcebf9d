// A client asks a question, and a server on another thread answers it.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>

using NIVUR::ClientSocket;
using NIVUR::IoResult;
using NIVUR::SocketAddress;

// One call may transfer only a part; these repeat it until all is transferred.
static bool sendAll(const ClientSocket& socket, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        const IoResult sent = socket.send(&data[done], data.size() - done);
        if (!sent) {
            return false;
        }
        done += sent.count;
    }
    return true;
}

static bool receiveAll(const ClientSocket& socket, std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        if (socket.select(5000) != 0) {
            return false;  // nothing for 5 s
        }
        const IoResult received = socket.receive(&data[done], data.size() - done);
        if (!received) {
            return false;  // CLOSED: the peer has ended its side; FAILED: an error
        }
        done += received.count;
    }
    return true;
}

static void serve(const NIVUR::ServerSocket& listener) {
    ClientSocket client;
    if (listener.select(5000) != 0 || !listener.accept(client)) {
        return;  // nobody came
    }
    std::string question(4, '\0');
    if (receiveAll(client, question)) {
        sendAll(client, question == "ping" ? "pong" : "what");
    }
}

int main() {
    NIVUR::ServerSocket listener;
    const SocketAddress local("127.0.0.1", 0);  // the system chooses a port
    // With `true`, a server that is restarted can bind its port again at once.
    if (!listener.create(local, true) || !listener.listen(8)) {
        return 1;
    }
    NIVUR::Thread server;
    server.start(NIVUR::makeRunnable([&] { serve(listener); }), "server");

    ClientSocket socket;
    std::string answer(4, '\0');
    const bool answered = socket.create(local) && socket.connect(listener.localAddress()) &&
                          socket.setNoDelay(true) == 0 && sendAll(socket, "ping") &&
                          receiveAll(socket, answer);
    std::printf("the answer: %s\n", answered ? answer.c_str() : "none");
    return answered && answer == "pong" ? 0 : 1;
}
