#include "tessalyd/forwarding/films/FilmPrinter.h"

#include <optional>

#include "db/Connection.h"
#include "tessalyd/Log.h"
#include "tessalyd/Printable.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/forwarding/films/FilmSender.h"
#include "tessalyd/forwarding/films/PrintProgress.h"

namespace tessaly::tessalyd::films {

namespace {

using jobs::Outcome;
using Kind = Outcome::Kind;

constexpr const char* Uncertainty = " may have been printed: ";

PrinterRow printerOf(const jobs::Attempt& attempt) {
    db::Connection connection;
    connection.setStop([stop = attempt.stop()] { return stop.stop_requested(); });
    openDatabase(connection);
    const auto printers = readPrinters(connection);
    const PrinterRow* const printer = printerNamed(printers, attempt.job().target);
    if (printer == nullptr)
        throw PrintFault{Kind::GiveUp, "there is no printer of this name any more"};
    return *printer;
}

/// One attempt at a job.
class FilmPrinter {
  public:
    FilmPrinter(jobs::Attempt& attempt, const PrintingOptions& options)
        : attempt_(attempt),
          options_(options),
          name_("job " + std::to_string(attempt.job().number) + ", printer " + attempt.job().target),
          progress_(PrintProgress::parse(attempt.job().progress)) {}

    [[nodiscard]] Outcome run() {
        if (progress_.isAsked && !wasRetried())
            return uncertain("the server ended before the printer's answer came");
        try {
            return print();
        } catch (const PrintFault& fault) {
            return ended(fault.kind(), fault.what());
        } catch (const NoSuchOrder& fault) {
            return ended(Kind::GiveUp, fault.what());
        } catch (const dicom::AssociationFailure& failure) {
            const bool isStopped = failure.kind() == dicom::AssociationFailure::Kind::Stopped;
            return ended(isStopped ? Kind::Stopped : Kind::Retry, reasonOf(failure));
        } catch (const std::exception& fault) {
            return ended(attempt_.stop().stop_requested() ? Kind::Stopped : Kind::Retry, fault.what());
        }
    }

  private:
    /// An administrator has seen that a film is uncertain, and wants it. A job that is still said to run was
    /// left by a server that has ended.
    [[nodiscard]] bool wasRetried() const {
        const jobs::Job& job = attempt_.job();
        return job.state == jobs::State::Waiting && job.lastError.find(Uncertainty) != std::string::npos;
    }

    [[nodiscard]] Outcome print() {
        if (progress_.isComplete())
            return {};
        const PrintOrder order = loadOrder(attempt_.job().subject);
        progress_.films = order.films.size();
        if (progress_.isAsked)  // an administrator has it begin with that film
            note(false);
        const PrinterRow printer = printerOf(attempt_);
        FilmSender sender{order,
                          printer,
                          {.folder = attempt_.job().subject,
                           .answer = options_.answer,
                           .stop = attempt_.stop(),
                           .log = [this](const std::string& line) { log(line); },
                           .debug = [this](const std::string& line) { debug(line); }}};
        while (!progress_.isComplete()) {
            sender.prepare(progress_.printed);
            printOne(sender);
            if (!progress_.isComplete())
                sender.remove();
        }
        finish(sender);
        return {};
    }

    void printOne(FilmSender& sender) {
        note(true);
        try {
            sender.print();
        } catch (const PrintFault&) {  // it was answered: the film is not printed
            note(false);
            throw;
        }
        ++progress_.printed;
        try {
            note(false);
        } catch (...) {
            --progress_.printed;
            progress_.isAsked = true;
            throw;
        }
    }

    /// All is printed: what happens to the association now does not matter to the job.
    void finish(FilmSender& sender) {
        try {
            sender.remove();
            sender.finish();
        } catch (const dicom::AssociationFailure& failure) {
            log(std::string{"the films are printed; the association ended: "} + failure.what());
        }
    }

    void note(bool isAsked) {
        const bool before = progress_.isAsked;
        progress_.isAsked = isAsked;
        try {
            attempt_.noteProgress(progress_.note());
        } catch (...) {
            // One that could not be kept may have been, and what the printer was not told it does not do.
            progress_.isAsked = before;
            throw;
        }
    }

    [[nodiscard]] Outcome ended(Kind kind, const std::string& reason) const {
        if (progress_.isAsked)
            return uncertain(reason);
        return {.kind = kind, .reason = reason};
    }

    [[nodiscard]] Outcome uncertain(const std::string& reason) const {
        return {.kind = Kind::Uncertain,
                .reason = "film " + std::to_string(progress_.printed + 1) + Uncertainty + reason};
    }

    [[nodiscard]] static std::string reasonOf(const dicom::AssociationFailure& failure) {
        using Failure = dicom::AssociationFailure::Kind;
        switch (failure.kind()) {
            case Failure::TimedOut:
                return "the printer does not answer";
            case Failure::Unreachable:
                return std::string{"the printer cannot be reached: "} + failure.what();
            case Failure::Rejected:
                return std::string{"the printer rejects the association: "} + failure.what();
            default:
                return std::string{"the association with the printer has ended: "} + failure.what();
        }
    }

    void log(const std::string& line) const {
        OFLOG_INFO(serverLog(), printable(name_ + ": " + line).c_str());
    }
    void debug(const std::string& line) const {
        OFLOG_DEBUG(serverLog(), printable(name_ + ": " + line).c_str());
    }

    jobs::Attempt& attempt_;
    const PrintingOptions& options_;
    std::string name_;
    PrintProgress progress_;
};

}  // namespace

jobs::Handler printHandler(const PrintingOptions& options) {
    return [options](jobs::Attempt& attempt) { return FilmPrinter{attempt, options}.run(); };
}

}  // namespace tessaly::tessalyd::films
