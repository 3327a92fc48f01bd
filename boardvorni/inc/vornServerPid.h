/// The product identity of the hardware and the container.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerCmdHandler.h"
#include "vornServerComponent.h"

/// Answers the clients' questions for product data from a cache, which the DUNL server fills at the first of them. A
/// debug command lays a temporary product number over the unit's own. Speaks with the DUNL server.
class VornServerPid : public VornServerComponent, public VornServerCmdHandler
{
public:
    explicit VornServerPid(VornServerCommonData& commonData);
    ~VornServerPid() override;

    bool init() override;
    std::string_view name() const override { return "VornServerPid"; }
    /// "pid_manipulation".
    bool handleCommand(const std::vector<std::string>& args, std::ostream& out) override;

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    /// What differs between the four requests.
    struct Request {
        std::uint32_t number;
        const char* name;
        const char* noSession; ///< how the trace of a missing session begins
        bool isOfContainer;
        bool (*isKnown)(const VornServerCommonData&); ///< whether the cache has all of the answer
        void (VornServerPid::*confirm)(const Client&) const;
        void (VornServerPid::*reject)(const Client&) const;
    };
    static const Request requests[];

    void handleGetHwPidReq(const MessagePtr& msg);
    void handleGetContainerPidReq(const MessagePtr& msg);
    void handleGetMarketNamePidReq(const MessagePtr& msg);
    void handleGetExtendedMarketNameReq(const MessagePtr& msg);
    template <typename Signal>
    void handleRequest(const MessagePtr& msg);
    static const Request* findRequest(std::uint32_t number);

    void handleDunlGetProductInfoCfm(const TolmeMessagePtr& message);
    void handleDunlGetProductInfoRej(const TolmeMessagePtr& message);
    void handleDunlGetContainerPidCfm(const TolmeMessagePtr& message);
    void handleDunlGetContainerPidRej(const TolmeMessagePtr& message);
    /// The cache is up to date: whoever has asked is answered.
    template <typename Message>
    void answerWhoAsked(TolmeAnswer<Message> cfm, bool isOfContainer);
    template <typename Message>
    void rejectWhoAsked(const TolmeMessagePtr& message, bool isOfContainer);
    static const Request* findRequest(const Client& client, bool isOfContainer);

    void confirmHwPid(const Client& client) const;
    void confirmContainerPid(const Client& client) const;
    void confirmMarketNamePid(const Client& client) const;
    void confirmExtendedMarketName(const Client& client) const;
    template <typename Signal>
    void reject(const Client& client) const;
    std::string productNameFor(const Client& client) const;

    bool pidAddUlmo(const std::vector<std::string>& args, std::ostream& out);
    bool pidDeleteUlmo(std::ostream& out);
    bool storePid(const std::string& value, std::ostream& out);

    TolmeProcedures m_procedures;
};
