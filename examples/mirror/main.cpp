/// mirror SOURCE DESTINATION: copies a file through two run loops and says whether it arrived
/// whole.

#include <nivur/event_center.h>
#include <nivur/log.h>

#include <cstdio>
#include <filesystem>

#include "log_to_stderr.h"
#include "progress.h"
#include "sink.h"
#include "source.h"

namespace {

int fail(const std::string& message) {
    std::fprintf(stderr, "mirror: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return fail("usage: mirror SOURCE DESTINATION");
    }
    std::error_code ignored;
    if (std::filesystem::equivalent(argv[1], argv[2], ignored)) {
        return fail("source and destination are the same file");
    }
    NIVUR::Log::setCB(mirror::logToStderr);

    NIVUR::EventCenter events;
    mirror::Progress progress(events);
    mirror::Sink sink(argv[2], events);
    mirror::Source source(argv[1], sink, progress);
    const std::string error = source.mirror();
    if (!error.empty()) {
        return fail(error);
    }
    mirror::BytesDone::send(events, "finished", std::filesystem::file_size(argv[2]));
    return 0;
}
