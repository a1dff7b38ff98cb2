#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "decoder/Channel.h"
#include "decoder/Job.h"

// A decoder that does not do what it should, according to the name that it is started by.

namespace {

using namespace tessaly::decoder;

void write(int file, std::uint64_t at, const std::string& bytes) {
    static_cast<void>(::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(at)));
}

std::string contents(int file, const Job& job) {
    std::string bytes(job.sourceSize, '\0');
    static_cast<void>(::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(job.sourceAt)));
    return bytes;
}

}  // namespace

int main(int /*argc*/, char** argv) {
    const std::string name = std::filesystem::path{argv[0]}.filename();
    Job job;
    std::array<tessaly::base::FileDescriptor, 2> files;
    while (receiveMessage(STDIN_FILENO, std::as_writable_bytes(std::span{&job, 1}), files)) {
        const int target = files[1].get();
        const std::string object = contents(files[0].get(), job);
        Answer answer{.exitCode = Done};
        if (name == "crashes")
            std::raise(SIGKILL);
        if (name == "sleeps") {
            for (;;)
                ::pause();
        }
        if (name == "fails")
            answer.exitCode = NotDecodable;
        if (name == "unknown")
            answer.exitCode = 77;
        if (name == "died")
            answer = {.exitCode = -1, .signal = SIGSEGV};
        if (name == "echoes" || name == "repeats" || name == "shortens")
            write(target, job.targetAt, name == "shortens" ? object.substr(0, object.size() - 2) : object);
        if (name == "repeats")
            write(target, job.targetAt + object.size(), object);
        if (name == "exchanges") {  // the object's instance
            std::string other = object;
            other[other.find("1.2.826.0.1.1.1.1")] = '2';
            write(target, job.targetAt, other);
        }
        files = {};
        if (name == "babbles") {
            static_cast<void>(::send(STDIN_FILENO, "?", 1, 0));
            continue;
        }
        if (!sendMessage(STDIN_FILENO, std::as_bytes(std::span{&answer, 1})))
            break;
    }
    return 0;
}
