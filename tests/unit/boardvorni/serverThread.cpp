#include "serverThread.h"

#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "ostinel/kivMessageSubscription.h"
#include "tolmeClient.h"
#include "yarrowi/numbers.h"

using namespace TestUnit;
using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;

namespace {

constexpr std::uint32_t marker = 0x7E570001;

void dispatch(const Received& received)
{
    Ostinel::KivMessageSubscription::V1::Handler handler;
    if (KivMessageSubscriptionIf::getInstance().lookUp(received.number(), handler) == 0) {
        handler({const_cast<kiv_msg*>(received.get()), [received](kiv_msg*) {}});
    }
}

} // namespace

ServerThread::ServerThread()
{
    commonData.setPrivateMbox(kiv_current_mbox());
}

/// The subscriptions are the thread's and would outlive what they call.
ServerThread::~ServerThread()
{
    commonData.getDunlClient().disconnect();
    commonData.getFeskClient().disconnect();
    const auto unsubscribe = [](const auto& table) {
        for (const auto& entry : table) {
            KivMessageSubscriptionIf::getInstance().unsubscribe(entry.number);
        }
    };
    unsubscribe(Vorni::signals());
    unsubscribe(yarrowi::messages);
}

void ServerThread::handleUntil(const std::function<bool()>& isDone)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!isDone()) {
        if (const auto received = post.next(kiv_current_mbox(), std::chrono::milliseconds(10))) {
            dispatch(*received);
        } else if (std::chrono::steady_clock::now() > end) {
            throw StepFailed("what the server thread waits for doesn't come");
        }
    }
}

void ServerThread::settle()
{
    kiv_msg* msg = kiv_alloc(sizeof(marker), marker);
    kiv_send(&msg, kiv_current_mbox(), kiv_current_mbox());
    while (const auto received = post.next(kiv_current_mbox(), deadline)) {
        if (received->number() == marker) {
            return;
        }
        dispatch(*received);
    }
    throw StepFailed("the server thread's own message doesn't come");
}
