#include "ostinel/commandProtocol.h"

#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace Ostinel {

void putLength(char* to, std::uint32_t length)
{
    boost::endian::store_big_u32(reinterpret_cast<unsigned char*>(to), length);
}

std::uint32_t getLength(const char* from)
{
    return boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(from));
}

std::string frameOutput(std::string_view output)
{
    std::string bytes;
    bytes.reserve(output.size() + (output.size() / longestBlock + 1) * lengthSize);
    while (!output.empty()) {
        const std::string_view block = output.substr(0, longestBlock);
        char length[lengthSize];
        putLength(length, static_cast<std::uint32_t>(block.size()));
        bytes.append(length, lengthSize).append(block);
        output.remove_prefix(block.size());
    }
    return bytes;
}

std::string frameEnd(int exitCode)
{
    std::string bytes(2 * lengthSize, '\0');
    putLength(bytes.data(), endMark);
    putLength(bytes.data() + lengthSize, static_cast<std::uint32_t>(exitCode));
    return bytes;
}

bool hasAllWords(std::string_view bytes, std::size_t seen)
{
    constexpr std::string_view end("\0\0", 2);
    return bytes.substr(0, 1) == end.substr(0, 1) || bytes.find(end, seen > 0 ? seen - 1 : 0) != std::string_view::npos;
}

std::vector<std::string> parseWords(std::string_view bytes)
{
    std::vector<std::string> words;
    for (std::size_t end = bytes.find('\0'); end != 0 && end != std::string_view::npos; end = bytes.find('\0')) {
        words.emplace_back(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
    }
    return words;
}

std::string frameWords(const std::vector<std::string>& words)
{
    std::string bytes;
    for (const std::string& word : words) {
        const char* text = word.c_str(); // ends with the word's first zero
        if (*text != '\0') {
            bytes.append(text).push_back('\0');
        }
    }
    bytes.push_back('\0');
    return bytes;
}

bool sendAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (errno == EAGAIN) {
            pollfd writable = {fd, POLLOUT, 0};
            const auto milliseconds = std::chrono::milliseconds(stallDeadline).count();
            const int ready = ::poll(&writable, 1, static_cast<int>(milliseconds));
            if (ready == 0 || (ready < 0 && errno != EINTR)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace Ostinel
