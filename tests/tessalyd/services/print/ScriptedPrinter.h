#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmnet/assoc.h>

#include <QByteArray>
#include <QString>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dicom/net/MessageStream.h"
#include "tessalyd/forwarding/films/AttributeSet.h"

namespace tessaly::test {

/// A printer of our own, one association after the other: prints nothing, remembers what it was told, and
/// answers as a test says.
class ScriptedPrinter {
  public:
    struct Request {
        int association = 0;  ///< from 1 on
        std::string calling;
        std::string called;
        std::string context;  ///< its abstract syntax
        dicom::Command command;
        tessalyd::films::AttributeSet attributes;
        QByteArray pixels;

        [[nodiscard]] bool is(dicom::CommandField field, const char* sopClass) const {
            return command.field() == field && command.sopClassUid() == sopClass;
        }
    };
    struct Event {
        const char* sopClass;
        std::uint16_t type = 0;
        const char* info = "";
    };
    struct Answer {
        std::uint16_t status = 0;
        std::vector<Event> before = {};  ///< reported before the answer, and their responses awaited
        std::vector<Event> after = {};   ///< and behind it, likewise
        enum class End { None, InPlaceOfAnswer, BehindAnswer, Silence } end = End::None;
        std::string printerStatus = "NORMAL";  ///< of N-GET Printer
        std::string jobStatus = "DONE";        ///< of N-GET Print Job
        int boxes = -1;                        ///< image boxes of a film; as many as it has, unless set
    };
    using Script = std::function<Answer(const Request&)>;

    [[nodiscard]] static std::vector<std::string> everything();
    [[nodiscard]] static std::vector<std::string> grayscale();

    /// Without a script everything succeeds. Accepts these SOP classes, in the first of these syntaxes that
    /// is proposed; none: as proposed.
    explicit ScriptedPrinter(Script script = {}, std::vector<std::string> classes = everything(),
                             std::vector<std::string> syntaxes = {});
    ~ScriptedPrinter();
    ScriptedPrinter(const ScriptedPrinter&) = delete;
    ScriptedPrinter& operator=(const ScriptedPrinter&) = delete;

    /// Whether requests() have the pixels; the script sees them in either case.
    std::atomic<bool> keepsPixels = true;

    [[nodiscard]] QString port() const { return QString::number(port_); }
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<Request> requests(dicom::CommandField field, const char* sopClass) const;
    /// Print commands that have come.
    [[nodiscard]] int prints() const;
    [[nodiscard]] int associations() const { return associations_; }
    /// Responses to events.
    [[nodiscard]] std::vector<std::uint16_t> eventAnswers() const;

  private:
    void serve();
    void meet(int socket);
    void accept(T_ASC_Parameters* parameters) const;
    [[nodiscard]] bool takeOne(T_ASC_Association& association, dicom::MessageStream& messages);
    void report(dicom::MessageStream& messages, const T_ASC_Association& association,
                const Event& event) const;
    [[nodiscard]] std::unique_ptr<DcmDataset> dataSetFor(const Request& request, const Answer& answer);

    Script script_;
    std::vector<std::string> classes_;
    std::vector<std::string> syntaxes_;
    int port_ = 0;
    int listener_ = -1;
    std::atomic<bool> ending_ = false;
    std::atomic<int> associations_ = 0;
    std::atomic<int> current_ = -1;  // socket
    int jobs_ = 0;
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    std::vector<std::uint16_t> eventAnswers_;
    std::jthread thread_;
};

}  // namespace tessaly::test
