#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

namespace tessaly::test {

/// Gives each accepted transfer syntax that the toolkit does not know the name of one that it does. The toolkit
/// sends and receives no message in a context whose syntax it does not know, not even a command. To be called
/// when the association is open, and what has been accepted has been noted.
void nameForToolkit(T_ASC_Parameters& parameters);

}  // namespace tessaly::test
