#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <QByteArray>
#include <QString>
#include <optional>
#include <string>
#include <vector>

#include "dicom/net/MessageStream.h"
#include "tessalyd/forwarding/films/AttributeSet.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

/// What an image box is given.
struct PrintImage {
    int rows = 16;
    int columns = 16;
    int samples = 1;
    int allocated = 16;
    int stored = 12;
    int planar = 1;
    const char* interpretation = "MONOCHROME2";
    QByteArray pixels = {};  ///< empty: a pattern that fits

    [[nodiscard]] qsizetype bytes() const { return qsizetype{rows} * columns * samples * allocated / 8; }
    /// Of the pattern, where none are given.
    [[nodiscard]] QByteArray content() const;
    [[nodiscard]] static PrintImage eightBits() { return {.allocated = 8, .stored = 8}; }
    [[nodiscard]] static PrintImage colour() {
        return {.samples = 3, .allocated = 8, .stored = 8, .interpretation = "RGB"};
    }
};

/// A station of our own: print requests over one association, step by step.
class PrintStation {
  public:
    using CommandField = dicom::CommandField;
    using Attributes = std::vector<std::pair<DcmTagKey, std::string>>;

    /// All that a station proposes: both meta classes, Presentation LUT, annotation, Print Job and Printer.
    [[nodiscard]] static std::vector<RequestorAssociation::Context> everything(const char* syntax = nullptr);

    explicit PrintStation(const QString& port, const std::string& calling = "STATION",
                          const std::string& called = "TESSALY",
                          const std::vector<RequestorAssociation::Context>& contexts = everything());

    struct Reply {
        int status = -1;  ///< -1: none came
        std::string instance;
        std::string comment;
        tessalyd::films::AttributeSet attributes;
        [[nodiscard]] QString text(const DcmTagKey& tag) const;
        [[nodiscard]] std::vector<std::string> references(const DcmTagKey& sequence) const;
    };
    /// Sends a request; the context is that of the class, or the first meta class that has it.
    Reply request(CommandField field, const std::string& sopClass, const std::string& instance,
                  DcmDataset* dataSet = nullptr, std::optional<int> action = {});
    /// With a data set that is whatever the bytes are.
    Reply requestBytes(CommandField field, const std::string& sopClass, const std::string& instance,
                       const QByteArray& dataSet);
    /// Requests about film sessions and film boxes go in the colour context from now on.
    void useColour() { isColour_ = true; }
    void setContext(int index) { context_ = index; }

    Reply createSession(const Attributes& attributes = {}, const std::string& uid = "1.2.3.100");
    Reply createFilm(const std::string& format, const Attributes& attributes = {},
                     const std::string& uid = "1.2.3.200", const std::string& session = "1.2.3.100",
                     const std::string& lut = {});
    Reply setImage(const std::string& box, int position, const PrintImage& image = {},
                   const Attributes& attributes = {}, const std::string& lut = {});
    Reply eraseImage(const std::string& box, int position);
    Reply printFilm(const std::string& uid = "1.2.3.200");
    Reply printSession(const std::string& uid = "1.2.3.100");
    /// A film with as many images as its format has boxes, printed. Gives the answer to the print command.
    Reply printAll(const std::string& format, const PrintImage& image = {}, const Attributes& session = {},
                   const Attributes& film = {});

    struct Event {
        int type = 0;
        std::string instance;
        std::string info;
    };
    /// Waits for the next event, and answers it with the status, or not at all.
    [[nodiscard]] std::optional<Event> nextEvent(std::optional<std::uint16_t> answer = 0);
    /// Those that came while responses were waited for, and were answered.
    [[nodiscard]] const std::vector<Event>& events() const { return events_; }

    [[nodiscard]] RequestorAssociation& association() { return association_; }
    /// Aborts instead where an event comes meanwhile: the toolkit expects nothing but the answer.
    void release();

    static void put(DcmItem& target, const Attributes& attributes);
    [[nodiscard]] DcmDataset imageDataSet(int position, const PrintImage& image, const Attributes& attributes,
                                          const std::string& lut) const;

  private:
    [[nodiscard]] dicom::AcceptedContext contextFor(const std::string& sopClass) const;
    [[nodiscard]] dicom::Command commandOf(CommandField field, const std::string& sopClass,
                                           const std::string& instance, std::optional<int> action);
    Reply receiveReply(std::uint16_t messageId);
    [[nodiscard]] Event eventOf(const dicom::MessageStream::Received& received,
                                std::optional<std::uint16_t> answer);
    [[nodiscard]] tessalyd::films::AttributeSet attributesOf(const dicom::MessageStream::Received& received);

    RequestorAssociation association_;
    dicom::MessageStream messages_;
    bool isColour_ = false;
    std::optional<int> context_;
    std::vector<Event> events_;
};

}  // namespace tessaly::test
