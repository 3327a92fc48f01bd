#include "miravi/miravi.h"

#include "unitLog/unitLog.h"

void miravi_log(std::string_view category, std::string_view text)
{
    unitLogWrite("miravi", {category, text});
}
