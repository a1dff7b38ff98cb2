#include "tests/tessalyd/Jpeg2000Encoder.h"

#include <openjpeg.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

namespace tessaly::test {

namespace {

void check(bool good, const char* what) {
    if (!good)
        throw std::runtime_error{std::string{"a frame was not coded: "} + what};
}

OPJ_SIZE_T append(void* buffer, OPJ_SIZE_T size, void* target) {
    static_cast<QByteArray*>(target)->append(static_cast<const char*>(buffer), static_cast<qsizetype>(size));
    return size;
}

int sampleAt(const ImageSpec& image, const QByteArray& pixels, qsizetype index, bool isSigned) {
    const auto byte = [&pixels](qsizetype at) { return static_cast<unsigned char>(pixels[at]); };
    if (image.bits == 8)
        return isSigned ? static_cast<signed char>(byte(index)) : byte(index);
    const int word = byte(2 * index) | byte(2 * index + 1) << 8;
    return isSigned ? static_cast<qint16>(word) : word;
}

}  // namespace

QByteArray waveletFrame(const ImageSpec& image, const QByteArray& pixels, const WaveletSpec& spec) {
    opj_cparameters_t parameters;
    opj_set_default_encoder_parameters(&parameters);
    parameters.tcp_numlayers = 1;
    parameters.tcp_rates[0] = spec.lossy ? 8 : 0;
    parameters.cp_disto_alloc = 1;
    parameters.irreversible = spec.lossy ? 1 : 0;
    parameters.tcp_mct = spec.transform ? 1 : 0;
    parameters.numresolution = 4;
    while (1 << (parameters.numresolution - 1) > std::min(image.rows, image.columns))
        --parameters.numresolution;
    if (spec.tile > 0) {
        parameters.tile_size_on = OPJ_TRUE;
        parameters.cp_tdx = spec.tile;
        parameters.cp_tdy = spec.tile;
    }
    std::vector<opj_image_cmptparm_t> components(static_cast<std::size_t>(image.samples));
    for (opj_image_cmptparm_t& one : components) {
        one = {};
        one.dx = one.dy = 1;
        one.w = static_cast<OPJ_UINT32>(image.columns);
        one.h = static_cast<OPJ_UINT32>(image.rows);
        one.prec = static_cast<OPJ_UINT32>(spec.precision == 0 ? image.stored : spec.precision);
        one.sgnd = spec.isSigned ? 1 : 0;
    }
    opj_image_t* const coded = opj_image_create(static_cast<OPJ_UINT32>(image.samples), components.data(),
                                                image.samples == 3 ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY);
    if (coded == nullptr)
        throw std::bad_alloc{};
    coded->x1 = static_cast<OPJ_UINT32>(image.columns);
    coded->y1 = static_cast<OPJ_UINT32>(image.rows);
    const qsizetype count = qsizetype{image.columns} * image.rows;
    for (int sample = 0; sample < image.samples; ++sample) {
        for (qsizetype i = 0; i < count; ++i)
            coded->comps[sample].data[i] = sampleAt(image, pixels, i * image.samples + sample, spec.isSigned);
    }
    QByteArray made;
    opj_codec_t* const codec = opj_create_compress(OPJ_CODEC_J2K);
    opj_stream_t* const stream = opj_stream_create(OPJ_J2K_STREAM_CHUNK_SIZE, OPJ_FALSE);
    opj_stream_set_user_data(stream, &made, nullptr);
    opj_stream_set_write_function(stream, append);
    check(opj_setup_encoder(codec, &parameters, coded) == OPJ_TRUE, "set-up");
    check(opj_start_compress(codec, coded, stream) == OPJ_TRUE, "start");
    check(opj_encode(codec, stream) == OPJ_TRUE, "coding");
    check(opj_end_compress(codec, stream) == OPJ_TRUE, "end");
    opj_stream_destroy(stream);
    opj_destroy_codec(codec);
    opj_image_destroy(coded);
    return made;
}

}  // namespace tessaly::test
