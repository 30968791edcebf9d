// A user's program: it calls the library, is called by it, and identifies the types of its objects.
#include <nivur/nivur.h>

#include <cstdio>
#include <memory>

int main() {
    if (NIVUR::version() != NIVUR_VERSION) return 7;
#ifdef PACKAGE_VERSION  // by CMake, as "1.2.3"
    int major = 0, minor = 0, patch = 0;
    std::sscanf(PACKAGE_VERSION, "%d.%d.%d", &major, &minor, &patch);
    if (NIVUR_VERSION != major * 10000 + minor * 100 + patch) return 8;
#endif
    NIVUR::Dictionary record;
    NIVUR::RunLoop loop("consumer");
    if (!loop.start()) return 1;
    loop.postItem(NIVUR::makeRunnable([&] { record.setString("from", "the loop"); }), false, true);
    loop.stop();
    const std::string text = NIVUR::Serialization::serialize(record);
    if (text != R"({"from": "the loop"})") return 2;

    NIVUR::BufferPool pool(nullptr, "none");
    const NIVUR::SharedPtr<NIVUR::Buffer> buffer = pool.getPoolBuffer(8, nullptr);
    if (!buffer || buffer->capacity() != 8) return 3;

    NIVUR::ServerSocket server;
    NIVUR::ClientSocket client;
    if (!server.create("127.0.0.1", 0) || !server.listen(1)) return 4;
    if (!client.create("127.0.0.1", 0) || !client.connect("127.0.0.1", server.port())) return 5;
    const std::unique_ptr<NIVUR::Socket> accepted(server.accept());
    if (dynamic_cast<NIVUR::ClientSocket*>(accepted.get()) == nullptr) return 6;
    std::puts(text.c_str());
}
