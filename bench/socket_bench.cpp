#include <Poco/Net/DatagramSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <arpa/inet.h>
#include <nivur/client_socket.h>
#include <nivur/udp_socket.h>
#include <sys/socket.h>
#include <unistd.h>
#include <uv.h>

#include <array>
#include <boost/asio.hpp>
#include <memory>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("sockets");
namespace asio = boost::asio;
constexpr char kLoopback[] = "127.0.0.1";

sockaddr_in addressOf(int descriptor) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    return address;
}

int makeBound(int type) {
    const int descriptor = ::socket(AF_INET, type, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int length = 1 << 20;  // room for the largest message
    ::setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &length, sizeof length);
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &length, sizeof length);
    ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    return descriptor;
}

/// The two ends of a connection through the loopback interface.
std::array<int, 2> connectTcp() {
    const int listener = makeBound(SOCK_STREAM);
    ::listen(listener, 1);
    const sockaddr_in address = addressOf(listener);
    const int client = makeBound(SOCK_STREAM);
    ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int server = ::accept(listener, nullptr, nullptr);
    ::close(listener);
    return {client, server};
}

class PlainTcp {
  public:
    static std::string name() { return "plain calls"; }
    explicit PlainTcp(int descriptor) : _descriptor(descriptor) {}
    ~PlainTcp() { ::close(_descriptor); }
    void send(const char* data, size_t length) { ::send(_descriptor, data, length, MSG_NOSIGNAL); }
    size_t recv(char* data, size_t length) {
        return static_cast<size_t>(::recv(_descriptor, data, length, 0));
    }

  private:
    int _descriptor;
};

class NivurTcp {
  public:
    static std::string name() { return "nivur"; }
    explicit NivurTcp(int descriptor) : _socket(descriptor, kLoopback, 1) {}
    void send(const char* data, size_t length) {
        _socket.send(data, static_cast<unsigned int>(length), nullptr);
    }
    size_t recv(char* data, size_t length) {
        auto received = static_cast<unsigned int>(length);
        _socket.recv(data, received);
        return received;
    }

  private:
    NIVUR::ClientSocket _socket;
};

class AsioTcp {
  public:
    static std::string name() { return "Asio"; }
    explicit AsioTcp(int descriptor) : _socket(_io, asio::ip::tcp::v4(), descriptor) {}
    void send(const char* data, size_t length) { _socket.send(asio::buffer(data, length)); }
    size_t recv(char* data, size_t length) { return _socket.receive(asio::buffer(data, length)); }

  private:
    asio::io_context _io;
    asio::ip::tcp::socket _socket;
};

class PocoTcp {
  public:
    static std::string name() { return "POCO"; }
    explicit PocoTcp(int descriptor) : _socket(new Impl(descriptor)) {}
    void send(const char* data, size_t length) {
        _socket.sendBytes(data, static_cast<int>(length));
    }
    size_t recv(char* data, size_t length) {
        return static_cast<size_t>(_socket.receiveBytes(data, static_cast<int>(length)));
    }

  private:
    struct Impl : Poco::Net::StreamSocketImpl {
        explicit Impl(int descriptor) : StreamSocketImpl(descriptor) {}
    };
    Poco::Net::StreamSocket _socket;
};

/// Sends a message and receives it on one thread: the cost of the calls.
template <class Tcp>
void measureTcp(State& state, Peer<Tcp>, size_t length) {
    const auto [client, server] = connectTcp();
    Tcp sender(client);
    Tcp receiver(server);
    std::vector<char> message(length, 'x');
    for (auto _ : state) {
        sender.send(message.data(), length);
        for (size_t left = length; left > 0;) {
            left -= receiver.recv(message.data(), left);
        }
    }
}

// The peers of datagram sockets convert addresses from and to text, as nivur does, so that all do
// the same work.

