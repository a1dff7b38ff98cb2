#include "decoder/Pool.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace tessaly::decoder {

namespace {

constexpr std::chrono::milliseconds AskInterval{100};

/// A stop as something to wait for beside a socket.
class StopEvent {
  public:
    explicit StopEvent(const std::stop_token& stop)
        : event_(::eventfd(0, EFD_CLOEXEC)), callback_(stop, Set{event_.get()}) {
        if (!event_.isOpen())
            throw std::system_error{errno, std::generic_category(), "a decoder's stop"};
    }
    [[nodiscard]] int get() const noexcept { return event_.get(); }

  private:
    struct Set {
        int event;
        void operator()() const noexcept { static_cast<void>(::eventfd_write(event, 1)); }
    };
    base::FileDescriptor event_;
    std::stop_callback<Set> callback_;
};

/// Waits for the job's end; false if it has not come by the deadline. Throws Abandoned.
bool waitForEnd(const DecoderProcess& process, const Interest& interest, std::chrono::seconds atMost) {
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    const StopEvent stop{interest.stop};
    std::array<pollfd, 2> both{pollfd{.fd = process.socket(), .events = POLLIN, .revents = 0},
                               pollfd{.fd = stop.get(), .events = POLLIN, .revents = 0}};
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        const auto pause = interest.isGivenUp ? std::min(left, AskInterval) : left;
        if (::poll(both.data(), both.size(), static_cast<int>(pause.count())) < 0 && errno != EINTR)
            throw std::system_error{errno, std::generic_category(), "a decoder"};
        require(interest);
        if (both[0].revents != 0)
            return true;
        if (interest.isGivenUp && interest.isGivenUp())
            throw Abandoned{};
    }
}

}  // namespace

Pool::Pool(Options options)
    : options_(std::move(options)),
      queue_({.processes = options_.processes > 0 ? options_.processes
                                                  : std::max(2U, std::thread::hardware_concurrency()),
              .memory = options_.decodeMemory}) {}

Result Pool::convert(const DataSetFile& source, const DataSetFile& target, const Interest& interest) {
    const auto heartbeat = [&interest] { require(interest); };
    try {
        auto planned = planJob(source, target, options_.decodeLimit, heartbeat);
        if (const auto* const reason = std::get_if<const char*>(&planned))
            return {.reason = *reason};
        auto& plan = std::get<JobPlan>(planned);
        const JobQueue::Need need{.memory = plan.job.memory, .isLarge = plan.isLarge()};
        // One that needs more than it may have gets that, and may end for it.
        plan.job.memory = queue_.granted(need);
        if (plan.leastMemory > plan.job.memory)
            return {.reason = "its image needs more memory than a decoder may have"};
        Result result;
        {
            const JobQueue::Turn turn{queue_, need, interest};
            result = run(plan, source, target, interest);
        }
        if (result.outcome == Outcome::Converted && !isAsPromised(target, plan, heartbeat))
            return {.reason = "its decoder made something else of it than its header promises"};
        return result;
    } catch (const Abandoned&) {
        return {.outcome = Outcome::Stopped, .reason = "it was stopped"};
    }
}

Result Pool::run(const JobPlan& plan, const DataSetFile& source, const DataSetFile& target,
                 const Interest& interest) {
    // Processor time is limited in the process itself; this is for one that does nothing at all.
    const std::chrono::seconds atMost{60 + 10 * plan.job.seconds};
    std::optional<Answer> answer;
    // A process that was kept may have been ended meanwhile, by whomever; a new one is tried then.
    for (const bool kept : {true, false}) {
        std::unique_ptr<DecoderProcess> process;
        try {
            process = takeProcess(kept);
        } catch (const std::system_error& error) {
            return {.reason = std::string{"no decoder can be started: "} + error.what(), .isTransient = true};
        }
        // What an earlier one has left is not to be behind what this one writes.
        if (::ftruncate(target.file, static_cast<off_t>(target.dataSetAt)) < 0)
            throw std::system_error{errno, std::generic_category(), "the converted object"};
        if (!process->begin(plan.job, source.file, target.file))
            continue;
        if (!waitForEnd(*process, interest, atMost))
            return {.reason = "its decoder does not end"};
        answer = process->takeAnswer();
        if (answer) {
            keepProcess(std::move(process));
            break;
        }
    }
    if (!answer)
        return {.reason = "its decoder has ended", .isTransient = true};
    if (answer->exitCode == Done)
        return {.outcome = Outcome::Converted, .reason = {}};
    if (answer->exitCode == NotDecodable)
        return {.reason = "its pixel data is not what its header says, or is broken"};
    if (answer->signal != 0)
        return {.reason = "its decoder was ended by signal " + std::to_string(answer->signal)};
    return {.reason = "its decoder could not begin", .isTransient = true};
}

std::unique_ptr<DecoderProcess> Pool::takeProcess(bool kept) {
    if (kept) {
        const std::lock_guard lock{mutex_};
        if (!idle_.empty()) {
            auto process = std::move(idle_.back());
            idle_.pop_back();
            return process;
        }
    }
    return std::make_unique<DecoderProcess>(options_.program);
}

void Pool::keepProcess(std::unique_ptr<DecoderProcess> process) {
    const std::lock_guard lock{mutex_};
    idle_.push_back(std::move(process));
}

}  // namespace tessaly::decoder
