// JPEG 2000 code streams, one frame each. The library has assertions that a stream can fail, so each is
// decoded in a process of its own, as the decoder does it: a signal ends that one alone, and nothing is to be
// wrong but in the library.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

#include "decoder/CodeStream.h"
#include "decoder/FrameDecoder.h"
#include "tests/fuzz/Fuzz.h"

namespace {

/// False if the work, or what a sanitizer finds in it, ends its process with another exit code than 0.
template <class Work>
bool comesToAnEnd(const Work& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE})
            std::signal(signal, SIG_DFL);
        constexpr rlimit Seconds{.rlim_cur = 5, .rlim_max = 5};
        ::setrlimit(RLIMIT_CPU, &Seconds);
        constexpr rlimit None{.rlim_cur = 0, .rlim_max = 0};
        ::setrlimit(RLIMIT_CORE, &None);
        work();
        ::_exit(0);
    }
    int status = 0;
    pid_t ended = 0;
    do {
        ended = ::waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);  // by the fuzzer's clock
    return child > 0 && ended == child &&
           (WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
}

}  // namespace

/// The first byte says what the image is.
void tessaly::fuzz::tryInput(std::string_view input) {
    using namespace tessaly::decoder;
    if (input.empty())
        return;
    const auto choice = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    const Bytes stream{reinterpret_cast<const unsigned char*>(input.data()), input.size()};
    const auto described = readCodeStream(stream);
    // Beyond it a decoder takes what it may, and this one has no limits.
    constexpr std::uint32_t Most = 256;
    if (!described || described->rows > Most || described->columns > Most)
        return;
    require(described->size <= stream.size() && described->components > 0);
    ImageDescription image{.rows = static_cast<std::uint16_t>(described->rows),
                           .columns = static_cast<std::uint16_t>(described->columns),
                           .samplesPerPixel = static_cast<std::uint16_t>(described->components)};
    image.bitsAllocated = (choice & 1U) != 0 ? 16 : 8;
    image.bitsStored = image.bitsAllocated;
    image.pixelRepresentation = (choice & 2U) != 0 ? 1 : 0;
    image.photometric = (choice & 4U) != 0 ? "YBR_FULL" : (choice & 8U) != 0 ? "YBR_RCT" : "RGB";
    require(comesToAnEnd([&] {
        FrameDecoder decoder{image, EXS_JPEG2000, "1.2.3"};
        std::vector<unsigned char> target;
        if (decoder.decode(std::vector{stream}, target) && target.size() != image.frameSize())
            ::_exit(1);
    }));
}