class PlainUdp {
  public:
    static std::string name() { return "plain calls"; }
    ~PlainUdp() { ::close(_descriptor); }
    uint16_t port() const { return ntohs(addressOf(_descriptor).sin_port); }
    void send(const std::string& ip, uint16_t port, const char* data, size_t length) {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        ::inet_pton(AF_INET, ip.c_str(), &to.sin_addr);
        ::sendto(_descriptor, data, length, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }
    std::string recv(char* data, size_t length) {
        sockaddr_in from = {};
        socklen_t fromLength = sizeof from;
        ::recvfrom(_descriptor, data, length, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
        char text[INET_ADDRSTRLEN];
        return ::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
    }

  private:
    int _descriptor = makeBound(SOCK_DGRAM);
};

class NivurUdp {
  public:
    static std::string name() { return "nivur"; }
    NivurUdp() {
        _socket.create(kLoopback, 0);
        _socket.setBufLength(1 << 20);
    }
    uint16_t port() const { return _socket.port(); }
    void send(const std::string& ip, uint16_t port, const char* data, size_t length) {
        _socket.sendto(ip, port, data, length, nullptr);
    }
    std::string recv(char* data, size_t length) {
        std::string ip;
        uint16_t port = 0;
        auto received = static_cast<unsigned int>(length);
        _socket.recvfrom(ip, port, data, received);
        return ip;
    }

  private:
    NIVUR::UDPSocket _socket;
};

class AsioUdp {
  public:
    static std::string name() { return "Asio"; }
    uint16_t port() const { return _socket.local_endpoint().port(); }
    void send(const std::string& ip, uint16_t port, const char* data, size_t length) {
        _socket.send_to(asio::buffer(data, length), {asio::ip::make_address(ip), port});
    }
    std::string recv(char* data, size_t length) {
        asio::ip::udp::endpoint from;
        _socket.receive_from(asio::buffer(data, length), from);
        return from.address().to_string();
    }

  private:
    asio::io_context _io;
    asio::ip::udp::socket _socket{_io, asio::ip::udp::v4(), makeBound(SOCK_DGRAM)};
};

class PocoUdp {
  public:
    static std::string name() { return "POCO"; }
    PocoUdp() {
        _socket.setSendBufferSize(1 << 20);
        _socket.setReceiveBufferSize(1 << 20);
    }
    uint16_t port() const { return _socket.address().port(); }
    void send(const std::string& ip, uint16_t port, const char* data, size_t length) {
        _socket.sendTo(data, static_cast<int>(length), Poco::Net::SocketAddress(ip, port));
    }
    std::string recv(char* data, size_t length) {
        Poco::Net::SocketAddress from;
        _socket.receiveFrom(data, static_cast<int>(length), from);
        return from.host().toString();
    }

  private:
    Poco::Net::DatagramSocket _socket{Poco::Net::SocketAddress(kLoopback, 0)};
};

template <class Udp>
void measureUdp(State& state, Peer<Udp>, size_t length) {
    Udp sender;
    Udp receiver;
    const std::string ip = kLoopback;
    const uint16_t port = receiver.port();
    std::vector<char> message(length, 'x');
    for (auto _ : state) {
        sender.send(ip, port, message.data(), length);
        benchmark::DoNotOptimize(receiver.recv(message.data(), length));
    }
}

// Sends and receives many datagrams of one size to one kept address: with one call for each, and
// with one call for all.

constexpr size_t kDatagrams = 32;
constexpr size_t kDatagram = 1200;
using Datagrams = std::array<char, 65536>;

class PlainDatagrams {
  public:
    static std::string name() { return "plain calls"; }
    ~PlainDatagrams() { ::close(_descriptor); }
    sockaddr_in address() const { return addressOf(_descriptor); }
    void send(const sockaddr_in& to, const Datagrams& data) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            ::sendto(_descriptor, &data[i * kDatagram], kDatagram, 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
    }
    void receive(Datagrams& data) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            sockaddr_in from = {};
            socklen_t length = sizeof from;
            ::recvfrom(_descriptor, &data[i * kDatagram], kDatagram, 0,
                       reinterpret_cast<sockaddr*>(&from), &length);
        }
    }

  protected:
    int _descriptor = makeBound(SOCK_DGRAM);
};

/// sendmmsg() and recvmmsg(). The library does not use them, since they save less than half.
class MessageDatagrams : public PlainDatagrams {
  public:
    static std::string name() { return "sendmmsg and recvmmsg"; }
    void send(sockaddr_in to, Datagrams& data) {
        prepare(data, [&to](size_t) { return &to; });
        ::sendmmsg(_descriptor, _messages.data(), kDatagrams, 0);
    }
    void receive(Datagrams& data) {
        prepare(data, [this](size_t i) { return &_senders[i]; });
        ::recvmmsg(_descriptor, _messages.data(), kDatagrams, 0, nullptr);
    }

  private:
    template <class AddressOf>
    void prepare(Datagrams& data, AddressOf address) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            _pieces[i] = {&data[i * kDatagram], kDatagram};
            _messages[i] = {};
            _messages[i].msg_hdr.msg_iov = &_pieces[i];
            _messages[i].msg_hdr.msg_iovlen = 1;
            _messages[i].msg_hdr.msg_name = address(i);
            _messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
        }
    }

    std::array<mmsghdr, kDatagrams> _messages;
    std::array<iovec, kDatagrams> _pieces;
    std::array<sockaddr_in, kDatagrams> _senders;
};

class NivurDatagrams {
  public:
    static std::string name() { return "nivur"; }
    NivurDatagrams() {
        _socket.create(NIVUR::SocketAddress(kLoopback, 0));
        _socket.setBufLength(1 << 20);
    }
    NIVUR::SocketAddress address() const { return _socket.localAddress(); }
    void send(const NIVUR::SocketAddress& to, const Datagrams& data) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            _socket.sendto(to, &data[i * kDatagram], kDatagram);
        }
    }
    void receive(Datagrams& data) {
        NIVUR::SocketAddress from;
        for (size_t i = 0; i < kDatagrams; ++i) {
            _socket.recvfrom(from, &data[i * kDatagram], kDatagram);
        }
    }

  protected:
    NIVUR::UDPSocket _socket;
};

