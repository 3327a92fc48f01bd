#include "tools/boardsim/dunl/productData.h"

#include "dunl/dunl.pb.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace boardsim {

namespace {

using tolme::dunl::GetContainerPidCfm;
using tolme::dunl::GetProductInfoCfm;

using Fields = ProductData::Fields;

Fields newProduct()
{
    return {{"product_revision", "R3B"},        {"product_name", "Radio 4472 B"}, {"product_number", "TVM1614472/3"},
            {"production_date", "20240503"},    {"manufacturer", "Board works"},  {"serial_number", "TB8E418807"},
            {"market_name", "Radio 4472 B1 B3"}};
}

Fields newContainer()
{
    return {{"product_revision", "R1C"},    {"product_name", "Radio Container 44"}, {"product_number", "TVM9014400/1"},
            {"production_date", "2024W20"}, {"manufacturer", "Board works"},        {"serial_number", "TC2F900316"}};
}

std::vector<std::string> fieldNames(const google::protobuf::Descriptor& confirm)
{
    std::vector<std::string> names;
    for (int i = 0; i < confirm.field_count(); ++i) {
        names.push_back(confirm.field(i)->name());
    }
    return names;
}

void fill(Message& confirm, const Fields& fields)
{
    for (const auto& [name, text] : fields) {
        confirm.GetReflection()->SetString(&confirm, confirm.GetDescriptor()->FindFieldByName(name), text);
    }
}

void setField(Fields& fields, const Words& args, const google::protobuf::Descriptor& confirm)
{
    expectWords(args, 2, args.size());
    const std::string& name = args[0];
    if (confirm.FindFieldByName(name) == nullptr) {
        throw CommandError(fmt::format("\"{}\" is none of: {}", name, fmt::join(fieldNames(confirm), ", ")));
    }
    const std::string text = joinWords(args, 1);
    if (text == "absent") {
        fields.erase(name);
    } else {
        fields[name] = text;
    }
}

Json shown(const Fields& fields, const google::protobuf::Descriptor& confirm)
{
    Json all;
    for (const std::string& name : fieldNames(confirm)) {
        const auto field = fields.find(name);
        all[name] = field == fields.end() ? Json() : Json(field->second);
    }
    return all;
}

} // namespace

ProductData::ProductData() : m_product(newProduct()), m_container(newContainer()) {}

Verdict ProductData::getProduct(const Connection&, const tolme::dunl::GetProductInfoReq&, GetProductInfoCfm& confirm,
                                tolme::dunl::GetProductInfoRej&)
{
    fill(confirm, m_product);
    return Verdict::confirm;
}

Verdict ProductData::getContainer(const Connection&, const tolme::dunl::GetContainerPidReq&,
                                  GetContainerPidCfm& confirm, tolme::dunl::GetContainerPidRej&)
{
    fill(confirm, m_container);
    return Verdict::confirm;
}

std::vector<CommandRow> ProductData::commands()
{
    return {
        {"product { default | <field> { <text> | absent } }", "the hardware's product data, by the confirm's fields",
         [this](const Words& args, std::ostream&) {
             if (args == Words{"default"}) {
                 m_product = newProduct();
             } else {
                 setField(m_product, args, *GetProductInfoCfm::descriptor());
             }
         }},
        {"container { default | <field> { <text> | absent } }", "the container's product data, by the confirm's fields",
         [this](const Words& args, std::ostream&) {
             if (args == Words{"default"}) {
                 m_container = newContainer();
             } else {
                 setField(m_container, args, *GetContainerPidCfm::descriptor());
             }
         }},
    };
}

void ProductData::show(Json& server) const
{
    server["product"] = shown(m_product, *GetProductInfoCfm::descriptor());
    server["container"] = shown(m_container, *GetContainerPidCfm::descriptor());
}

} // namespace boardsim
