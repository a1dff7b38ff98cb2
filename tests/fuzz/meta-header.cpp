// Files that are taken for DICOM objects: what their meta headers say is read here, not by the DICOM toolkit.

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "dicom/data/ObjectFile.h"
#include "tests/fuzz/Fuzz.h"

/// What is accepted has a name and a data set that lies in the file to its end.
void tessaly::fuzz::tryInput(std::string_view input) {
    const int file = ::memfd_create("input", MFD_CLOEXEC);
    require(file >= 0 && ::write(file, input.data(), input.size()) == static_cast<ssize_t>(input.size()));
    try {
        dicom::ObjectFile object{"/proc/self/fd/" + std::to_string(file)};
        require(!object.sopInstanceUid().empty() && !object.kind().sopClass.empty());
        require(object.dataSetAt() + object.size() == input.size());
        std::vector<char> bytes(object.size());
        object.read(bytes);
        require(std::equal(bytes.begin(), bytes.end(), input.end() - static_cast<long>(bytes.size())));
    } catch (const std::runtime_error&) {  // no object
    }
    ::close(file);
}
