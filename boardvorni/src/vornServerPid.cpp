#include "vornServerPid.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "nonVolatile.h"
#include "vornServerUlmo.h"
#include "vorni/productIdentity.h"

#include <algorithm>

using namespace tolme;

namespace {

constexpr const char* command = "pid_manipulation";
constexpr const char* iruNameForGsm = "TMPX 47 D6";

/// Takes over what the server has; what it leaves out stays as it was.
bool take(std::string& to, bool isThere, const std::string& from)
{
    if (isThere) {
        to = from;
    }
    return isThere;
}

bool isHwPidKnown(const VornServerCommonData& commonData)
{
    return commonData.getHwPid().allPidData != 0;
}

bool isContainerPidKnown(const VornServerCommonData& commonData)
{
    return commonData.getContainerPid().allContainerData != 0;
}

bool isMarketNameKnown(const VornServerCommonData& commonData)
{
    return commonData.getHwPid().marketName != 0;
}

bool isHwPidWithMarketNameKnown(const VornServerCommonData& commonData)
{
    return isHwPidKnown(commonData) && isMarketNameKnown(commonData);
}

} // namespace

const VornServerPid::Request VornServerPid::requests[] = {
    {OmlaVornGetHwPidReqS::number, "OMLA_VORN_GET_HW_PID_REQ", "ABN: No VORN session found for mailbox ID: ", false,
     isHwPidKnown, &VornServerPid::confirmHwPid, &VornServerPid::reject<OmlaVornGetHwPidRejS>},
    {OmlaVornGetContainerPidReqS::number, "OMLA_VORN_GET_CONTAINER_PID_REQ",
     "ABN: VornServer has no session for mailbox ", true, isContainerPidKnown, &VornServerPid::confirmContainerPid,
     &VornServerPid::reject<OmlaVornGetContainerPidRejS>},
    {OmlaVornGetMarketNamePidReqS::number, "OMLA_VORN_GET_MARKET_NAME_PID_REQ",
     "ABN: VornServer has no session for mailbox ", false, isHwPidWithMarketNameKnown,
     &VornServerPid::confirmMarketNamePid, &VornServerPid::reject<OmlaVornGetMarketNamePidRejS>},
    {OmlaVornGetExtendedMarketNameReqS::number, "OMLA_VORN_GET_EXTENDED_MARKET_NAME_REQ",
     "ABN: VornServer has no session for mailbox ", false, isMarketNameKnown, &VornServerPid::confirmExtendedMarketName,
     &VornServerPid::reject<OmlaVornGetExtendedMarketNameRejS>},
};

VornServerPid::VornServerPid(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getDunlClient(), {"No DUNL transaction", "."})
{
}

VornServerPid::~VornServerPid()
{
    VornServerUlmo::getInstance().unregisterCmdHandler(command, this);
}

bool VornServerPid::init()
{
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    onMessage(dunl::MsgNo::GetProductInfoCfm, &VornServerPid::handleDunlGetProductInfoCfm);
    onMessage(dunl::MsgNo::GetProductInfoRej, &VornServerPid::handleDunlGetProductInfoRej);
    onMessage(dunl::MsgNo::GetContainerPidCfm, &VornServerPid::handleDunlGetContainerPidCfm);
    onMessage(dunl::MsgNo::GetContainerPidRej, &VornServerPid::handleDunlGetContainerPidRej);
    subscribe(OmlaVornGetHwPidReqS::number, &VornServerPid::handleGetHwPidReq);
    subscribe(OmlaVornGetContainerPidReqS::number, &VornServerPid::handleGetContainerPidReq);
    subscribe(OmlaVornGetMarketNamePidReqS::number, &VornServerPid::handleGetMarketNamePidReq);
    subscribe(OmlaVornGetExtendedMarketNameReqS::number, &VornServerPid::handleGetExtendedMarketNameReq);
    return VornServerUlmo::getInstance().registerCmdHandler(command, this);
}

void VornServerPid::handleGetHwPidReq(const MessagePtr& msg)
{
    handleRequest<OmlaVornGetHwPidReqS>(msg);
}

void VornServerPid::handleGetContainerPidReq(const MessagePtr& msg)
{
    handleRequest<OmlaVornGetContainerPidReqS>(msg);
}

void VornServerPid::handleGetMarketNamePidReq(const MessagePtr& msg)
{
    handleRequest<OmlaVornGetMarketNamePidReqS>(msg);
}

