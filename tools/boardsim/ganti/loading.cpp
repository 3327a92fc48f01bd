#include "tools/boardsim/ganti/loading.h"

#include "ganti/ganti.pb.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <string_view>

namespace boardsim {

namespace {

/// Writes all of it: 0 or an errno value.
int writeAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno != EINTR) {
                return errno;
            }
        } else {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    return 0;
}

} // namespace

Verdict Loading::init(Call& call, const gant::PushLoadInitReq& request, gant::PushLoadInitCfm&,
                      gant::PushLoadInitRej& reject)
{
    using Rej = gant::PushLoadInitRej;
    if (!m_tickets.admits(call, request, reject)) {
        return Verdict::reject;
    }
    const auto refuse = [&reject](Rej::Reason reason) {
        reject.set_reason(reason);
        return Verdict::reject;
    };
    if (m_load) {
        return refuse(Rej::BUSY);
    }
    const auto software = parseSoftware(request.software());
    if (!software) {
        return refuse(Rej::INTERNAL_ERROR);
    }
    if (const auto present = m_store.findValid(request.software())) {
        return refuse(m_store.slots()[*present].isRunning ? Rej::RUNNING : Rej::ALREADY_LOADED);
    }
    const auto slot = m_store.findFree();
    if (!slot) {
        return refuse(Rej::RESOURCE_SHORTAGE);
    }
    UniqueFd file = m_store.startWriting(*slot, software->product, software->revision);
    if (!file) {
        return refuse(Rej::INTERNAL_ERROR);
    }
    m_load = Load{
        .ticket = request.ticket_number(), .slot = *slot, .file = std::move(file), .failure = {}, .lastSequence = {}};
    return Verdict::confirm;
}

void Loading::data(Call& call, const gant::PushLoadData& block, gant::PushLoadAck& ack)
{
    ack.set_abort(!m_tickets.isUsable(call, block.ticket_number()) || !m_load || !take(block));
}

bool Loading::take(const gant::PushLoadData& block)
{
    if (!m_load->failure.empty()) {
        return false;
    }
    const auto& last = m_load->lastSequence;
    const std::uint32_t number = block.sequence_number();
    if (number > 0xFFFF || (last && number != ((*last + 1U) & 0xFFFF))) {
        m_load->failure = fmt::format("block {} behind {}", number, last ? std::to_string(*last) : "none");
        return false;
    }
    if (const int error = writeAll(m_load->file.get(), block.data())) {
        m_load->failure = std::strerror(error);
        return false;
    }
    m_load->lastSequence = static_cast<std::uint16_t>(number);
    m_load->size += block.data().size();
    ++m_load->blocks;
    return true;
}

Verdict Loading::end(Call& call, const gant::PushLoadEndReq& request, gant::PushLoadEndCfm& confirm,
                     gant::PushLoadEndRej& reject)
{
    if (!m_tickets.admits(call, request, reject)) {
        return Verdict::reject;
    }
    if (!m_load) {
        reject.set_reason(gant::PushLoadEndRej::INVALID_STATE);
        return Verdict::reject;
    }
    const bool isComplete = m_load->failure.empty() && m_load->blocks > 0;
    if (isComplete) {
        m_store.finishWriting(m_load->slot, m_load->size);
        m_load.reset();
    } else {
        drop();
    }
    confirm.set_result(isComplete ? gant::PushLoadEndCfm::COMPLETED : gant::PushLoadEndCfm::FAILED);
    return Verdict::confirm;
}

Verdict Loading::pull(Call& call, const gant::PullLoadInitReq& request, gant::PullLoadInitCfm&,
                      gant::PullLoadInitRej& reject)
{
    if (m_tickets.admits(call, request, reject)) {
        reject.set_reason(gant::PullLoadInitRej::INTERNAL_ERROR);
    }
    return Verdict::reject;
}

Verdict Loading::abortPull(Call& call, const gant::PullLoadAbortReq& request, gant::PullLoadAbortCfm&,
                           gant::PullLoadAbortRej& reject)
{
    if (m_tickets.admits(call, request, reject)) {
        reject.set_reason(gant::PullLoadAbortRej::NOT_IN_PROGRESS);
    }
    return Verdict::reject;
}

void Loading::ticketGone(std::uint32_t ticket)
{
    if (m_load && m_load->ticket == ticket) {
        drop();
    }
}

void Loading::drop()
{
    if (m_load) {
        m_store.makeEmpty(m_load->slot);
        m_load.reset();
    }
}

void Loading::show(Json& server) const
{
    Json& load = server["load"];
    if (m_load) {
        load["slot"] = m_load->slot + 1;
        load["software"] = m_store.slots()[m_load->slot].software();
        load["ticket"] = m_load->ticket;
        load["blocks"] = m_load->blocks;
        load["size"] = m_load->size;
        load["lastSequence"] = m_load->lastSequence ? Json(*m_load->lastSequence) : Json();
        load["failure"] = m_load->failure;
    }
}

} // namespace boardsim
