#ifndef NIVUR_TESTS_SUPPORT_SOCKET_FIXTURE_H
#define NIVUR_TESTS_SUPPORT_SOCKET_FIXTURE_H

#include <cerrno>
#include <cstdlib>
#include <functional>

#include "log_capture.h"
#include "sockets.h"

namespace NIVUR {

/// The outputs that socket calls write to.
class SocketTest : public testing::Test {
  protected:
    struct Refusal {
        Socket& socket;
        std::function<bool()> isRefused;
        std::string line;  // "" for none; FD is the socket's descriptor
    };

    /// Refuses with the log on, whose sink changes errno, and with the log off.
    void expectRefused(const std::vector<Refusal>& refusals) {
        for (const Refusal& row : refusals) {
            std::string line = row.line;
            const size_t place = line.find("FD");
            if (place < line.size())
                line.replace(place, 2, std::to_string(row.socket.descriptor()));
            SCOPED_TRACE("row " + std::to_string(&row - refusals.data()) + ": " + line);
            const ptrdiff_t descriptors = openDescriptors();
            LogCapture capture;
            expectRefusal(row, errorOf(line));
            EXPECT_EQ(capture.take(), line.empty() ? Lines{} : Lines{line});
            row.socket.setLogEnabled(false);
            expectRefusal(row, errorOf(line));
            EXPECT_EQ(capture.take(), Lines{});
            row.socket.setLogEnabled(true);
            EXPECT_EQ(openDescriptors(), descriptors);
        }
    }

    char data[100000] = {};
    unsigned int length = 0, sent = 0;
    std::string ip;
    uint16_t port = 0;
    SocketAddress sender;

  private:
    /// Outputs are 77, or empty, before and, if unchanged, after.
    void expectRefusal(const Refusal& row, int error) {
        length = sent = port = 77;
        errno = ENOTTY;
        EXPECT_TRUE(row.isRefused());
        if (error != -1) {
            EXPECT_EQ(Socket::getError(), error);
        }
        EXPECT_EQ(std::tuple(length, sent, port, ip), std::tuple(77U, 77U, 77, ""));
    }

    /// Returns the error number in the log line of a refusal, or -1.
    static int errorOf(const std::string& line) {
        const std::pair<const char*, int> numbers[] = {
            {"err", static_cast<int>(std::strtol(&line[line.rfind('=') + 1], nullptr, 10))},
            {"not created", EBADF},
            {"not connected", ENOTCONN},
            {"already connected", EISCONN},
            {"already created", EEXIST},
            {"invalid", EINVAL},
            {"closed", 0}};
        for (const auto& [words, number] : numbers)
            if (line.find(words) < line.size()) return number;
        return -1;
    }
};

}  // namespace NIVUR

#endif
