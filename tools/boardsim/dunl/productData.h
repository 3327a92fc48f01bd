/// What the board is: the product data of its hardware and of its container.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <map>
#include <string>

namespace boardsim {

/// At first all data is there. Each field can be changed and left out on command; it goes by its name in the confirm.
class ProductData : public ProtobufProcedures
{
public:
    using Fields = std::map<std::string, std::string>; ///< those that are there, by name

    ProductData();

    Verdict getProduct(const Connection&, const tolme::dunl::GetProductInfoReq&,
                       tolme::dunl::GetProductInfoCfm& confirm, tolme::dunl::GetProductInfoRej&);
    Verdict getContainer(const Connection&, const tolme::dunl::GetContainerPidReq&,
                         tolme::dunl::GetContainerPidCfm& confirm, tolme::dunl::GetContainerPidRej&);

    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;

private:
    // Settings.
    Fields m_product;
    Fields m_container;
};

} // namespace boardsim
