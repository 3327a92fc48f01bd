/// The exchanges with the software manager that are in progress.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One exchange; where a ticket is granted, for the whole time that its client holds it.
struct GantiRequestRecord {
    std::uint32_t req = 0;          ///< number of the signal that the record stands for
    std::uint32_t prevReq = 0;      ///< that which it stood for before, or 0
    std::uint32_t clientRef = 0;    ///< of the signal that made the record
    std::uint32_t serverRef = 0;    ///< of that signal
    std::uint32_t procRef = 0;      ///< of the exchange; given by GantiRequestRecords
    std::uint32_t resource = 0;     ///< that is acquired; of a software list the last end flag
    std::uint32_t ticket = 0;       ///< 0 until it is known
    std::uint32_t mbox = 0;         ///< where the answers go
    std::uint32_t endClientRef = 0; ///< clientRef of the signal that ended the record; of a block its lmSeqNr
    std::string text{};             ///< the load module; of a software list the text that is still to be sent
    std::string runningSw{};        ///< name of the running software
};

/// The records in the order of their creation; a search finds the first. They are few. What a search gives is valid
/// until a record is appended or removed.
class GantiRequestRecords
{
public:
    /// Appends a record under the next procedure reference.
    GantiRequestRecord& append(GantiRequestRecord record);
    /// The last procedure reference that was given; 0 at first. It wraps.
    std::uint32_t lastProcRef() const { return m_lastProcRef; }

    // Null where there is none.
    GantiRequestRecord* findByProcRef(std::uint32_t procRef);
    GantiRequestRecord* findByTicket(std::uint32_t procRef, std::uint32_t ticket);
    GantiRequestRecord* findByServerRef(std::uint32_t procRef, std::uint32_t serverRef);
    GantiRequestRecord* findRequest(std::uint32_t req, std::uint32_t serverRef);
    GantiRequestRecord* findRequest(std::uint32_t req, std::uint32_t serverRef, std::uint32_t resource);

    void remove(const GantiRequestRecord& record);
    void removeAllOfTicket(std::uint32_t ticket);

    bool empty() const { return m_records.empty(); }
    const std::vector<GantiRequestRecord>& all() const { return m_records; }
    GantiRequestRecord& last() { return m_records.back(); }

    /// Sorts the records by `req`, highest first, and walks from the last to the first. Those that `isOver` holds for
    /// are removed, each before the next is looked at; their number.
    template <typename Predicate>
    std::size_t removeLowestFirst(Predicate&& isOver)
    {
        sortHighestFirst();
        std::size_t removed = 0;
        for (std::size_t i = m_records.size(); i-- > 0;) {
            if (isOver(m_records[i])) {
                remove(m_records[i]);
                ++removed;
            }
        }
        return removed;
    }

private:
    template <typename Predicate>
    GantiRequestRecord* find(Predicate&& predicate);
    void sortHighestFirst();

    std::vector<GantiRequestRecord> m_records;
    std::uint32_t m_lastProcRef = 0;
};
