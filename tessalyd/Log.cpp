#include "tessalyd/Log.h"

#include <dcmtk/oflog/fileap.h>
#include <dcmtk/oflog/layout.h>
#include <dcmtk/oflog/spi/filter.h>
#include <dcmtk/oflog/spi/logevent.h>

#include <atomic>

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
    SharedAppenderPtr appender{new RollingFileAppender{file.c_str(), maxBytes, KeptFiles, true}};
    appender->setLayout(
        OFunique_ptr<Layout>{new PatternLayout{"%D{%Y-%m-%d %H:%M:%S.%q} %5p [%t] %c: %m%n"}});
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
