#include "vornclient/screen.h"

#include <cstring>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace VornClient {

Screen currentScreen()
{
    Screen screen;
    screen.isTerminal = ::isatty(STDOUT_FILENO) != 0;
    screen.isUtf8 = std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0;
    winsize size{};
    if (screen.isTerminal && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        screen.columns = size.ws_col;
    }
    return screen;
}

} // namespace VornClient
