// topology_file.cpp: reads a topology file, and refuses everything that is not exactly as docs/topology.md says.
//
// Cost: the file is held in memory twice while it is read; files above 4 MiB are refused unread.
#include "json_place.h"
#include "topology.h"
#include "topology_values.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

namespace kel
{
namespace
{
constexpr std::size_t longestName = KEL_STANDIN_NAME_SIZE - 1;
constexpr std::size_t longestDescription = KEL_STANDIN_DESCRIPTION_SIZE - 1;
constexpr std::size_t largestFile = 4 << 20;
constexpr std::uint32_t anyIfIndex = 0x7FFFFFFF;
constexpr std::uint32_t largestMtu = 65535;
constexpr std::uint32_t longestMilliseconds = 24 * 3600 * 1000; // a day
constexpr std::uint32_t mostTimes = 1000000;

class Reader
{
public:
    explicit Reader(const JsonPlace &root) : root_(root) {}

    Topology read()
    {
        root_.expectFields({"name", "slots", "trunks", "vlans", "events"});
        if (const auto name = root_.field("name"))
            topology_.name = name->text(longestDescription);
        for (const JsonPlace &slot : root_.required("slots").elements())
            readSlot(slot);
        forEach("trunks", [this](const JsonPlace &place) { readTrunk(place); });
        forEach("vlans", [this](const JsonPlace &place) { readVlan(place); });
        forEach("events", [this](const JsonPlace &place) { readEvent(place); });
        return std::move(topology_);
    }

private:
    template <class Function>
    void forEach(std::string_view field, Function function)
    {
        if (const auto list = root_.field(field))
            for (const JsonPlace &place : list->elements())
                function(place);
    }

    // ---- Ports

    void readSlot(const JsonPlace &place)
    {
        place.expectFields({"slot", "ports", "prefix", "description", "link", "mtu"});
        TopologyPort common;
        const JsonPlace number = place.required("slot");
        common.slot = number.integer(1, KEL_STANDIN_MAX_SLOT);
        if (!slots_.insert(common.slot).second)
            number.refuse("slot " + std::to_string(common.slot) + " is described twice");
        readCommon(place, common);
        const auto prefix = place.field("prefix");
        const std::string namePrefix = prefix ? prefix->text(longestName - std::strlen("254/128")) : "";

        const JsonPlace ports = place.required("ports");
        if (ports.isNumber()) {
            const unsigned count = ports.integer(1, KEL_STANDIN_MAX_PORT);
            for (unsigned port = 1; port <= count; ++port)
                addPort(ports, numbered(common, port, namePrefix));
        } else {
            for (const JsonPlace &port : ports.elements())
                readPort(port, common, namePrefix);
        }
    }

    static TopologyPort numbered(const TopologyPort &common, unsigned number, const std::string &namePrefix)
    {
        TopologyPort port = common;
        port.port = number;
        port.name = namePrefix + std::to_string(port.slot) + "/" + std::to_string(number);
        port.ifIndex = 1000 * port.slot + number;
        return port;
    }

    // What a slot gives to all its ports, and a port may have otherwise.
    static void readCommon(const JsonPlace &place, TopologyPort &port)
    {
        if (const auto description = place.field("description"))
            port.description = description->text(longestDescription);
        if (const auto link = place.field("link"))
            port.linkUp = readLink(*link);
        if (const auto mtu = place.field("mtu"))
            port.mtu = mtu->integer(64, largestMtu);
    }

    void readPort(const JsonPlace &place, const TopologyPort &common, const std::string &namePrefix)
    {
        place.expectFields({"port", "name", "description", "link", "mtu", "ifIndex", "mac", "addresses", "present"});
        TopologyPort port = numbered(common, place.required("port").integer(1, KEL_STANDIN_MAX_PORT), namePrefix);
        readCommon(place, port);
        if (const auto name = place.field("name"))
            port.name = name->text(longestName);
        if (const auto ifIndex = place.field("ifIndex"))
            port.ifIndex = ifIndex->integer(1, anyIfIndex);
        if (const auto mac = place.field("mac"))
            port.mac = readMac(*mac);
        if (const auto present = place.field("present"))
            port.present = present->boolean();
        if (const auto addresses = place.field("addresses"))
            port.addresses = readAddresses(*addresses);
        addPort(place, port);
    }

