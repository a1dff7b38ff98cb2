#pragma once

#include <QByteArray>

namespace tessaly::test {

/// A raw deflate stream of the bytes, with a byte more where its length would be odd.
[[nodiscard]] QByteArray deflated(const QByteArray& plain);

}  // namespace tessaly::test
