/// The messages of a protobuf interface as its server sees them: which requests it takes, what can answer them, who
/// decides on the answer, and what the fault rules can be for. What carries the messages is the server's business.
#pragma once

#include "tools/boardsim/core/faultRules.h"

#include "messageNumber.h"

#include <cstdint>
#include <functional>
#include <google/protobuf/message.h>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace boardsim {

using google::protobuf::Message;

enum class Verdict { confirm, reject };

enum class Purpose { connect, request, disconnect, unanswered };

/// Fills in what every such answer to a request tells, also one that is sent on command.
using PrepareAnswer = std::function<void(const Message& request, Message& answer)>;

/// Sets the fields given as text, "name: value ...", or with "none" leaves all out. Throws CommandError.
void setFields(Message& message, const std::string& fields);

/// One line of the table.
struct RequestRow {
    Purpose purpose = Purpose::request;
    std::string name;
    std::uint32_t number = 0;
    const Message* request = nullptr; ///< prototypes; an answer that the interface doesn't have is null
    const Message* confirm = nullptr;
    const Message* reject = nullptr;
    PrepareAnswer prepareConfirm;
    PrepareAnswer prepareReject;

    std::unique_ptr<Message> newConfirm(const Message& received) const;
    std::unique_ptr<Message> newReject(const Message& received) const;
};

/// What is decided on: the verdict, and the answer with it; null: there is nothing to send.
struct Decision {
    Verdict verdict = Verdict::confirm;
    std::shared_ptr<Message> answer;
};

/// Names and numbers of the messages.
class MessageTable
{
public:
    /// `numbers`: all messages of the interface.
    explicit MessageTable(std::span<const MessageNumber> numbers) : m_numbers(numbers) {}

    /// An indication that fault rules can name.
    template <typename Ind>
    void indicates()
    {
        m_indications.insert(Ind::descriptor()->name());
    }

    std::uint32_t numberOf(const Message& message) const;

    /// Null for a number that is no request's.
    const RequestRow* find(std::uint32_t number) const;

    /// The name in "package.Name", where it is a request's or an indication's; else nothing.
    std::string nameOf(const std::string& word) const;

    /// Of all requests, then of all indications.
    std::vector<std::string> names() const;

    /// Throws CommandError where the rule can't be for this message.
    void checkRule(const std::string& message, const Rule& rule) const;

protected:
    RequestRow row(Purpose purpose, const Message& request) const;
    void add(RequestRow row);

    static Decision rejected(std::unique_ptr<Message> reject, const Rule& rule);
    static Decision confirmed(const RequestRow& request, const Message& body, std::unique_ptr<Message> confirm,
                              const Rule& rule);

private:
    const RequestRow* find(const std::string& name) const;

    std::span<const MessageNumber> m_numbers;
    std::map<std::uint32_t, RequestRow> m_rows;
    std::set<std::string> m_indications;
};

/// `Caller`: what a handler is told of who asks. Handlers are members of a group, in one of the forms
///     Verdict handler(Caller&, const Req&, Cfm&, Rej&)
///     void handler(Caller&, const Req&, Cfm&)            the interface has no reject
///     void handler(Caller&, const Req&)                  and no confirm either
template <typename Caller>
class RequestTable : public MessageTable
{
public:
    using Handle = std::function<Verdict(Caller&, const Message& request, Message* confirm, Message* reject)>;

    using MessageTable::MessageTable;

    /// A request that is handled by more than a group.
    template <typename Req, typename Cfm, typename Rej>
    void on(Purpose purpose, Handle handle, PrepareAnswer prepareConfirm, PrepareAnswer prepareReject)
    {
        enter(purpose, Req::default_instance(), &Cfm::default_instance(), &Rej::default_instance(), std::move(handle),
              std::move(prepareConfirm), std::move(prepareReject));
    }

    template <typename Group, typename Req, typename Cfm, typename Rej>
    void on(Group& group, Verdict (Group::*handler)(Caller&, const Req&, Cfm&, Rej&), PrepareAnswer prepareConfirm,
            PrepareAnswer prepareReject)
    {
        on<Req, Cfm, Rej>(
            Purpose::request,
            [&group, handler](Caller& caller, const Message& request, Message* confirm, Message* reject) {
                return (group.*handler)(caller, static_cast<const Req&>(request), static_cast<Cfm&>(*confirm),
                                        static_cast<Rej&>(*reject));
            },
            std::move(prepareConfirm), std::move(prepareReject));
    }

    template <typename Group, typename Req, typename Cfm>
    void on(Group& group, void (Group::*handler)(Caller&, const Req&, Cfm&), PrepareAnswer prepareConfirm)
    {
        enter(Purpose::request, Req::default_instance(), &Cfm::default_instance(), nullptr,
              [&group, handler](Caller& caller, const Message& request, Message* confirm, Message*) {
                  (group.*handler)(caller, static_cast<const Req&>(request), static_cast<Cfm&>(*confirm));
                  return Verdict::confirm;
              },
              std::move(prepareConfirm), {});
    }

    template <typename Group, typename Req>
    void on(Group& group, void (Group::*handler)(Caller&, const Req&))
    {
        enter(Purpose::unanswered, Req::default_instance(), nullptr, nullptr,
              [&group, handler](Caller& caller, const Message& request, Message*, Message*) {
                  (group.*handler)(caller, static_cast<const Req&>(request));
                  return Verdict::confirm;
              },
              {}, {});
    }

    /// A request that needs no handler: it is confirmed, or without a confirm just counted.
    void on(Purpose purpose, const Message& request, const Message* confirm)
    {
        enter(purpose, request, confirm, nullptr,
              [](Caller&, const Message&, Message*, Message*) { return Verdict::confirm; }, {}, {});
    }

    /// Handles a request, or not, as the rule says.
    Decision decide(const RequestRow& request, Caller& caller, const Message& body, const Rule& rule) const
    {
        std::unique_ptr<Message> confirm = request.newConfirm(body);
        std::unique_ptr<Message> reject = request.newReject(body);
        const Verdict verdict = rule.kind == RuleKind::reject
                                    ? Verdict::reject
                                    : m_handles.at(request.number)(caller, body, confirm.get(), reject.get());
        return verdict == Verdict::reject ? rejected(std::move(reject), rule)
                                          : confirmed(request, body, std::move(confirm), rule);
    }

private:
    void enter(Purpose purpose, const Message& request, const Message* confirm, const Message* reject, Handle handle,
               PrepareAnswer prepareConfirm, PrepareAnswer prepareReject)
    {
        RequestRow entry = row(purpose, request);
        entry.confirm = confirm;
        entry.reject = reject;
        entry.prepareConfirm = std::move(prepareConfirm);
        entry.prepareReject = std::move(prepareReject);
        m_handles.emplace(entry.number, std::move(handle));
        add(std::move(entry));
    }

    std::map<std::uint32_t, Handle> m_handles;
};

} // namespace boardsim
