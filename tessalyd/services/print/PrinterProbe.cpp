#include "tessalyd/services/print/PrinterProbe.h"

#include <memory>

#include "base/TcpPort.h"
#include "dicom/net/HostLookup.h"
#include "dicom/net/transport/BoundedTransport.h"

namespace tessaly::tessalyd::print {

namespace {

constexpr std::chrono::milliseconds Limit{2000};
constexpr std::chrono::seconds Holds{1};
constexpr std::size_t MostKept = 256;

bool canConnect(const films::PrinterRow& printer, const std::stop_token& stop) {
    const auto port = base::tcpPort(printer.port);
    if (!port)
        return false;
    const auto until = std::chrono::steady_clock::now() + Limit;
    dicom::HostAddresses host = dicom::lookUpHost(printer.host, until, stop);
    for (dicom::SocketAddress& address : host.addresses)
        address.setPort(*port);
    if (host.addresses.empty())
        return false;
    dicom::BoundedTransport transport{std::make_shared<dicom::IoLimits>(stop, until)};
    return transport.connect(host.addresses, Limit).has_value();
}

}  // namespace

bool PrinterProbe::isReachable(const films::PrinterRow& printer, const std::stop_token& stop) {
    const std::string key = printer.host + ':' + printer.port;
    {
        const std::lock_guard lock{mutex_};
        const auto known = found_.find(key);
        if (known != found_.end() && Clock::now() < known->second.time + Holds)
            return known->second.isReachable;
    }
    const bool isReachable = canConnect(printer, stop);
    const std::lock_guard lock{mutex_};
    if (found_.size() >= MostKept)
        found_.clear();
    found_.insert_or_assign(key, Found{.time = Clock::now(), .isReachable = isReachable});
    return isReachable;
}

}  // namespace tessaly::tessalyd::print
