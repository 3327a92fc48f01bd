#include "runDir.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace {

const std::string& root()
{
    static const std::string directory = [] {
        const char* value = std::getenv("RU_DIR");
        return std::string(value != nullptr && *value != '\0' ? value : "/run/ru");
    }();
    return directory;
}

} // namespace

std::string ruDir(const char* folder)
{
    return root() + '/' + folder;
}

std::string makeRuDir(const char* folder, int& error)
{
    std::string path = ruDir(folder);
    error = 0;
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string parent = path.substr(0, end);
        if (::mkdir(parent.c_str(), 0700) != 0 && errno != EEXIST) {
            error = errno;
            break;
        }
        if (end == std::string::npos) {
            break;
        }
    }
    return path;
}
