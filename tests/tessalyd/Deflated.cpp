#include "tests/tessalyd/Deflated.h"

#include <zlib.h>

#include <stdexcept>

namespace tessaly::test {

QByteArray deflated(const QByteArray& plain) {
    z_stream stream{};
    if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error{"nothing can be deflated"};
    QByteArray made(static_cast<qsizetype>(::deflateBound(&stream, static_cast<uLong>(plain.size()))), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(plain.data()));
    stream.avail_in = static_cast<uInt>(plain.size());
    stream.next_out = reinterpret_cast<Bytef*>(made.data());
    stream.avail_out = static_cast<uInt>(made.size());
    const int result = ::deflate(&stream, Z_FINISH);
    made.resize(static_cast<qsizetype>(stream.total_out));
    ::deflateEnd(&stream);
    if (result != Z_STREAM_END)
        throw std::runtime_error{"the bytes were not deflated"};
    return made.size() % 2 == 0 ? made : made.append('\0');
}

}  // namespace tessaly::test
