#include "jobs/Job.h"

namespace tessaly::jobs {

const char* nameOf(State state) {
    switch (state) {
        case State::Waiting:
            return "waiting";
        case State::Running:
            return "running";
        case State::Done:
            return "done";
        case State::GivenUp:
            return "given up";
        case State::Uncertain:
            return "uncertain";
    }
    return "unknown";
}

}  // namespace tessaly::jobs