    static std::vector<kelStandinAddress> readAddresses(const JsonPlace &place)
    {
        std::vector<kelStandinAddress> addresses;
        for (const JsonPlace &address : place.elements())
            addresses.push_back(readAddress(address));
        if (addresses.size() > KEL_STANDIN_MAX_ADDRESSES)
            place.refuse("must have at most " + std::to_string(KEL_STANDIN_MAX_ADDRESSES) + " addresses, has " +
                         std::to_string(addresses.size()));
        return addresses;
    }

    void addPort(const JsonPlace &place, const TopologyPort &port)
    {
        if (!topology_.ports.emplace(kelStandinPortInstance(port.slot, port.port), port).second)
            place.refuse("port " + std::to_string(port.slot) + "/" + std::to_string(port.port) + " is described twice");
        claim(place, port.name, port.ifIndex);
    }

    // Names and ifIndexes are each given once, among ports and trunks together.
    void claim(const JsonPlace &place, const std::string &name, std::uint32_t ifIndex)
    {
        if (!name.empty() && !names_.insert(name).second)
            place.refuse("the name \"" + name + "\" is given twice");
        if (!ifIndexes_.insert(ifIndex).second)
            place.refuse("the ifIndex " + std::to_string(ifIndex) + " is given twice");
    }

    // ---- Trunks

    void readTrunk(const JsonPlace &place)
    {
        place.expectFields({"trunk", "name", "description", "ifIndex", "members", "master"});
        TopologyTrunk trunk;
        const JsonPlace number = place.required("trunk");
        trunk.number = number.integer(1, KEL_STANDIN_MAX_PORT);
        const auto name = place.field("name");
        trunk.name = name ? name->text(longestName) : "trunk" + std::to_string(trunk.number);
        if (const auto description = place.field("description"))
            trunk.description = description->text(longestDescription);
        const auto ifIndex = place.field("ifIndex");
        trunk.ifIndex = ifIndex ? ifIndex->integer(1, anyIfIndex) : 1000 * KEL_STANDIN_TRUNK_SLOT + trunk.number;
        for (const JsonPlace &member : place.required("members").elements())
            addMembers(member, trunk);
        if (!trunk.members.empty())
            trunk.master = trunk.members.front();
        if (const auto master = place.field("master"))
            trunk.master = readMaster(*master, trunk);
        if (!topology_.trunks.emplace(kelStandinTrunkInstance(trunk.number), trunk).second)
            number.refuse("trunk " + std::to_string(trunk.number) + " is described twice");
        claim(place, trunk.name, trunk.ifIndex);
    }

    void addMembers(const JsonPlace &place, TopologyTrunk &trunk)
    {
        for (const portInstance_t member : readPorts(place)) {
            if (topology_.trunks.contains(member) || !topology_.ports.contains(member))
                place.refuse("a trunk cannot be a member");
            if (!members_.insert(member).second)
                place.refuse("a port can be a member once, of one trunk");
            trunk.members.push_back(member);
        }
    }

    portInstance_t readMaster(const JsonPlace &place, const TopologyTrunk &trunk) const
    {
        const portInstance_t master = readPorts(place).front();
        if (std::ranges::find(trunk.members, master) == trunk.members.end())
            place.refuse("must be one of the trunk's members");
        return master;
    }

    // ---- References: "1/24", "1/1-24" and "trunk/1"

    std::vector<portInstance_t> readPorts(const JsonPlace &place) const
    {
        const std::string text = place.text(longestName);
        std::string_view rest = text;
        const bool isTrunk = takeText(rest, "trunk");
        const auto slot = isTrunk ? std::optional<unsigned>(KEL_STANDIN_TRUNK_SLOT) : takeNumber(rest);
        const auto first = takeText(rest, "/") ? takeNumber(rest) : std::nullopt;
        const auto last = takeText(rest, "-") ? takeNumber(rest) : first;
        if (!slot || !first || !last || !rest.empty() || *last < *first)
            place.refuse("must be a port like \"1/24\", ports like \"1/1-24\", or a trunk like \"trunk/1\", is \"" +
                         text + "\"");
        std::vector<portInstance_t> ports;
        for (unsigned port = *first; port <= *last; ++port)
            ports.push_back(known(place, *slot, port, isTrunk));
        return ports;
    }

