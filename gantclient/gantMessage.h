/// Decoding of the software manager's messages.
#pragma once

#include "gantclient/gantClient.h"

/// What is decoded before a fault counts: a body that doesn't parse is a message with the fields that it has.
template <typename Message>
Message parseGantMessage(GANTClient::Body body)
{
    Message message;
    message.ParseFromArray(body.data(), static_cast<int>(body.size()));
    return message;
}

/// The number that a message travels under.
template <typename Message>
constexpr std::uint32_t gantMessageNumber()
{
    return static_cast<std::uint32_t>(Message::MESSAGE_NUMBER);
}
