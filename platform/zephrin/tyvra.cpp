#include "zephrin/tyvra.h"

#include "unitLog/unitLog.h"

namespace Zephrin::Tyvra::V2 {
namespace {

constexpr const char* logName = "tyvra";

class EventLog final : public TyvraIf
{
public:
    void event(std::uint32_t number, const std::string& text, const std::string& further) override
    {
        const std::string shownNumber = std::to_string(number);
        if (further.empty()) {
            unitLogWrite(logName, {shownNumber, text});
        } else {
            unitLogWrite(logName, {shownNumber, text, further});
        }
    }
};

} // namespace

TyvraIf& TyvraIf::getInstance()
{
    static EventLog log;
    return log;
}

} // namespace Zephrin::Tyvra::V2
