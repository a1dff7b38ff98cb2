#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcistrmb.h>

#include <memory>

namespace tessaly::dicom {

/// Lets the toolkit pass over values that are longer than it is told to read. From an ordinary buffer it
/// reads each of them, into memory as large as the length that the sender claims, up to 4 GB.
class SkippingStream final : public DcmInputBufferStream {
  public:
    DcmInputStreamFactory* newFactory() const override { return new Unread; }

  private:
    /// Stands for a value that is not read: there is nothing in it.
    class Unread final : public DcmInputStreamFactory {
      public:
        DcmInputStream* create() const override {
            auto stream = std::make_unique<DcmInputBufferStream>();
            stream->setEos();
            return stream.release();
        }
        DcmInputStreamFactory* clone() const override { return new Unread; }
        DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }
    };
};

}  // namespace tessaly::dicom
