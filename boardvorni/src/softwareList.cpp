#include "softwareList.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace {

constexpr std::size_t partMax = 255;

constexpr std::string_view prodNbrBegin = "<ProdNbr>";
constexpr std::string_view prodNbrEnd = "</ProdNbr>";
constexpr std::string_view revBegin = "<Rev>";
constexpr std::string_view revEnd = "</Rev>";

constexpr std::string_view preinstalledBlock = "<LmcList>\n"
                                               "<!-- KDX7041382/26 R83DN -->\n"
                                               "<ProdNbr>TVM5048227/31</ProdNbr>\n"
                                               "<Rev>R83DN</Rev>\n"
                                               "<Preinstalled/>\n"
                                               "<SwList>\n"
                                               "<ListItem>\n"
                                               "<ProdNbr>TVM5048227/31</ProdNbr>\n"
                                               "<StartRev>R80BX</StartRev>\n"
                                               "<StopRev>R83DN</StopRev>\n"
                                               "</ListItem>\n"
                                               "</SwList>\n"
                                               "</LmcList>\n";

struct RunningSoftware {
    std::string productNumber;
    std::string revision;
};

RunningSoftware split(const std::string& text)
{
    const std::size_t separator = std::min(text.find('_'), text.size());
    RunningSoftware software{text.substr(0, separator), text.substr(std::min(separator + 1, text.size()))};
    const std::size_t escape = software.productNumber.find('%');
    if (escape != std::string::npos) {
        software.productNumber[escape] = '/';
    }
    return software;
}

/// `begin` is a position in the list. An end in front of it makes the count wrap: then all up to the list's end goes.
void replaceBetween(std::string& list, std::size_t begin, std::size_t end, const std::string& text)
{
    list.replace(begin, end - begin, text);
}

void setProductNumbers(std::string& list, const std::string& productNumber)
{
    const std::size_t firstBegin = list.find(prodNbrBegin);
    const std::size_t firstEnd = list.find(prodNbrEnd);
    if (firstBegin != std::string::npos && firstEnd != std::string::npos) {
        replaceBetween(list, firstBegin + prodNbrBegin.size(), firstEnd, productNumber);
    }
    // Neither position is checked, which is kept as it is: the search starts where the closing tag was before the list
    // changed, and without a second opening tag (npos + 9) the number begins at position 8.
    const std::size_t secondBegin = list.find(prodNbrBegin, firstEnd) + prodNbrBegin.size();
    const std::size_t secondEnd = list.find(prodNbrEnd, secondBegin);
    if (secondEnd != std::string::npos) {
        replaceBetween(list, secondBegin, secondEnd, productNumber);
    }
}

void setRevision(std::string& list, const std::string& revision)
{
    const std::size_t begin = list.find(revBegin);
    const std::size_t end = list.find(revEnd);
    if (begin != std::string::npos && end != std::string::npos) {
        replaceBetween(list, begin + revBegin.size(), end, revision);
    }
}

} // namespace

void markPreinstalled(std::string& part)
{
    constexpr std::string_view tag = "<SwList>";
    constexpr std::string_view mark = "<Preinstalled />\n";
    for (std::size_t found = part.find(tag); found != std::string::npos;) {
        part.insert(found - 1, mark);
        found = part.find(tag, found + mark.size() + 1); // one behind where the tag is now
    }
}

void rewriteForGsmIru(std::string& list, const std::string& runningSoftware)
{
    if (list.find("<Preinstalled/>") == std::string::npos) {
        list.insert(list.find("<LmcList>"), preinstalledBlock);
    }
    const RunningSoftware software = split(runningSoftware);
    setProductNumbers(list, software.productNumber);
    setRevision(list, software.revision);
}

std::string takePart(std::string& list)
{
    std::string part = list.substr(0, partMax);
    list.erase(0, part.size());
    return part;
}
