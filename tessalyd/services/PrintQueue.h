#pragma once

#include <cstddef>
#include <stop_token>
#include <string>

#include "tessalyd/forwarding/films/NewFolder.h"
#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/forwarding/films/PrinterRow.h"
#include "tessalyd/services/ServiceContext.h"

/// The jobs of printers, as services make them. Both calls throw db::Error, and std::runtime_error where the
/// printer has too many jobs already.
namespace tessaly::tessalyd::printqueue {

constexpr std::size_t MostWaiting = 1000;  ///< jobs of one printer

/// Whether there is room for so many more.
void requireRoom(ServiceContext& shared, const films::PrinterRow& printer, std::size_t more,
                 const std::stop_token& stop);

/// Makes a durable job of an order, which is saved in the folder and durable there, and keeps the folder.
/// Returns the UID of its Print Job.
[[nodiscard]] std::string add(ServiceContext& shared, const films::PrintOrder& order,
                              const films::PrinterRow& printer, films::NewFolder& folder,
                              const std::stop_token& stop);

}  // namespace tessaly::tessalyd::printqueue
