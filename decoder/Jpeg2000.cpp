#include "decoder/Jpeg2000.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace tessaly::decoder {

namespace {

using Codec = std::unique_ptr<opj_codec_t, decltype([](opj_codec_t* codec) { opj_destroy_codec(codec); })>;
using Stream =
    std::unique_ptr<opj_stream_t, decltype([](opj_stream_t* stream) { opj_stream_destroy(stream); })>;
using Image = std::unique_ptr<opj_image_t, decltype([](opj_image_t* image) { opj_image_destroy(image); })>;

constexpr auto AtEnd = static_cast<OPJ_SIZE_T>(-1);

/// What the library reads from.
struct Source {
    Bytes bytes;
    std::size_t at = 0;

    static OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T size, void* self) {
        auto& source = *static_cast<Source*>(self);
        const std::size_t count = std::min<std::size_t>(size, source.bytes.size() - source.at);
        if (count == 0)
            return AtEnd;
        std::memcpy(buffer, source.bytes.data() + source.at, count);
        source.at += count;
        return count;
    }
    static OPJ_OFF_T skip(OPJ_OFF_T size, void* self) {
        auto& source = *static_cast<Source*>(self);
        const std::size_t left = source.bytes.size() - source.at;
        if (size < 0 || static_cast<std::size_t>(size) > left)
            return -1;
        source.at += static_cast<std::size_t>(size);
        return size;
    }
    static OPJ_BOOL seek(OPJ_OFF_T at, void* self) {
        auto& source = *static_cast<Source*>(self);
        if (at < 0 || static_cast<std::size_t>(at) > source.bytes.size())
            return OPJ_FALSE;
        source.at = static_cast<std::size_t>(at);
        return OPJ_TRUE;
    }
};

Image decode(Bytes bytes) {
    Source source{bytes};
    const Codec codec{opj_create_decompress(OPJ_CODEC_J2K)};
    const Stream stream{
        opj_stream_create(std::min<std::size_t>(bytes.size(), OPJ_J2K_STREAM_CHUNK_SIZE), OPJ_TRUE)};
    if (!codec || !stream)
        return nullptr;
    opj_stream_set_user_data(stream.get(), &source, nullptr);
    opj_stream_set_user_data_length(stream.get(), bytes.size());
    opj_stream_set_read_function(stream.get(), Source::read);
    opj_stream_set_skip_function(stream.get(), Source::skip);
    opj_stream_set_seek_function(stream.get(), Source::seek);
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    opj_image_t* made = nullptr;
    // Strictly: what is cut off within a tile is no image.
    if (opj_setup_decoder(codec.get(), &parameters) == OPJ_FALSE ||
        opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE) == OPJ_FALSE ||
        opj_read_header(stream.get(), codec.get(), &made) == OPJ_FALSE) {
        opj_image_destroy(made);
        return nullptr;
    }
    Image image{made};
    if (opj_decode(codec.get(), stream.get(), image.get()) == OPJ_FALSE ||
        opj_end_decompress(codec.get(), stream.get()) == OPJ_FALSE)
        return nullptr;
    return image;
}

bool matches(const opj_image_t& image, const CodeStream& described) {
    if (image.numcomps != described.components)
        return false;
    return std::all_of(image.comps, image.comps + image.numcomps, [&](const opj_image_comp_t& component) {
        return component.data != nullptr && component.w == described.columns &&
               component.h == described.rows && component.prec == described.precision &&
               (component.sgnd != 0) == described.isSigned;
    });
}

}  // namespace

bool decodeJpeg2000(Bytes stream, const CodeStream& described, const ImageDescription& image,
                    std::span<unsigned char> target) {
    const Image decoded = decode(stream);
    if (!decoded || !matches(*decoded, described))
        return false;
    const std::size_t samples = described.components;
    const std::size_t pixels = std::size_t{described.rows} * described.columns;
    const std::size_t bytes = image.bitsAllocated / 8U;
    if (target.size() != pixels * samples * bytes)
        return false;
    // What is negative by the header alone is so by its highest bit.
    const bool isExtended = image.pixelRepresentation != 0 && !described.isSigned;
    const std::uint32_t sign = std::uint32_t{1} << (described.precision - 1);
    for (std::size_t sample = 0; sample < samples; ++sample) {
        const OPJ_INT32* const values = decoded->comps[sample].data;
        unsigned char* to = target.data() + sample * bytes;
        for (std::size_t i = 0; i < pixels; ++i, to += samples * bytes) {
            auto value = static_cast<std::uint32_t>(values[i]);
            if (isExtended)
                value = (value ^ sign) - sign;
            to[0] = static_cast<unsigned char>(value);
            if (bytes == 2)
                to[1] = static_cast<unsigned char>(value >> 8U);
        }
    }
    return true;
}

}  // namespace tessaly::decoder