void VornServerPid::handleGetExtendedMarketNameReq(const MessagePtr& msg)
{
    handleRequest<OmlaVornGetExtendedMarketNameReqS>(msg);
}

const VornServerPid::Request* VornServerPid::findRequest(std::uint32_t number)
{
    const auto* found =
        std::find_if(std::begin(requests), std::end(requests), [=](const auto& row) { return row.number == number; });
    return found != std::end(requests) ? found : nullptr;
}

template <typename Signal>
void VornServerPid::handleRequest(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<Signal>(msg);
    if (signal == nullptr) {
        return;
    }
    const Request& request = *findRequest(Signal::number);
    const Client client = clientOf(*msg, request.number);
    if (m_commonData.findVornSession(client.mboxId) == nullptr) {
        TRACE_INFO("{}{}. Ignoring {}.", request.noSession, client.mboxId, request.name);
        return;
    }
    if (request.isKnown(m_commonData)) {
        (this->*request.confirm)(client);
    } else if (request.isOfContainer) {
        m_procedures.requestFor(client, dunl::MsgNo::GetContainerPidReq, dunl::GetContainerPidReq());
    } else {
        m_procedures.requestFor(client, dunl::MsgNo::GetProductInfoReq, dunl::GetProductInfoReq());
    }
}

void VornServerPid::handleDunlGetProductInfoCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.decode<dunl::GetProductInfoCfm>(message);
    if (!answer) {
        return;
    }
    const dunl::GetProductInfoCfm& cfm = answer->message;
    HwPid pid = m_commonData.getHwPid();
    bool hasAll = take(pid.productRevision, cfm.has_product_revision(), cfm.product_revision());
    hasAll &= take(pid.productName, cfm.has_product_name(), cfm.product_name());
    hasAll &= take(pid.productNumber, cfm.has_product_number(), cfm.product_number());
    hasAll &= take(pid.productionDate, cfm.has_production_date(), cfm.production_date());
    hasAll &= take(pid.serialNumber, cfm.has_serial_number(), cfm.serial_number());
    pid.allPidData = hasAll ? 1 : 0;
    pid.marketName = take(pid.market, cfm.has_market_name(), cfm.market_name()) ? 1 : 0;
    if (const std::string manipulated = sarnaReadPid(); !manipulated.empty()) {
        TRACE_INFO("Fetching Manipulated PID: product number: {}", manipulated);
        pid.productNumber = manipulated;
    }
    m_commonData.setHwPid(pid);
    answerWhoAsked(*answer, false);
}

void VornServerPid::handleDunlGetContainerPidCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.decode<dunl::GetContainerPidCfm>(message);
    if (!answer) {
        return;
    }
    const dunl::GetContainerPidCfm& cfm = answer->message;
    ContainerPid pid = m_commonData.getContainerPid();
    bool hasAll = take(pid.productRevision, cfm.has_product_revision(), cfm.product_revision());
    hasAll &= take(pid.productName, cfm.has_product_name(), cfm.product_name());
    hasAll &= take(pid.productNumber, cfm.has_product_number(), cfm.product_number());
    hasAll &= take(pid.productionDate, cfm.has_production_date(), cfm.production_date());
    hasAll &= take(pid.serialNumber, cfm.has_serial_number(), cfm.serial_number());
    pid.allContainerData = hasAll ? 1 : 0;
    m_commonData.setContainerPid(pid);
    answerWhoAsked(*answer, true);
}

template <typename Message>
void VornServerPid::answerWhoAsked(TolmeAnswer<Message> cfm, bool isOfContainer)
{
    TolmeClient& dunl = m_commonData.getDunlClient();
    const Client* client = dunl.findTransaction(cfm.envelope.procedureRef);
    if (client == nullptr) {
        TRACE_INFO("No DUNL transaction was found for procedureRef: {} but the cache has been updated.",
                   cfm.envelope.procedureRef);
        return;
    }
    cfm.transaction = *client;
    dunl.removeTransaction(cfm.envelope.procedureRef);
    if (const auto asked = m_procedures.withSession(std::optional(std::move(cfm)))) {
        if (const Request* request = findRequest(asked->transaction, isOfContainer)) {
            const auto answer = request->isKnown(m_commonData) ? request->confirm : request->reject;
            (this->*answer)(asked->transaction);
        }
    }
}

void VornServerPid::handleDunlGetProductInfoRej(const TolmeMessagePtr& message)
{
    rejectWhoAsked<dunl::GetProductInfoRej>(message, false);
}

