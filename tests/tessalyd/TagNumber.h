#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <QtGlobal>

// A tag as a number, which the rows of a test's table can have: group and element as they are written.

namespace tessaly::test {

[[nodiscard]] inline quint32 tagNumber(const DcmTagKey& tag) {
    return static_cast<quint32>(tag.getGroup()) << 16U | tag.getElement();
}

[[nodiscard]] inline DcmTagKey tagOf(quint32 number) {
    return {static_cast<Uint16>(number >> 16U), static_cast<Uint16>(number & 0xffffU)};
}

}  // namespace tessaly::test
