#include "tessalyd/services/retrieve/FilmMove.h"

#include <exception>

#include "jobs/Spool.h"
#include "tessalyd/forwarding/composing/FilmComposer.h"
#include "tessalyd/services/PrintQueue.h"

namespace tessaly::tessalyd {

FilmMove::FilmMove(Order order, InstanceList instances, ServiceContext& shared, PeerLog& log)
    : order_(std::move(order)),
      instances_(std::move(instances)),
      shared_(shared),
      log_(log),
      operations_(instances_.size()),
      thread_([this](const std::stop_token& stop) { run(stop); }) {}

FilmMove::~FilmMove() {
    thread_.request_stop();
    thread_.join();
}

bool FilmMove::waitForEnd(std::chrono::milliseconds atMost) {
    std::unique_lock lock{mutex_};
    return ended_.wait_for(lock, atMost, [this] { return hasEnded_; });
}

SubOperations FilmMove::progress() const {
    const std::lock_guard lock{mutex_};
    return operations_;
}

bool FilmMove::lackedRoom() const {
    const std::lock_guard lock{mutex_};
    return lackedRoom_;
}

void FilmMove::cancel() {
    thread_.request_stop();
    std::unique_lock lock{mutex_};
    ended_.wait(lock, [this] { return hasEnded_; });
}

void FilmMove::run(const std::stop_token& stop) {
    try {
        compose(stop);
    } catch (const decoder::Abandoned&) {  // what is left remains
    } catch (const std::exception& fault) {
        if (!stop.stop_requested()) {
            log_.add(PeerLog::Event::Failure, order_.name + ": films not composed: " + fault.what());
            failRest();
        }
    }
    const std::lock_guard lock{mutex_};
    hasEnded_ = true;
    ended_.notify_all();
}

void FilmMove::compose(const std::stop_token& stop) {
    const composing::Composition composition{
        .printer = order_.printer,
        .callingAeTitle = order_.callingAeTitle,
        .originator = order_.originator,
        .baseUid = order_.baseUid,
        .spool = jobs::Spool{order_.root},
        .decoders = shared_.decoders,
        .interest = {.stop = stop, .requestor = order_.requestor},
        .announce = [&](std::size_t films) { printqueue::requireRoom(shared_, order_.printer, films, stop); },
        .queue =
            [&](const films::PrintOrder& order, films::NewFolder& folder) {
                static_cast<void>(printqueue::add(shared_, order, order_.printer, folder, stop));
            },
        .completed =
            [this](const std::string& uid) {
                told_.insert(uid);
                const std::lock_guard lock{mutex_};
                operations_.complete();
            },
        .failed = [this](const std::string& uid, const std::string& reason) { fail(uid, reason); },
        .log =
            [this](const std::string& line) {
                log_.add(PeerLog::Event::Failure, order_.name + ": " + line);
            }};
    composing::composeFilms(composition, instances_);
}

void FilmMove::fail(const std::string& uid, const std::string& reason) {
    log_.add(PeerLog::Event::Failure, order_.name + ": " + uid + " not printed: " + reason);
    told_.insert(uid);
    const std::lock_guard lock{mutex_};
    operations_.fail(uid);
}

void FilmMove::failRest() {
    instances_.restart();
    // Those of a move that is refused for their number are not named.
    const bool areNamed = instances_.size() <= composing::MostInstances;
    for (auto instance = instances_.next(); areNamed && instance; instance = instances_.next()) {
        if (told_.contains(instance->sopInstanceUid))
            continue;
        const std::lock_guard lock{mutex_};
        if (operations_.remaining() > 0)
            operations_.fail(instance->sopInstanceUid);
    }
    const std::lock_guard lock{mutex_};
    while (operations_.remaining() > 0)
        operations_.fail();
    lackedRoom_ = true;
}

}  // namespace tessaly::tessalyd
