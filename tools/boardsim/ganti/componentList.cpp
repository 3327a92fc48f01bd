#include "tools/boardsim/ganti/componentList.h"

#include "ganti/ganti.pb.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <sstream>

namespace boardsim {

namespace {

constexpr std::uint32_t maxChunkSize = 200'000; // what a message carries, and some more for its other fields

std::string entryOf(const Slot& slot)
{
    return fmt::format("<LmcList>\n"
                       "<!-- {0} {1} -->\n"
                       "<ProdNbr>{0}</ProdNbr>\n"
                       "<Rev>{1}</Rev>\n"
                       "{2}"
                       "<SwList>\n"
                       "<ListItem>\n"
                       "<ProdNbr>{0}</ProdNbr>\n"
                       "<StartRev>{1}</StartRev>\n"
                       "<StopRev>{1}</StopRev>\n"
                       "</ListItem>\n"
                       "</SwList>\n"
                       "</LmcList>\n",
                       slot.product, slot.revision, slot.type == SlotType::preinstalled ? "<Preinstalled/>\n" : "");
}

} // namespace

Verdict ComponentList::request(Call& call, const gant::SwCompListReq& request, gant::SwCompListCfm&,
                               gant::SwCompListRej& reject)
{
    if (!m_tickets.admits(call, request, reject)) {
        return Verdict::reject;
    }
    m_list = List{request.ticket_number(), call.client, call.procRef, text()};
    call.then = [this, client = call.client, procRef = call.procRef] { sendChunk(client, procRef); };
    return Verdict::confirm;
}

bool ComponentList::isListOf(std::uint32_t client, std::uint32_t procRef) const
{
    return m_list && m_list->client == client && m_list->procRef == procRef;
}

void ComponentList::sendChunk(std::uint32_t client, std::uint32_t procRef)
{
    if (!isListOf(client, procRef)) {
        return; // it ended before its confirm was released
    }
    gant::SwCompListData chunk;
    chunk.set_ticket_number(m_list->ticket);
    chunk.set_data(m_list->text.substr(m_list->sent, m_chunkSize));
    m_list->sent += chunk.data().size();
    m_list->isEndSent = m_list->sent == m_list->text.size();
    chunk.set_end(m_list->isEndSent);
    m_indicate(client, procRef, chunk);
}

void ComponentList::acknowledged(Call& call, const gant::SwCompListAck& ack)
{
    if (!isListOf(call.client, call.procRef) || m_list->ticket != ack.ticket_number()) {
        ++m_strayAcks;
    } else if (ack.abort() || m_list->isEndSent) {
        m_list.reset();
    } else {
        sendChunk(call.client, call.procRef);
    }
}

std::string ComponentList::text() const
{
    if (m_givenText) {
        return *m_givenText;
    }
    std::string text;
    for (const Slot& slot : m_store.slots()) {
        if (slot.status == SlotStatus::valid && slot.type != SlotType::boot) {
            text += entryOf(slot);
        }
    }
    return text;
}

void ComponentList::ticketGone(std::uint32_t ticket)
{
    if (m_list && m_list->ticket == ticket) {
        m_list.reset();
    }
}

std::vector<CommandRow> ComponentList::commands()
{
    return {
        {"list-file { <file> | default }", "the text of the software component list; at first made from the slots",
         [this](const Words& args, std::ostream&) { setFile(args); }},
        {"list-chunk <bytes>", "how much of the list goes in one message",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_chunkSize = std::max(1U, parseNumber(args[0], "the size", maxChunkSize));
         }},
    };
}

void ComponentList::setFile(const Words& args)
{
    expectWords(args, 1, 1);
    if (args[0] == "default") {
        m_givenText.reset();
        m_file.clear();
        return;
    }
    std::ifstream file(args[0], std::ios::binary);
    std::ostringstream content;
    if (!file || (file.peek() != std::ifstream::traits_type::eof() && !(content << file.rdbuf()))) {
        throw CommandError(fmt::format("{}: {}", args[0], std::strerror(errno)));
    }
    m_givenText = content.str();
    m_file = args[0];
}

void ComponentList::reset()
{
    m_list.reset();
    m_strayAcks = 0;
}

void ComponentList::show(Json& server) const
{
    Json& list = server["list"];
    list["file"] = m_givenText ? m_file : "default";
    list["chunk"] = m_chunkSize;
    list["sent"] = m_list ? Json(m_list->sent) : Json();
    list["size"] = m_list ? Json(m_list->text.size()) : Json();
    list["strayAcks"] = m_strayAcks;
}

} // namespace boardsim
