/// The product data of the hardware and of the container, the market name.
#include "vorni/productIdentity.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

struct Hardware {
    static constexpr const char* command = "pid";
    using Request = OmlaVornGetHwPidReqS;
    using Confirm = OmlaVornGetHwPidCfmS;
    using Reject = OmlaVornGetHwPidRejS;
};

struct Container {
    static constexpr const char* command = "container";
    using Request = OmlaVornGetContainerPidReqS;
    using Confirm = OmlaVornGetContainerPidCfmS;
    using Reject = OmlaVornGetContainerPidRejS;
};

struct Market {
    static constexpr const char* command = "market";
    using Request = OmlaVornGetMarketNamePidReqS;
    using Confirm = OmlaVornGetMarketNamePidCfmS;
    using Reject = OmlaVornGetMarketNamePidRejS;
};

struct MarketName {
    static constexpr const char* command = "market-name";
    using Request = OmlaVornGetExtendedMarketNameReqS;
    using Confirm = OmlaVornGetExtendedMarketNameCfmS;
    using Reject = OmlaVornGetExtendedMarketNameRejS;
};

ShownFields fieldsOf(const Signal& answer)
{
    ShownFields fields;
    for (const Vorni::FieldValue& field : answer.decode().fields) {
        fields.push_back({field.info->name, field.text});
    }
    return fields;
}

/// The words are fields that the confirm must have.
template <typename Kind>
Outcome productData(CommandContext& context, Words words)
{
    std::vector<std::string> expected{Vorni::signalName(Kind::Confirm::number)};
    expected.insert(expected.end(), words.begin(), words.end());
    const SignalPattern pattern = SignalPattern::parse(expected);
    Outcome outcome = context.request<typename Kind::Request>({Kind::Confirm::number, Kind::Reject::number});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    context.printer().productData(context.client(), Kind::command, fieldsOf(*outcome.answer));
    if (!pattern.matchesFields(*outcome.answer)) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("expected {}, came: {}", pattern.print(), outcome.answer->print());
    }
    return outcome;
}

template <typename Kind>
std::vector<std::string> completeFields(Words)
{
    std::vector<std::string> fields;
    for (const Vorni::FieldInfo& field : Vorni::findSignal(Kind::Confirm::number)->fields) {
        fields.push_back(std::string(field.name) + "=");
    }
    return fields;
}

template <typename Kind>
void addCommand(CommandTable& table, const char* help)
{
    table.add({Kind::command, "[FIELD=VALUE...]", help, productData<Kind>, completeFields<Kind>});
}

} // namespace

void addProductDataCommands(CommandTable& table)
{
    addCommand<Hardware>(table, "print the product data of the hardware, which must have these fields");
    addCommand<Container>(table, "the same of the container");
    addCommand<Market>(table, "the same of the hardware, with its market name");
    addCommand<MarketName>(table, "the market name alone, in full length");
}

} // namespace VornClient
