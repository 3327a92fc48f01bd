#include "luvek/vornServerLuvek.h"

bool VornServerLuvek::init()
{
    TRACE_1("LUVEK is not supported on this build");
    return true;
}
