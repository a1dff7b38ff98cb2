#pragma once

#include "db/Error.h"

namespace tessaly::test {

/// The error that the body throws; one that says so when it throws none.
template <class Body>
db::Error faultOf(Body body) {
    try {
        body();
    } catch (const db::Error& fault) {
        return fault;
    }
    return db::Error{"nothing was thrown"};
}

}  // namespace tessaly::test
