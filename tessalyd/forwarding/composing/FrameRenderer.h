#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "decoder/JobPlan.h"
#include "tessalyd/forwarding/composing/FrameReader.h"
#include "tessalyd/forwarding/composing/Look.h"
#include "tessalyd/forwarding/films/ImagePixels.h"

namespace tessaly::tessalyd::composing {

/// What a frame on a film may come to, as much as an image that a station sends.
constexpr std::uint64_t MostFrameBytes = std::uint64_t{64} << 20U;

/// The size and the depth in which a frame comes to a film: gray with 12 bits in two bytes, black 0; colours
/// with 8 bits each, by pixel. Throws images::ImageRefusal for more than MostFrameBytes.
[[nodiscard]] films::ImageLayout layoutOf(const FrameReader& frame, const Look& look, const Header& header);

/// Gives the pixels of a frame out as its layout says, row by row, in pieces. Memory is that of some rows.
/// What reading, `take` and `heartbeat` throw comes through.
void renderFrame(FrameReader& frame, const Look& look, const std::function<void(std::span<const char>)>& take,
                 const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::composing
