#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/oflog/oflog.h>
#include <malloc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <span>
#include <stdexcept>
#include <vector>

#include "base/FileDescriptor.h"
#include "decoder/Channel.h"
#include "decoder/Confinement.h"
#include "decoder/Transcoder.h"
#include "decoder/FrameDecoder.h"
#include "decoder/Job.h"
#include "dicom/data/TransferSyntaxes.h"

// The decoder: a process that waits for jobs and has seen no byte of any object, and for each job a copy of
// it, which does that one and ends. So nothing of an object is left when the next one comes.

namespace {

using namespace tessaly::decoder;
using tessaly::base::FileDescriptor;

constexpr int Socket = STDIN_FILENO;
constexpr int LowerPriority = 5;  // than the server's: storing and finding do not wait for pixels

/// Collects what is written.
class TargetFile {
  public:
    TargetFile(int file, std::uint64_t at) : file_(file), at_(static_cast<off_t>(at)) {
        buffer_.reserve(Most);
    }

    void write(Bytes bytes) {
        if (buffer_.size() + bytes.size() > Most)
            flush();
        if (bytes.size() >= Most)
            return writeOut(bytes);
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    }
    void flush() {
        writeOut(buffer_);
        buffer_.clear();
    }

  private:
    static constexpr std::size_t Most = std::size_t{1} << 18U;

    void writeOut(Bytes bytes) {
        while (!bytes.empty()) {
            const ssize_t written = ::pwrite(file_, bytes.data(), bytes.size(), at_);
            if (written < 0 && errno != EINTR)
                throw std::runtime_error{"the target cannot be written"};
            if (written > 0) {
                bytes = bytes.subspan(static_cast<std::size_t>(written));
                at_ += written;
            }
        }
    }

    int file_;
    off_t at_;
    std::vector<unsigned char> buffer_;
};

tessaly::dicom::TransferSyntax syntaxAt(std::uint32_t index) {
    const auto table = tessaly::dicom::transferSyntaxes();
    return index < table.size() ? tessaly::dicom::TransferSyntax{table[index]}
                                : tessaly::dicom::TransferSyntax{};
}

bool convert(const Job& job, const FileDescriptor& source, const FileDescriptor& target) {
    // A file that is shortened meanwhile ends this process, and nothing else.
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const std::uint64_t skipped = job.sourceAt % page;
    const std::size_t size = job.sourceSize + skipped;
    // All pages of a usual object with one call, not with a page fault each.
    constexpr std::size_t Usual = std::size_t{16} << 20U;
    const int flags = MAP_PRIVATE | (size <= Usual ? MAP_POPULATE : 0);
    void* const mapped =
        ::mmap(nullptr, size, PROT_READ, flags, source.get(), static_cast<off_t>(job.sourceAt - skipped));
    if (mapped == MAP_FAILED)
        return false;
    const Bytes dataSet = Bytes{static_cast<const unsigned char*>(mapped), size}.subspan(skipped);
    TargetFile file{target.get(), job.targetAt};
    if (!tessaly::decoder::convert(dataSet, syntaxAt(job.from), syntaxAt(job.to),
                                   [&file](Bytes bytes) { file.write(bytes); }))
        return false;
    file.flush();
    return true;
}

[[noreturn]] void work(const Job& job, const FileDescriptor& source, const FileDescriptor& target,
                       const Parent& parent, const CallFilter& filter) {
    int result = NotConfined;
    ::close(Socket);
    if (confine(job, parent, filter)) {
        try {
            result = convert(job, source, target) ? Done : NotDecodable;
        } catch (const std::exception&) {  // no memory, or no room on the disk
            result = NotDecodable;
        }
    }
    ::_exit(result);
}

/// Waits for the process that does a job. When nobody waits for this one any more, it ends both.
Answer waitFor(pid_t worker) {
    const FileDescriptor ended{static_cast<int>(::syscall(SYS_pidfd_open, worker, 0))};
    std::array<pollfd, 2> both{pollfd{.fd = ended.get(), .events = POLLIN, .revents = 0},
                               pollfd{.fd = Socket, .events = POLLIN, .revents = 0}};
    while (both[0].revents == 0) {
        const bool failed = !ended.isOpen() || (::poll(both.data(), both.size(), -1) < 0 && errno != EINTR);
        if (failed || both[1].revents != 0) {  // nobody says anything meanwhile: it is the end
            ::kill(worker, SIGKILL);
            ::_exit(EXIT_FAILURE);
        }
    }
    int status = 0;
    while (::waitpid(worker, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? Answer{.exitCode = WEXITSTATUS(status)} : Answer{.signal = WTERMSIG(status)};
}

void serve(const Parent& self, const CallFilter& filter) {
    for (;;) {
        Job job;
        std::array<FileDescriptor, 2> files;
        if (!receiveMessage(Socket, std::as_writable_bytes(std::span{&job, 1}), files))
            return;
        const pid_t worker = ::fork();
        if (worker == 0)
            work(job, files[0], files[1], self, filter);
        const Answer answer = worker < 0 ? Answer{} : waitFor(worker);
        files = {};
        if (!sendMessage(Socket, std::as_bytes(std::span{&answer, 1})))
            return;
    }
}

/// One heap that grows in large steps: with large pages (DecoderProcess asks for them) a process that does
/// one job meets some hundred page faults less.
void useLargePages() {
    constexpr int Never = 1 << 30;
    constexpr int Step = 4 << 20;
    mallopt(M_MMAP_THRESHOLD, Never);
    mallopt(M_TRIM_THRESHOLD, Never);
    mallopt(M_TOP_PAD, Step);
}

int run() {
    int type = 0;
    socklen_t size = sizeof type;
    if (::getsockopt(Socket, SOL_SOCKET, SO_TYPE, &type, &size) != 0 || type != SOCK_SEQPACKET) {
        std::cerr << "tessaly-decoder: it is started by tessalyd alone\n";
        return EXIT_FAILURE;
    }
    if (!harden())
        return EXIT_FAILURE;
    ::nice(LowerPriority);
    useLargePages();
    // All that has a name is opened now: later there are none.
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    registerCodecs();
    if (!dcmDataDict.isDictionaryLoaded())
        return EXIT_FAILURE;
    const CallFilter forWork{CallFilter::Purpose::Decode};
    const Parent self{.process = ::getpid(), .addressSpace = addressSpace()};
    if (self.addressSpace == 0 || !CallFilter{CallFilter::Purpose::Serve}.apply())
        return EXIT_FAILURE;
    serve(self, forWork);
    return EXIT_SUCCESS;
}

}  // namespace

int main() {
    try {
        ::_exit(run());  // without the end's own work: no memory is looked through for leaks
    } catch (const std::exception& fault) {
        std::cerr << "tessaly-decoder: " << fault.what() << '\n';
        ::_exit(EXIT_FAILURE);
    }
}