    portInstance_t known(const JsonPlace &place, unsigned slot, unsigned port, bool isTrunk) const
    {
        const bool inRange = slot <= KEL_STANDIN_TRUNK_SLOT && port <= KEL_STANDIN_MAX_PORT;
        const portInstance_t instance = isTrunk ? kelStandinTrunkInstance(port) : kelStandinPortInstance(slot, port);
        if (!inRange || !(topology_.ports.contains(instance) || topology_.trunks.contains(instance)))
            place.refuse((isTrunk ? "there is no trunk " : "there is no port " + std::to_string(slot) + "/") +
                         std::to_string(port));
        return instance;
    }

    portInstance_t readOnePort(const JsonPlace &place) const
    {
        const auto ports = readPorts(place);
        if (ports.size() != 1)
            place.refuse("must be one port");
        return ports.front();
    }

    // ---- VLANs

    void readVlan(const JsonPlace &place)
    {
        place.expectFields({"vlan", "tagged", "untagged"});
        TopologyVlan vlan;
        const JsonPlace number = place.required("vlan");
        vlan.vlan = number.integer(1, KEL_STANDIN_MAX_VLAN);
        if (!vlans_.insert(vlan.vlan).second)
            number.refuse("VLAN " + std::to_string(vlan.vlan) + " is described twice");
        std::set<portInstance_t> members;
        vlan.tagged = readVlanPorts(place, "tagged", members);
        vlan.untagged = readVlanPorts(place, "untagged", members);
        topology_.vlans.push_back(vlan);
    }

    std::vector<portInstance_t> readVlanPorts(const JsonPlace &vlan, std::string_view field,
                                              std::set<portInstance_t> &members) const
    {
        std::vector<portInstance_t> ports;
        const auto list = vlan.field(field);
        if (!list)
            return ports;
        for (const JsonPlace &place : list->elements())
            for (const portInstance_t port : readPorts(place)) {
                if (!members.insert(port).second)
                    place.refuse("a port can be in a VLAN once");
                ports.push_back(port);
            }
        return ports;
    }

    // ---- Events

    void readEvent(const JsonPlace &place)
    {
        place.expectFields({"at", "do", "port", "times", "every"});
        using Action = TopologyEvent::Action;
        constexpr std::array actions{Action::add,  Action::remove, Action::up,
                                     Action::down, Action::flap,   Action::cycle};
        TopologyEvent event;
        event.at = std::chrono::milliseconds(place.required("at").integer(0, longestMilliseconds));
        event.action = actions.at(place.required("do").oneOf({"add", "remove", "up", "down", "flap", "cycle"}));
        const JsonPlace port = place.required("port");
        event.port = readOnePort(port);
        if (topology_.trunks.contains(event.port) && isLinkAction(event.action))
            port.refuse("a trunk's link follows its members");
        if (const auto times = place.field("times"))
            event.times = times->integer(1, mostTimes);
        if (const auto every = place.field("every"))
            event.every = std::chrono::milliseconds(every->integer(0, longestMilliseconds));
        topology_.events.push_back(event);
    }

    static bool isLinkAction(TopologyEvent::Action action)
    {
        using Action = TopologyEvent::Action;
        return action == Action::up || action == Action::down || action == Action::flap;
    }

    JsonPlace root_;
    Topology topology_;
    std::set<unsigned> slots_;
    std::set<unsigned> vlans_;
    std::set<std::string> names_;
    std::set<std::uint32_t> ifIndexes_;
    std::set<portInstance_t> members_;
};

[[noreturn]] void refuseFile(const std::string &path, int error)
{
    throw TopologyError(path + ": cannot be read: " + std::strerror(error));
}

std::string readFile(const std::string &path)
{
    struct stat about {
    };
    if (stat(path.c_str(), &about) != 0)
        refuseFile(path, errno);
    if (S_ISDIR(about.st_mode))
        refuseFile(path, EISDIR);
    std::ifstream file(path, std::ios::binary);
    if (!file)
        refuseFile(path, errno);
    std::string text(largestFile + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad())
        refuseFile(path, EIO);
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > largestFile)
        throw TopologyError(path + ": cannot be read: it has more than 4 MiB");
    return text;
}
} // namespace

Topology parseTopology(std::string_view text, const std::string &file)
{
    const nlohmann::json document = parseJson(text, file);
    return Reader(JsonPlace(document, file)).read();
}

Topology readTopology(const std::string &path)
{
    return parseTopology(readFile(path), path);
}

} // namespace kel
