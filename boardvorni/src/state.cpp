#include "state.h"

const char* stateName(State state)
{
    switch (state) {
    case State::DISABLED:
        return "DISABLED";
    case State::STARTING:
        return "STARTING";
    case State::OPERATIONAL:
        return "OPERATIONAL";
    }
    return "Unknown";
}
