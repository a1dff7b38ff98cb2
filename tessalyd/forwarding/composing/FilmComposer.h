#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "decoder/Interest.h"
#include "decoder/Pool.h"
#include "jobs/Spool.h"
#include "tessalyd/forwarding/composing/Survey.h"
#include "tessalyd/forwarding/films/NewFolder.h"
#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::composing {

// What is composed at once: beyond it nothing is.
constexpr std::size_t MostFilms = 200;
constexpr std::size_t MostInstances = MostFilms * films::DisplayFormat::MostBoxes;
constexpr std::uint64_t MostSpoolBytes = std::uint64_t{4} << 30U;

/// Composing cannot begin, or not go on: there is no room. The text is for the log.
class NoRoom : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What a composer is given.
struct Composition {
    films::PrinterRow printer;
    std::string callingAeTitle;  ///< that the printer is called with
    std::string originator;      ///< whoever asks
    std::string baseUid;
    jobs::Spool spool;
    decoder::Pool& decoders;
    decoder::Interest interest;

    /// So many films are to come. Throws where there is no room for them.
    std::function<void(std::size_t films)> announce;
    /// Makes a job of an order that is in its folder and durable, and keeps the folder. Throws where it
    /// cannot.
    std::function<void(const films::PrintOrder&, films::NewFolder& folder)> queue;
    /// An instance is on films that are queued.
    std::function<void(const std::string& sopInstanceUid)> completed;
    Failed failed;
    std::function<void(const std::string& line)> log;
};

/// Composes films of the instances, study by study, and queues each as soon as it is full. Of every instance
/// it tells whether it was completed or has failed, unless it throws: NoRoom, also for what `announce` and
/// `queue` throw, and decoder::Abandoned on a stop. The film that is being composed then leaves nothing.
/// Belongs to one thread.
void composeFilms(const Composition& composition, InstanceList& instances);

}  // namespace tessaly::tessalyd::composing
