// A client asks, and a server on a thread of its own answers.

#include <nivur/nivur.h>

#include <cstdio>
#include <memory>
#include <string>

using NIVUR::ClientSocket;

// One call transfers what the platform does in one go; these go on until it is all.
static bool sendAll(const ClientSocket& socket, const std::string& data) {
    unsigned int sent = 0;
    for (size_t done = 0; done < data.size(); done += sent) {
        if (!socket.send(&data[done], static_cast<unsigned int>(data.size() - done), &sent)) {
            return false;
        }
    }
    return true;
}

static bool receiveAll(const ClientSocket& socket, std::string& data) {
    unsigned int received = 0;
    for (size_t done = 0; done < data.size(); done += received) {
        received = static_cast<unsigned int>(data.size() - done);
        if (socket.select(5000) != 0 || !socket.recv(&data[done], received)) {
            return false;  // nothing for 5 s, the peer has closed, or the connection broke
        }
    }
    return true;
}

static void serve(NIVUR::ServerSocket& listener) {
    if (listener.select(5000) != 0) {
        return;  // nobody came
    }
    const std::unique_ptr<ClientSocket> client(listener.accept());  // owned by the caller
    std::string question(4, '\0');
    if (client != nullptr && receiveAll(*client, question)) {
        sendAll(*client, question == "ping" ? "pong" : "what");
    }
}

int main() {
    NIVUR::ServerSocket listener;
    if (!listener.create("127.0.0.1", 0) || !listener.listen(8)) {  // port 0: the system chooses
        return 1;
    }
    NIVUR::Thread server;
    server.start(NIVUR::makeRunnable([&] { serve(listener); }), "server");

    ClientSocket socket;
    std::string answer(4, '\0');
    const bool answered = socket.create("0.0.0.0", 0) &&
                          socket.connect("127.0.0.1", listener.port()) && sendAll(socket, "ping") &&
                          receiveAll(socket, answer);
    std::printf("the answer: %s\n", answered ? answer.c_str() : "none");
    return answered && answer == "pong" ? 0 : 1;
}
