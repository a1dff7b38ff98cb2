#pragma once

#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "dicom/OutgoingObject.h"

namespace tessaly::tessalyd {

/// Brings objects into other syntaxes, each in a thread of its own: nothing ends a decoder, and an object of
/// many frames takes it long. Whoever does not want the object any more goes on at once, and the decoder
/// comes to its end for nobody. Thread-safe.
class Conversions {
  public:
    /// So many may go on for nobody. Each has an object in memory; who leaves one more waits for it.
    static constexpr std::size_t MostLeft = 4;

    Conversions() = default;
    /// Waits for all that go on.
    ~Conversions() = default;
    Conversions(const Conversions&) = delete;
    Conversions& operator=(const Conversions&) = delete;

    using Object = std::unique_ptr<dicom::OutgoingObject>;
    /// What object->in(syntax) comes to, of an object that nobody else uses. Asks `giveUp` several times a
    /// second meanwhile: nothing once it says true. What giveUp throws comes through.
    [[nodiscard]] Object convert(const std::shared_ptr<dicom::OutgoingObject>& object,
                                 const std::string& syntax, const std::function<bool()>& giveUp);

  private:
    struct Running {
        std::future<Object> result;
        std::jthread thread;
    };
    void leave(Running running);

    std::mutex mutex_;
    std::list<Running> left_;
};

}  // namespace tessaly::tessalyd
