#include "decoder/DecoderProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "decoder/Channel.h"

namespace tessaly::decoder {

namespace {

void require(int error, const char* what) {
    if (error != 0)
        throw std::system_error{error, std::generic_category(), what};
}

/// How a decoder begins: its socket is its standard input, nothing else is open, signals are as the system
/// has them, and the end of its group is the end of all that it makes.
class Start {
  public:
    explicit Start(int socket) {
        require(::posix_spawn_file_actions_init(&actions_), "a decoder");
        require(::posix_spawnattr_init(&attributes_), "a decoder");
        require(::posix_spawn_file_actions_adddup2(&actions_, socket, STDIN_FILENO), "a decoder");
        for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
            if (!KeepsErrors || output != STDERR_FILENO)
                require(::posix_spawn_file_actions_addopen(&actions_, output, "/dev/null", O_WRONLY, 0),
                        "a decoder");
        }
        require(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1), "a decoder");
        require(::posix_spawn_file_actions_addchdir_np(&actions_, "/"), "a decoder");
        sigset_t all;
        sigset_t none;
        ::sigfillset(&all);
        ::sigemptyset(&none);
        require(::posix_spawnattr_setsigdefault(&attributes_, &all), "a decoder");
        require(::posix_spawnattr_setsigmask(&attributes_, &none), "a decoder");
        require(::posix_spawnattr_setpgroup(&attributes_, 0), "a decoder");
        require(::posix_spawnattr_setflags(
                    &attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP),
                "a decoder");
    }
    ~Start() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;

    [[nodiscard]] pid_t run(std::string program) const {
        // Of the environment it needs the one variable that the toolkit reads; and its heap is to use large
        // pages.
        std::vector<std::string> texts{"GLIBC_TUNABLES=glibc.malloc.hugetlb=1"};
        if (const char* dictionary = std::getenv("DCMDICTPATH"); dictionary != nullptr)
            texts.push_back("DCMDICTPATH=" + std::string{dictionary});
        std::vector<char*> environment;
        environment.reserve(texts.size() + 1);
        for (std::string& text : texts)
            environment.push_back(text.data());
        environment.push_back(nullptr);
        std::array<char*, 2> arguments{program.data(), nullptr};
        pid_t process = -1;
        require(::posix_spawn(&process, program.c_str(), &actions_, &attributes_, arguments.data(),
                              environment.data()),
                program.c_str());
        return process;
    }

  private:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool KeepsErrors = true;  // for the sanitizers' reports
#else
    static constexpr bool KeepsErrors = false;
#endif
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

}  // namespace

DecoderProcess::DecoderProcess(const std::filesystem::path& program) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) < 0)
        require(errno, "a decoder's socket");
    socket_ = base::FileDescriptor{ends[0]};
    const base::FileDescriptor other{ends[1]};
    process_ = Start{other.get()}.run(program);
}

DecoderProcess::~DecoderProcess() {
    ::kill(-process_, SIGKILL);
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
}

bool DecoderProcess::begin(const Job& job, int source, int target) const {
    return sendMessage(socket_.get(), std::as_bytes(std::span{&job, 1}), std::array{source, target});
}

std::optional<Answer> DecoderProcess::takeAnswer() const {
    Answer answer;
    std::array<base::FileDescriptor, 2> none;
    if (!receiveMessage(socket_.get(), std::as_writable_bytes(std::span{&answer, 1}), none))
        return std::nullopt;
    return answer;
}

}  // namespace tessaly::decoder
