#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <string>

#include "jobs/Runner.h"
#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/forwarding/films/PrinterLink.h"
#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::films {

/// Why an attempt to print has ended. The text is for logs: nothing of a patient.
class PrintFault : public std::runtime_error {
  public:
    PrintFault(jobs::Outcome::Kind kind, const std::string& reason)
        : std::runtime_error(reason), kind_(kind) {}
    [[nodiscard]] jobs::Outcome::Kind kind() const noexcept { return kind_; }

  private:
    jobs::Outcome::Kind kind_;
};

/// Sends the films of an order to a printer, over one association. Belongs to one thread. Every call throws
/// PrintFault, dicom::AssociationFailure if the association is over, and std::system_error where the spool
/// cannot be read.
class FilmSender {
  public:
    struct Environment {
        std::filesystem::path folder;  ///< of the order
        std::chrono::milliseconds answer{60'000};
        std::stop_token stop;
        std::function<void(const std::string&)> log;    ///< a line
        std::function<void(const std::string&)> debug;  ///< the same, with what the printer says in its words
    };

    /// Opens the association, asks how the printer is, and makes the film session. Order and row outlive it.
    FilmSender(const PrintOrder& order, const PrinterRow& printer, Environment environment);

    /// Makes the film with its images and annotations. Nothing is printed yet.
    void prepare(std::size_t film);
    /// Has the printer print it. Throws dicom::AssociationFailure where its answer did not come: nobody knows
    /// then whether it was printed.
    void print();
    /// The printer may forget the film.
    void remove();
    /// Waits a while for what the printer says of its print jobs, and ends the association.
    void finish();

  private:
    using Reply = PrinterLink::Reply;
    struct Instance {
        std::string sopClass;
        std::string uid;
    };

    [[nodiscard]] std::vector<std::string> classes() const;
    void chooseMeta();
    void askStatus();
    void beginSession();
    void createFilm(const Film& film);
    [[nodiscard]] DcmDataset filmAttributes(const Film& film, bool isBare);
    void setImage(const Film& film, unsigned position, const FilmImage& image);
    [[nodiscard]] Reply trySetImage(const Film& film, unsigned position, const FilmImage& image, bool isBare);
    void annotate(const Film& film);
    /// The UID of the LUT at the printer; empty if it does not have it.
    [[nodiscard]] std::string lutAtPrinter(const std::string& key);
    [[nodiscard]] std::string createLut(const PresentationLut& lut);
    [[nodiscard]] const std::string& lutOf(const Film& film, const FilmImage& image) const;

    [[nodiscard]] unsigned pixelBits() const noexcept { return printer_.bits == 8 ? 8 : 12; }
    [[nodiscard]] TargetLayout targetOf(const Film& film, unsigned position, const FilmImage& image) const;
    /// Throws PrintFault unless it is success or a warning, which is logged.
    void require(const Reply& reply, const std::string& what) const;
    /// The answer to a request with all attributes or, where that is refused for one, with the least.
    [[nodiscard]] Reply withRetry(const std::string& what, const std::function<Reply(bool isBare)>& request);
    void noteEvent(const PrinterLink::Event& event);
    void requireNoFailure() const;
    [[nodiscard]] bool isOver(const std::string& printJob);

    const PrintOrder& order_;
    const PrinterRow& printer_;
    Environment environment_;
    bool isColour_;
    std::set<std::string> done_;                      // print jobs of the printer
    std::map<std::string, std::string> failureInfo_;  // of those that failed
    PrinterLink link_;
    const dicom::AcceptedContext* meta_ = nullptr;
    std::string session_;
    std::map<std::string, std::string> luts_;  // at the printer, by their keys
    std::string name_;                         // of the current film, for logs
    std::string film_;
    std::vector<Instance> boxes_;
    std::vector<Instance> annotationBoxes_;
    std::vector<std::string> printJobs_;
};

}  // namespace tessaly::tessalyd::films
