#include "tools/boardsim/core/requestTable.h"

#include "tools/boardsim/core/command.h"

#include <algorithm>
#include <fmt/format.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <stdexcept>

namespace boardsim {

namespace {

/// The text form's errors are told in the command's answer, not on standard error.
struct SilentErrors : google::protobuf::io::ErrorCollector {
    std::string first;

    void AddError(int, int, const std::string& message) override
    {
        if (first.empty()) {
            first = message;
        }
    }
};

std::unique_ptr<Message> newAnswer(const Message* prototype, const PrepareAnswer& prepare, const Message& request)
{
    std::unique_ptr<Message> answer(prototype != nullptr ? prototype->New() : nullptr);
    if (answer != nullptr && prepare) {
        prepare(request, *answer);
    }
    return answer;
}

} // namespace

void setFields(Message& message, const std::string& fields)
{
    if (fields == "none") {
        message.Clear();
        return;
    }
    SilentErrors errors;
    google::protobuf::TextFormat::Parser parser;
    parser.RecordErrorsTo(&errors);
    if (!parser.MergeFromString(fields, &message)) {
        throw CommandError(
            fmt::format("{} can't hold {{{}}}: {}", message.GetDescriptor()->name(), fields, errors.first));
    }
}

std::unique_ptr<Message> RequestRow::newConfirm(const Message& received) const
{
    return newAnswer(confirm, prepareConfirm, received);
}

std::unique_ptr<Message> RequestRow::newReject(const Message& received) const
{
    return newAnswer(reject, prepareReject, received);
}

RequestRow MessageTable::row(Purpose purpose, const Message& request) const
{
    RequestRow entry;
    entry.purpose = purpose;
    entry.name = request.GetDescriptor()->name();
    entry.number = numberOf(request);
    entry.request = &request;
    return entry;
}

void MessageTable::add(RequestRow row)
{
    m_rows.emplace(row.number, std::move(row));
}

std::uint32_t MessageTable::numberOf(const Message& message) const
{
    const std::string& name = message.GetDescriptor()->full_name();
    const auto found = std::find_if(m_numbers.begin(), m_numbers.end(),
                                    [&](const MessageNumber& candidate) { return candidate.name == name; });
    if (found == m_numbers.end()) {
        throw std::logic_error(name + " has no message number");
    }
    return found->number;
}

const RequestRow* MessageTable::find(std::uint32_t number) const
{
    const auto found = m_rows.find(number);
    return found == m_rows.end() ? nullptr : &found->second;
}

const RequestRow* MessageTable::find(const std::string& name) const
{
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [&](const auto& entry) { return entry.second.name == name; });
    return found == m_rows.end() ? nullptr : &found->second;
}

std::string MessageTable::nameOf(const std::string& word) const
{
    std::string message = word.substr(word.rfind('.') + 1);
    return find(message) != nullptr || m_indications.count(message) != 0 ? message : std::string();
}

std::vector<std::string> MessageTable::names() const
{
    std::vector<std::string> names;
    for (const auto& [number, request] : m_rows) {
        names.push_back(request.name);
    }
    names.insert(names.end(), m_indications.begin(), m_indications.end());
    return names;
}

void MessageTable::checkRule(const std::string& message, const Rule& rule) const
{
    const RequestRow* request = find(message);
    const bool needsFields = rule.kind == RuleKind::reject || rule.kind == RuleKind::confirm;
    if (request == nullptr) {
        if (needsFields) {
            throw CommandError(message + " is an indication: it can be silent, delayed or held");
        }
        return;
    }
    const Message* answer = rule.kind == RuleKind::reject ? request->reject : request->confirm;
    if (answer == nullptr && rule.kind != RuleKind::silent) {
        throw CommandError(message + " has no such answer");
    }
    if (needsFields && rule.fields) {
        setFields(*std::unique_ptr<Message>(answer->New()), *rule.fields);
    }
}

/// On command, where the interface has no reject, there is nothing to send.
Decision MessageTable::rejected(std::unique_ptr<Message> reject, const Rule& rule)
{
    if (reject != nullptr && rule.kind == RuleKind::reject && rule.fields) {
        setFields(*reject, *rule.fields);
    }
    return {Verdict::reject, std::move(reject)};
}

Decision MessageTable::confirmed(const RequestRow& request, const Message& body, std::unique_ptr<Message> confirm,
                                 const Rule& rule)
{
    if (confirm != nullptr && rule.kind == RuleKind::confirm) {
        confirm = request.newConfirm(body);
        setFields(*confirm, rule.fields.value_or(""));
    }
    return {Verdict::confirm, std::move(confirm)};
}

} // namespace boardsim
