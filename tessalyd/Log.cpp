#include "tessalyd/Log.h"

#include <dcmtk/oflog/fileap.h>
#include <dcmtk/oflog/layout.h>
#include <dcmtk/oflog/spi/filter.h>
#include <dcmtk/oflog/spi/logevent.h>

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string_view>
#include <system_error>

#include "tessalyd/Printable.h"

namespace tessaly::tessalyd {

namespace {

using namespace dcmtk::log4cplus;

constexpr int KeptFiles = 5;

/// Drops warnings while the level is below theirs. In the order of the levels an ordinary message comes
/// before a warning, in the library's the other way round: a threshold alone cannot say that.
class WarningFilter final : public spi::Filter {
  public:
    static std::atomic<bool> drop;

    spi::FilterResult decide(const spi::InternalLoggingEvent& event) const override {
        return drop && event.getLogLevel() == WARN_LOG_LEVEL ? spi::DENY : spi::NEUTRAL;
    }
};

std::atomic<bool> WarningFilter::drop{false};

/// One line an event, whatever the peers, the tables or the toolkit put into it; a dump keeps its lines. All
/// messages pass through here, so that no caller has to think of it.
class EventLayout final : public Layout {
  public:
    void formatAndAppend(tostream& output, const spi::InternalLoggingEvent& event) override {
        const tstring& message = event.getMessage();
        std::string_view text{message.c_str(), message.length()};
        const LineFeeds lineFeeds = isDump(event) ? LineFeeds::Kept : LineFeeds::Escaped;
        if (lineFeeds == LineFeeds::Kept && text.ends_with('\n'))
            text.remove_suffix(1);
        const std::string shown = printable(text, lineFeeds);
        // The library begins each line of a message as an entry of its own.
        pattern_.formatAndAppend(
            output, spi::InternalLoggingEvent{event.getLoggerName(), event.getLogLevel(), event.getNDC(),
                                              event.getMDCCopy(), tstring{shown.data(), shown.size()},
                                              event.getThread(), event.getTimestamp(), event.getFile(),
                                              event.getLine()});
    }

  private:
    static bool isDump(const spi::InternalLoggingEvent& event) {
        const std::string_view logger{event.getLoggerName().c_str()};
        return logger.starts_with("dump.") ||
               (logger.starts_with("dcmtk") && event.getLogLevel() <= DEBUG_LOG_LEVEL);
    }

    PatternLayout pattern_{"%D{%Y-%m-%d %H:%M:%S.%q} %5p [%t] %c: %m%n"};
};

/// Begins the file anew when somebody has removed or renamed it: a log that has no name any more would grow
/// unseen. A file that cannot be opened loses the messages meanwhile, and is tried again every second.
class LogAppender final : public RollingFileAppender {
  public:
    LogAppender(const std::filesystem::path& file, long maxBytes)
        : RollingFileAppender(file.c_str(), maxBytes, KeptFiles, true), path_(file), opened_(named()) {}
    ~LogAppender() override { destructorImpl(); }
    LogAppender(const LogAppender&) = delete;
    LogAppender& operator=(const LogAppender&) = delete;

  protected:
    void append(const spi::InternalLoggingEvent& event) override {
        if (const auto now = Clock::now(); now - checked_ >= CheckInterval) {
            checked_ = now;
            reopenUnlessNamed();
        }
        RollingFileAppender::append(event);
    }

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds CheckInterval{500};
    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(const Identity&) const = default;
    };

    [[nodiscard]] std::optional<Identity> named() const {
        struct stat found {};
        if (::stat(path_.c_str(), &found) < 0)
            return std::nullopt;
        return Identity{found.st_dev, found.st_ino};
    }

    void reopenUnlessNamed() {
        if (const auto found = named(); found && found == opened_)
            return;
        out.close();
        out.clear();
        std::error_code ignored;  // what cannot be made cannot be opened either
        if (path_.has_parent_path())
            std::filesystem::create_directories(path_.parent_path(), ignored);
        open(std::ios::app);
        opened_ = named();
    }

    std::filesystem::path path_;
    std::optional<Identity> opened_;
    Clock::time_point checked_ = Clock::now();
};

dcmtk::log4cplus::LogLevel ownThreshold(tessalyd::LogLevel level) {
    switch (level) {
        case tessalyd::LogLevel::Errors:
            return ERROR_LOG_LEVEL;
        case tessalyd::LogLevel::Normal:
        case tessalyd::LogLevel::Warnings:
            return INFO_LOG_LEVEL;
        case tessalyd::LogLevel::Debug:
            break;
    }
    return DEBUG_LOG_LEVEL;
}

/// What matters of the toolkit's messages comes in the server's own words; the toolkit's may quote an object.
dcmtk::log4cplus::LogLevel toolkitThreshold(tessalyd::LogLevel level) {
    switch (level) {
        case tessalyd::LogLevel::Errors:
        case tessalyd::LogLevel::Normal:
            return OFF_LOG_LEVEL;
        case tessalyd::LogLevel::Warnings:
            return WARN_LOG_LEVEL;
        case tessalyd::LogLevel::Debug:
            break;
    }
    return DEBUG_LOG_LEVEL;
}

}  // namespace

const OFLogger& serverLog() {
    static const OFLogger logger = OFLog::getLogger("tessalyd");
    return logger;
}

const OFLogger& dumpLog(Dump layer) {
    static const OFLogger socket = OFLog::getLogger("dump.socket");
    static const OFLogger dul = OFLog::getLogger("dcmtk.dcmnet");
    static const OFLogger vr = OFLog::getLogger("dump.vr");
    static const OFLogger association = OFLog::getLogger("dump.association");
    switch (layer) {
        case Dump::Socket:
            return socket;
        case Dump::Dul:
            return dul;
        case Dump::Vr:
            return vr;
        case Dump::Association:
            break;
    }
    return association;
}

LogFile::LogFile(const std::filesystem::path& file, long maxBytes) {
    if (file.has_parent_path())
        std::filesystem::create_directories(file.parent_path());
    SharedAppenderPtr appender{new LogAppender{file, maxBytes}};
    appender->setLayout(OFunique_ptr<Layout>{new EventLayout});
    appender->setFilter(spi::FilterPtr{new WarningFilter});
    Logger root = Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(appender);
    root.setLogLevel(ERROR_LOG_LEVEL);
    apply({});
}

LogFile::~LogFile() {
    Logger::getRoot().removeAllAppenders();
}

void LogFile::apply(const LogOptions& options) {
    WarningFilter::drop = options.level < tessalyd::LogLevel::Warnings;
    Logger::getInstance("tessalyd").setLogLevel(ownThreshold(options.level));
    Logger::getInstance("dcmtk").setLogLevel(toolkitThreshold(options.level));
    // The upper layer is the toolkit's: its state machine and its PDUs come at its most talkative level.
    Logger dul = dumpLog(Dump::Dul);
    dul.setLogLevel(options.dumps(Dump::Dul) ? TRACE_LOG_LEVEL : NOT_SET_LOG_LEVEL);
    for (const Dump layer : {Dump::Socket, Dump::Vr, Dump::Association}) {
        Logger logger = dumpLog(layer);
        logger.setLogLevel(options.dumps(layer) ? DEBUG_LOG_LEVEL : OFF_LOG_LEVEL);
    }
}

}  // namespace tessaly::tessalyd
