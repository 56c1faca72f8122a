// vlan_matrix.cpp: which port is in which VLAN, as two bit matrices: a row a VLAN, a column a system port.
#include "vlan_matrix.h"

#include "sysport.h"
#include "text_table.h"

#include <charconv>
#include <kel_standin.h>

namespace
{
constexpr uint32_t none = 0xFFFFFFFF;

std::vector<portInstance_t> membersOf(unsigned vlan)
{
    std::vector<portInstance_t> members(kelStandinVlanMembers(vlan, nullptr, 0));
    const size_t now = kelStandinVlanMembers(vlan, members.data(), members.size());
    members.resize(std::min(members.size(), now));
    return members;
}

// A name's text before its last number, and the number.
struct NumberedName {
    std::string text;
    uint32_t number = 0;
    bool isNumbered = false;

    explicit NumberedName(const std::string &name)
    {
        const size_t end = name.find_last_not_of("0123456789");
        const size_t start = end == std::string::npos ? 0 : end + 1;
        const auto [stop, error] = std::from_chars(name.data() + start, name.data() + name.size(), number);
        isNumbered = error == std::errc() && name.substr(start) == std::to_string(number);
        text = name.substr(0, start);
    }
    bool isFollowedBy(const NumberedName &next) const
    {
        return isNumbered && next.isNumbered && text == next.text && number + 1 == next.number;
    }
};
} // namespace

VlanMatrix::VlanMatrix()
{
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    for (uint32_t port = map.getNextSystemPort(0); port != 0; port = map.getNextSystemPort(port)) {
        char text[KEL_STANDIN_NAME_SIZE] = "";
        map.getIfNameFromSystemPort(port, text, sizeof text);
        name.resize(port + 1);
        name[port] = printable(text);
    }
    for (unsigned vlan = kelStandinNextVlan(0); vlan != 0; vlan = kelStandinNextVlan(vlan))
        vlans.push_back(vlan);
    const auto rows = static_cast<unsigned>(vlans.size());
    for (CBitMatrix *matrix : {&untagged, &tagged})
        matrix->init(rows, static_cast<unsigned>(name.size()), nullptr);
    for (unsigned row = 0; row < rows; ++row)
        for (const portInstance_t member : membersOf(vlans[row])) {
            const uint32_t port = map.portInst2SystemPort(member);
            const int membership = kelStandinGetVlan(member, vlans[row]);
            if (port != 0 && membership != KEL_STANDIN_VLAN_NONE) // a port past the columns is refused by the matrix
                (membership == KEL_STANDIN_VLAN_UNTAGGED ? untagged : tagged).setBit(row, port);
        }
}

std::vector<std::string> VlanMatrix::names(const CBitMatrix &matrix, uint32_t row) const
{
    std::vector<std::string> found;
    for (uint32_t port = matrix.findRowSetBit(row, 0, false); port != none;
         port = matrix.findRowSetBit(row, port + 1, false))
        found.push_back(name[port].empty() ? "port " + std::to_string(port) : name[port]);
    return found;
}

std::string VlanMatrix::table() const
{
    using enum TextTable::Align;
    TextTable lines({{"VLAN", right}, {"PORTS", right}, {"UNTAGGED", left}, {"TAGGED", left}});
    for (uint32_t row = 0; row < vlans.size(); ++row) {
        const auto plain = names(untagged, row);
        const auto marked = names(tagged, row);
        lines.addRow({std::to_string(vlans[row]), std::to_string(plain.size() + marked.size()),
                      plain.empty() ? "-" : nameRanges(plain), marked.empty() ? "-" : nameRanges(marked)});
    }
    return lines.text();
}

nlohmann::ordered_json VlanMatrix::json() const
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (uint32_t row = 0; row < vlans.size(); ++row)
        list.push_back({{"vlan", vlans[row]}, {"untagged", names(untagged, row)}, {"tagged", names(tagged, row)}});
    return list;
}

std::string VlanMatrix::ofPort(uint32_t systemPort) const
{
    std::string text;
    for (uint32_t row = 0; row < vlans.size(); ++row) {
        const bool plain = untagged.chkBit(row, systemPort);
        if (plain || tagged.chkBit(row, systemPort))
            text += (text.empty() ? "" : ", ") + std::to_string(vlans[row]) + (plain ? "" : " (tagged)");
    }
    return text;
}

std::string nameRanges(const std::vector<std::string> &names)
{
    std::string text;
    for (size_t first = 0, last; first < names.size(); first = last + 1) {
        last = first;
        while (last + 1 < names.size() && NumberedName(names[last]).isFollowedBy(NumberedName(names[last + 1])))
            ++last;
        text += (text.empty() ? "" : ", ") + names[first];
        if (last != first)
            text += '-' + std::to_string(NumberedName(names[last]).number);
    }
    return text;
}
