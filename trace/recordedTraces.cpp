/// The traces as a list in memory.
#include "trace/recordedTraces.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <utility>

namespace VornTrace {

namespace {

struct Record {
    std::mutex mutex;
    std::condition_variable grown;
    std::vector<RecordedTrace> traces;
};

/// Never destroyed: a thread or a static object may still trace while the process ends.
Record& record()
{
    static Record& instance = *new Record;
    return instance;
}

constinit std::array<std::atomic<bool>, eventCount> disabled{};

/// Enters a trace that `fill` completes. A test whose record has a gap would judge wrongly, so a gap is told.
template <typename Fill>
void enter(Event event, Place place, const char* text, Fill fill) noexcept
try {
    RecordedTrace trace;
    trace.event = event;
    trace.file = place.file;
    trace.line = place.line;
    trace.text = text;
    fill(trace);

    Record& to = record();
    const std::lock_guard lock(to.mutex);
    to.traces.push_back(std::move(trace));
    to.grown.notify_all();
} catch (...) {
    std::fputs("a trace could not be recorded\n", stderr);
}

std::vector<std::uint8_t> copied(const void* bytes, std::size_t size)
{
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    return first != nullptr ? std::vector<std::uint8_t>(first, first + size) : std::vector<std::uint8_t>();
}

/// The first trace at or behind `from` that fulfils the condition. The caller holds the mutex.
template <typename Condition>
auto find(const std::vector<RecordedTrace>& traces, std::size_t from, Condition condition)
{
    const auto begin = traces.begin() + static_cast<std::ptrdiff_t>(std::min(from, traces.size()));
    return std::find_if(begin, traces.end(), condition);
}

template <typename Condition>
bool any(RecordedTraces::Mark mark, Condition condition)
{
    Record& in = record();
    const std::lock_guard lock(in.mutex);
    return find(in.traces, mark, condition) != in.traces.end();
}

auto isText(std::string_view text)
{
    return [text](const RecordedTrace& trace) { return trace.text == text; };
}

auto containsPart(std::string_view part)
{
    return [part](const RecordedTrace& trace) { return trace.text.find(part) != std::string::npos; };
}

} // namespace

bool isEnabled(Event event) noexcept
{
    const auto index = static_cast<std::size_t>(event);
    return index < disabled.size() && !disabled[index].load(std::memory_order_relaxed);
}

void error(Place place, const char* text) noexcept
{
    enter(Event::error, place, text, [](RecordedTrace&) {});
}

void info(Place place, const char* text) noexcept
{
    enter(Event::info, place, text, [](RecordedTrace&) {});
}

void trace(Event event, Place place, const char* object, const char* text) noexcept
{
    enter(event, place, text, [&](RecordedTrace& trace) { trace.object = object; });
}

void recSig(Place place, const char* object, std::uint32_t number, const char* text) noexcept
{
    enter(Event::recSig, place, text, [&](RecordedTrace& trace) {
        trace.object = object;
        trace.number = number;
    });
}

void sendSig(Place place, const char* object, std::uint32_t number, std::uint32_t receiver, const char* text) noexcept
{
    enter(Event::sendSig, place, text, [&](RecordedTrace& trace) {
        trace.object = object;
        trace.number = number;
        trace.receiver = receiver;
    });
}

void data(Place place, const char* object, const char* text, const void* bytes, std::size_t size) noexcept
{
    enter(Event::data, place, text, [&](RecordedTrace& trace) {
        trace.object = object;
        trace.data = copied(bytes, size);
    });
}

void traceUts(Event event, Place place, const Uts& uts, const char* text, const void* bytes, std::size_t size) noexcept
{
    enter(event, place, text, [&](RecordedTrace& trace) {
        trace.sec = uts.sec;
        trace.usec = uts.usec;
        trace.process = uts.process != nullptr ? uts.process : "";
        trace.data = copied(bytes, size);
    });
}

RecordedTraces::Mark RecordedTraces::mark()
{
    Record& in = record();
    const std::lock_guard lock(in.mutex);
    return in.traces.size();
}

std::vector<RecordedTrace> RecordedTraces::since(Mark mark)
{
    Record& in = record();
    const std::lock_guard lock(in.mutex);
    const auto begin = in.traces.begin() + static_cast<std::ptrdiff_t>(std::min(mark, in.traces.size()));
    return {begin, in.traces.end()};
}

bool RecordedTraces::has(std::string_view text, Mark mark)
{
    return any(mark, isText(text));
}

bool RecordedTraces::hasPart(std::string_view part, Mark mark)
{
    return any(mark, containsPart(part));
}

std::size_t RecordedTraces::count(std::string_view text, Mark mark)
{
    const auto traces = since(mark);
    return static_cast<std::size_t>(std::count_if(traces.begin(), traces.end(), isText(text)));
}

std::optional<RecordedTrace> RecordedTraces::waitFor(std::string_view part, Mark mark,
                                                     std::chrono::milliseconds deadline)
{
    const auto until = std::chrono::steady_clock::now() + deadline;
    Record& in = record();
    std::unique_lock lock(in.mutex);
    for (std::size_t from = mark;;) {
        const auto found = find(in.traces, from, containsPart(part));
        if (found != in.traces.end()) {
            return *found;
        }
        from = std::max(mark, in.traces.size());
        if (!in.grown.wait_until(lock, until, [&] { return in.traces.size() > from; })) {
            return std::nullopt;
        }
    }
}

void RecordedTraces::enable(Event event, bool enabled)
{
    disabled.at(static_cast<std::size_t>(event)) = !enabled;
}

} // namespace VornTrace
