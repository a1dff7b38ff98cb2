#include "dicom/data/PrintableText.h"

namespace tessaly::dicom {

void appendHexadecimal(std::string& text, unsigned value, int digits) {
    constexpr std::string_view Digits = "0123456789abcdef";
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        text += Digits[(value >> static_cast<unsigned>(shift)) & 0xfU];
}

std::string printableAscii(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        if (c >= ' ' && c <= '~')
            text += c;
        else
            appendHexadecimal(text += "\\x", static_cast<unsigned char>(c), 2);
    }
    return text;
}

}  // namespace tessaly::dicom
