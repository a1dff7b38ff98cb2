#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcostrma.h>

#include <exception>
#include <functional>
#include <limits>
#include <span>

namespace tessaly::dicom {

namespace detail {

/// Hands every block to a function. After it has thrown, blocks are taken and dropped, so that a sender can
/// be listened to until its end and then be answered.
class Sink : public DcmConsumer {
  public:
    using Take = std::function<void(std::span<const char>)>;

    explicit Sink(Take take) : take_(std::move(take)) {}

    OFBool good() const override { return OFTrue; }
    OFCondition status() const override { return EC_Normal; }
    OFBool isFlushed() const override { return OFTrue; }
    offile_off_t avail() const override { return std::numeric_limits<offile_off_t>::max(); }
    void flush() override {}
    offile_off_t write(const void* block, offile_off_t size) override {
        try {
            if (!failure_)
                take_({static_cast<const char*>(block), static_cast<std::size_t>(size)});
        } catch (...) {  // the toolkit in between is not made for exceptions
            failure_ = std::current_exception();
        }
        return size;
    }

    void rethrow() const {
        if (failure_)
            std::rethrow_exception(failure_);
    }

  private:
    Take take_;
    std::exception_ptr failure_;
};

}  // namespace detail

/// The DICOM toolkit's output stream into a function. What the function throws comes out of rethrow().
class SinkStream final : private detail::Sink, public DcmOutputStream {
  public:
    explicit SinkStream(Take take) : Sink(std::move(take)), DcmOutputStream(static_cast<Sink*>(this)) {}

    using Sink::rethrow;
};

}  // namespace tessaly::dicom
