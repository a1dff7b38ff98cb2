// Prints the tables of the conformance statement from those in the code: docs/make-tables puts them into the
// text.

#include <iostream>
#include <string_view>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"

namespace {

using tessaly::dicom::PixelCoding;
using tessaly::dicom::TransferSyntax;

const char* decoding(PixelCoding coding) {
    switch (coding) {
        case PixelCoding::Native:
            return "";
        case PixelCoding::Uncompressed:
            return "taken out of its fragments";
        case PixelCoding::DeflatedFrame:
            return "decoded (zlib)";
        case PixelCoding::RunLength:
            return "decoded (own)";
        case PixelCoding::Jpeg:
        case PixelCoding::JpegLs:
            return "decoded (DCMTK)";
        case PixelCoding::Jpeg2000:
            return "decoded (OpenJPEG)";
        case PixelCoding::Other:
            return "as it came only";
    }
    return "";
}

void printSyntaxes() {
    std::cout << "| transfer syntax | UID | may be lossy | pixel data |\n|---|---|---|---|\n";
    for (const auto& row : tessaly::dicom::transferSyntaxes()) {
        const TransferSyntax syntax{row};
        std::cout << "| " << syntax.name() << " | " << syntax.uid() << " | "
                  << (syntax.isLossy() ? "yes" : "") << " | "
                  << (syntax.isDeflated() ? "inflated (zlib)" : decoding(syntax.coding())) << " |\n";
    }
}

void printClasses() {
    std::cout << "| SOP class | UID |\n|---|---|\n";
    for (const auto& one : tessaly::dicom::storageClasses())
        std::cout << "| " << one.name << " | " << one.uid << " |\n";
}

}  // namespace

int main(int count, char** arguments) {
    using namespace std::string_view_literals;
    if (count != 2 || (arguments[1] != "syntaxes"sv && arguments[1] != "classes"sv)) {
        std::cerr << "conformance_tables syntaxes|classes\n";
        return EXIT_FAILURE;
    }
    if (arguments[1] == "syntaxes"sv)
        printSyntaxes();
    else
        printClasses();
}