void VornServerPid::handleDunlGetContainerPidRej(const TolmeMessagePtr& message)
{
    rejectWhoAsked<dunl::GetContainerPidRej>(message, true);
}

template <typename Message>
void VornServerPid::rejectWhoAsked(const TolmeMessagePtr& message, bool isOfContainer)
{
    if (const auto asked = m_procedures.take<Message>(message)) {
        if (const Request* request = findRequest(asked->transaction, isOfContainer)) {
            (this->*request->reject)(asked->transaction);
        }
    }
}

const VornServerPid::Request* VornServerPid::findRequest(const Client& client, bool isOfContainer)
{
    const Request* request = findRequest(client.requestMsgNo);
    if (request == nullptr || request->isOfContainer != isOfContainer) {
        TRACE_INFO("ABN: Unknown signal number in transaction! Ignoring signal!");
        return nullptr;
    }
    return request;
}

/// GSM clients know an IRU by another name.
std::string VornServerPid::productNameFor(const Client& client) const
{
    const std::string& name = m_commonData.getHwPid().productName;
    const bool isRenamed = isGsmServerRef(static_cast<std::int32_t>(client.serverRef)) && name.starts_with("IRU");
    return isRenamed ? iruNameForGsm : name;
}

void VornServerPid::confirmHwPid(const Client& client) const
{
    const HwPid& pid = m_commonData.getHwPid();
    sendSignal<OmlaVornGetHwPidCfmS>(client, [&](auto& cfm) {
        fillText(cfm.productRevision, pid.productRevision);
        fillText(cfm.productName, productNameFor(client));
        fillText(cfm.productNumber, pid.productNumber);
        fillText(cfm.productionDate, pid.productionDate);
        fillText(cfm.serialNumber, pid.serialNumber);
    });
}

void VornServerPid::confirmContainerPid(const Client& client) const
{
    const ContainerPid& pid = m_commonData.getContainerPid();
    sendSignal<OmlaVornGetContainerPidCfmS>(client, [&](auto& cfm) {
        fillText(cfm.productRevision, pid.productRevision);
        fillText(cfm.productName, pid.productName);
        fillText(cfm.productNumber, pid.productNumber);
        fillText(cfm.productionDate, pid.productionDate);
        fillText(cfm.serialNumber, pid.serialNumber);
    });
}

void VornServerPid::confirmMarketNamePid(const Client& client) const
{
    const HwPid& pid = m_commonData.getHwPid();
    sendSignal<OmlaVornGetMarketNamePidCfmS>(client, [&](auto& cfm) {
        fillText(cfm.productRevision, pid.productRevision);
        fillText(cfm.productName, productNameFor(client));
        fillText(cfm.marketName, pid.market);
        fillText(cfm.productNumber, pid.productNumber);
        fillText(cfm.productionDate, pid.productionDate);
        fillText(cfm.serialNumber, pid.serialNumber);
    });
}

void VornServerPid::confirmExtendedMarketName(const Client& client) const
{
    sendSignal<OmlaVornGetExtendedMarketNameCfmS>(
        client, [&](auto& cfm) { fillText(cfm.marketName, m_commonData.getHwPid().market); });
}

template <typename Signal>
void VornServerPid::reject(const Client& client) const
{
    sendReject<Signal>(client, 1, "Failed to retrieve all PID data");
}

bool VornServerPid::handleCommand(const std::vector<std::string>& args, std::ostream& out)
{
    const std::string option = args.size() > 1 ? args[1] : "";
    if (option.find("-a") != std::string::npos) {
        return pidAddUlmo(args, out);
    }
    if (option.find("-d") != std::string::npos) {
        return pidDeleteUlmo(out);
    }
    out << "Invalid Command: pid " << option;
    return false;
}

bool VornServerPid::pidAddUlmo(const std::vector<std::string>& args, std::ostream& out)
{
    return args.size() == 3 && storePid(args[2], out);
}

bool VornServerPid::pidDeleteUlmo(std::ostream& out)
{
    return storePid("", out);
}

/// The next request brings the new product number into the cache.
bool VornServerPid::storePid(const std::string& value, std::ostream& out)
{
    if (const std::uint32_t error = sarnaStorePid(value); error != 0) {
        out << "sarna_set_value returned with " << error;
        return false;
    }
    m_commonData.setHwPid({});
    return true;
}
