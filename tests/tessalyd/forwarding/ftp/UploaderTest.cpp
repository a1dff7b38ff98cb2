#include "tests/tessalyd/forwarding/ftp/UploaderTest.h"