class NivurSegments : public NivurDatagrams {
  public:
    NivurSegments() { _socket.setCoalescing(true); }
    void send(const NIVUR::SocketAddress& to, const Datagrams& data) {
        _socket.sendDatagrams(to, data.data(), kDatagrams * kDatagram, kDatagram);
    }
    void receive(Datagrams& data) {
        NIVUR::SocketAddress from;
        size_t size = 0;
        for (size_t received = 0; received < kDatagrams * kDatagram;) {
            received += _socket.receiveDatagrams(from, data.data(), data.size(), size).count;
        }
    }
};

class AsioDatagrams {
  public:
    using Address = asio::ip::udp::endpoint;
    static std::string name() { return "Asio"; }
    Address address() const { return _socket.local_endpoint(); }
    void send(const Address& to, const Datagrams& data) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            _socket.send_to(asio::buffer(&data[i * kDatagram], kDatagram), to);
        }
    }
    void receive(Datagrams& data) {
        Address from;
        for (size_t i = 0; i < kDatagrams; ++i) {
            _socket.receive_from(asio::buffer(&data[i * kDatagram], kDatagram), from);
        }
    }

  private:
    asio::io_context _io;
    asio::ip::udp::socket _socket{_io, asio::ip::udp::v4(), makeBound(SOCK_DGRAM)};
};

/// It receives up to 20 datagrams with one recvmmsg().
class UvDatagrams {
  public:
    static std::string name() { return "libuv"; }
    UvDatagrams() {
        uv_loop_init(&_loop);
        uv_udp_init_ex(&_loop, &_socket, AF_UNSPEC | UV_UDP_RECVMMSG);
        uv_udp_open(&_socket, makeBound(SOCK_DGRAM));
        _socket.data = this;
        uv_udp_recv_start(
            &_socket,
            [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
                auto& room = static_cast<UvDatagrams*>(handle->data)->_room;
                *buffer = uv_buf_init(room.data(), static_cast<unsigned int>(room.size()));
            },
            [](uv_udp_t* handle, ssize_t count, const uv_buf_t*, const sockaddr*, unsigned int) {
                static_cast<UvDatagrams*>(handle->data)->_received += count > 0 ? 1 : 0;
            });
    }
    ~UvDatagrams() {
        uv_close(reinterpret_cast<uv_handle_t*>(&_socket), nullptr);
        uv_run(&_loop, UV_RUN_DEFAULT);
        uv_loop_close(&_loop);
    }
    sockaddr_in address() const {
        uv_os_fd_t descriptor = -1;
        uv_fileno(reinterpret_cast<const uv_handle_t*>(&_socket), &descriptor);
        return addressOf(descriptor);
    }
    void send(const sockaddr_in& to, Datagrams& data) {
        for (size_t i = 0; i < kDatagrams; ++i) {
            const uv_buf_t buffer = uv_buf_init(&data[i * kDatagram], kDatagram);
            uv_udp_try_send(&_socket, &buffer, 1, reinterpret_cast<const sockaddr*>(&to));
        }
    }
    void receive(Datagrams& /*data*/) {
        for (_received = 0; _received < kDatagrams;) {
            uv_run(&_loop, UV_RUN_ONCE);
        }
    }

  private:
    uv_loop_t _loop;
    uv_udp_t _socket;
    std::vector<char> _room = std::vector<char>(size_t{20} * 65536);
    size_t _received = 0;
};

template <class Udp>
void measureDatagrams(State& state, Peer<Udp>) {
    Udp sender;
    Udp receiver;
    const auto address = receiver.address();
    const auto data = std::make_unique<Datagrams>();
    for (auto _ : state) {
        sender.send(address, *data);
        receiver.receive(*data);
    }
    setItems(state, kDatagrams);
}

}  // namespace

void addSockets() {
    const Peers<NivurTcp, AsioTcp, PocoTcp, Limit<PlainTcp>> tcp;
    const Peers<NivurUdp, AsioUdp, PocoUdp, Limit<PlainUdp>> udp;
    for (const size_t length : {64, 1500, 65536}) {
        kFamily.add("TCP, " + std::to_string(length) + " B", tcp,
                    [=](State& state, auto peer) { measureTcp(state, peer, length); });
        const size_t datagram = std::min<size_t>(length, 65507);
        kFamily.add("UDP, " + std::to_string(datagram) + " B", udp,
                    [=](State& state, auto peer) { measureUdp(state, peer, datagram); });
    }
    const auto datagrams = [](State& state, auto peer) { measureDatagrams(state, peer); };
    kFamily.add("UDP, 1200 B, address kept",
                Peers<NivurDatagrams, AsioDatagrams, UvDatagrams, Limit<PlainDatagrams>>(),
                datagrams);
    kFamily.add(
        "UDP, 32 of 1200 B at once",
        Peers<NivurSegments, AsioDatagrams, UvDatagrams, MessageDatagrams, Other<PlainDatagrams>>(),
        datagrams);
}

}  // namespace bench
