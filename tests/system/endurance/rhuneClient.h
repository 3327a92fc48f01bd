/// A client of the unit: it connects by RHUNE, raises and ceases faults and closes its connection again, and now and
/// then reads a hardware log without ever having connected as a client.
#pragma once

#include "ledger.h"
#include "procedures.h"

#include <cstdint>
#include <string>

namespace Endurance {

class RhuneClient
{
public:
    RhuneClient(Ledger& ledger, const std::string& name, std::uint32_t seed);

    /// Until it is told to go.
    void run();

private:
    bool connect();
    void tellFaults();
    bool close();
    void readLog();
    /// Receives until a signal with one of these numbers comes; null where none does in time.
    OwnedMessage awaitAnswer(std::uint32_t confirm, std::uint32_t reject);
    void rest(unsigned milliseconds);

    template <typename Record, typename Fill>
    void send(std::uint32_t connectionRef, Fill&& fill, std::size_t sizeBehind = 0);

    Ledger& m_ledger;
    Random m_random;
    kiv_mbox_id_t m_own;
    kiv_mbox_id_t m_server;
    std::uint32_t m_connectionRef = 0; ///< the server's
    std::uint32_t m_procedureRef = 0;
};

} // namespace Endurance
