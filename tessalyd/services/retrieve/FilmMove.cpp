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
      progress_(instances_.size()),
      thread_([this](const std::stop_token& stop) { run(stop); }) {}

FilmMove::~FilmMove() {
    thread_.request_stop();
    thread_.join();
}

void FilmMove::cancel() {
    thread_.request_stop();
    progress_.awaitEnd();
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
    progress_.end();
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
                progress_.complete();
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
    progress_.fail(uid);
}

void FilmMove::failRest() {
    instances_.restart();
    // Those of a move that is refused for their number are not named.
    const bool areNamed = instances_.size() <= composing::MostInstances;
    for (auto instance = instances_.next(); areNamed && instance; instance = instances_.next()) {
        if (!told_.contains(instance->sopInstanceUid) && progress_.remaining() > 0)
            progress_.fail(instance->sopInstanceUid);
    }
    progress_.failRest();
    lackedRoom_ = true;
}

}  // namespace tessaly::tessalyd
