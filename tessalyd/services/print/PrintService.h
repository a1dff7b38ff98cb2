#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tessalyd/association/Service.h"
#include "tessalyd/forwarding/films/AttributeSet.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/print/AssociationSpool.h"
#include "tessalyd/services/print/PrintJobs.h"
#include "tessalyd/services/print/PrintState.h"
#include "tessalyd/services/print/PrinterProbe.h"

namespace tessaly::tessalyd::print {

/// Print management as SCP (PS3.4, annex H): takes films, and has them printed by jobs. What a requestor
/// creates lives as long as its association; what it has had printed does not need it any more.
class PrintService final : public Service {
  public:
    /// All outlive it.
    PrintService(ServiceContext& shared, PrinterProbe& probe, const PortConfiguration& port,
                 const AssociationNames& peer);

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] bool hasNews(const Association& association) override {
        return PrintJobs::canReport(association);
    }
    void whileIdle(Association& association) override { jobs_.report(association); }
    [[nodiscard]] std::string summary() const override;

  private:
    struct Answer {
        std::uint16_t status = 0;
        std::string instance = {};  ///< that was created
        std::unique_ptr<DcmDataset> dataSet = {};
    };
    using Operation = Answer (PrintService::*)(const Request&, Association&);
    struct Entry {
        const char* sopClass;
        CommandField command;
        Operation operation;
    };
    [[nodiscard]] static Operation operationFor(const Request& request);

    // Film session, film box and the rest, one after the other: FilmRequests.cpp, BoxRequests.cpp.
    Answer createSession(const Request& request, Association& association);
    Answer setSession(const Request& request, Association& association);
    Answer deleteSession(const Request& request, Association& association);
    Answer printSession(const Request& request, Association& association);
    Answer createFilm(const Request& request, Association& association);
    Answer setFilm(const Request& request, Association& association);
    Answer deleteFilm(const Request& request, Association& association);
    Answer printFilm(const Request& request, Association& association);
    Answer setImage(const Request& request, Association& association);
    Answer setAnnotation(const Request& request, Association& association);
    Answer createLut(const Request& request, Association& association);
    Answer deleteLut(const Request& request, Association& association);
    Answer getPrinter(const Request& request, Association& association);
    Answer getJob(const Request& request, Association& association);

    [[nodiscard]] films::AttributeSet receive(const Request& request, Association& association,
                                              PixelFile* pixels = nullptr);
    void requirePrinter(Association& association);
    /// The UID that the requestor gives to what it creates, or a new one.
    [[nodiscard]] std::string nameOf(const Request& request);
    [[nodiscard]] std::unique_ptr<DcmDataset> filmAnswer(const std::string& uid,
                                                         const PrintState::FilmBox& box) const;
    [[nodiscard]] std::string lutFor(const films::AttributeSet& sent, bool& isUnusable) const;
    void removeFilm(const std::string& uid);
    [[nodiscard]] Answer print(const std::vector<std::string>& films, const PrintState::Session& session,
                               bool isSession, Association& association);
    [[nodiscard]] films::PrintOrder orderFor(const std::vector<std::string>& films,
                                             const PrintState::Session& session,
                                             const Association& association) const;

    ServiceContext& shared_;
    PrinterProbe& probe_;
    AssociationSpool spool_;
    std::string calledAeTitle_;
    PrintState state_;
    bool hasPrinter_ = false;
    PrintJobs jobs_;
    std::size_t films_ = 0;
};

}  // namespace tessaly::tessalyd::print
