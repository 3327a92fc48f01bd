/// A partner process. It dies with its object, and with the process that started it.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Bench {

class Child
{
public:
    /// With pipes to its standard input and output, or with the input empty and the output thrown away.
    enum class Io { pipes, none };

    Child(const std::string& program, std::vector<std::string> arguments, Io io);
    ~Child();
    Child(Child&& other) noexcept;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    Child& operator=(Child&&) = delete;

    pid_t pid() const { return m_pid; }
    /// That it has used, all threads, in user and in kernel mode.
    std::chrono::nanoseconds processorTime() const;
    void writeLine(const std::string& line) const;
    /// The next line of its output.
    std::string readLine();

private:
    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
    std::string m_buffer;
};

/// A role of this program in a process of its own, started and ready.
Child startRole(std::vector<std::string> arguments);
/// What such a process says when it is.
void sayReady();

/// Where this process and those that it starts run from here on. On one processor a message's cost doesn't depend on
/// where the kernel happened to put the two ends.
enum class Processors { one, all };
void runOn(Processors processors);

/// The folder of this program, in which the server lies too.
std::string programFolder();

} // namespace Bench
