// mib_table.cpp: tables of a management interface whose rows have one integer as their index.
#include "mib_table.h"

#include <algorithm>

namespace
{
using Parts = std::span<const unsigned int>;

SuOID identifierOf(const std::vector<uint32_t> &parts)
{
    std::vector<unsigned char> octets; // SuOID's byte form: four octets a part, most significant first
    octets.reserve(parts.size() * 4);
    for (const uint32_t part : parts)
        for (const int shift : {24, 16, 8, 0})
            octets.push_back(static_cast<unsigned char>(part >> shift));
    SuOID identifier;
    identifier.setData(octets.data(), static_cast<int>(octets.size()));
    return identifier;
}

bool isBelow(Parts name, Parts entry)
{
    return name.size() > entry.size() && std::equal(entry.begin(), entry.end(), name.begin());
}

std::optional<MibObject> objectAt(const MibTable &table, uint32_t column, uint32_t index)
{
    if (auto value = table.cell(column, index))
        return MibObject{extended(table.entry, {column, index}), std::move(*value)};
    return std::nullopt;
}

// The first object of a column whose index is above the given one.
std::optional<MibObject> nextOfColumn(const MibTable &table, uint32_t column, uint32_t above)
{
    for (uint32_t index = table.nextIndex(above); index > above; index = table.nextIndex(index)) {
        if (auto object = objectAt(table, column, index))
            return object;
    }
    return std::nullopt;
}

// The first object of the first column from `first` on that has any.
std::optional<MibObject> firstFromColumn(const MibTable &table, uint32_t first)
{
    for (const uint32_t column : table.columns) {
        if (column < first)
            continue;
        if (auto object = nextOfColumn(table, column, 0))
            return object;
    }
    return std::nullopt;
}
} // namespace

SuOID extended(const SuOID &identifier, std::initializer_list<uint32_t> further)
{
    const Parts parts = partsOf(identifier);
    std::vector<uint32_t> all(parts.begin(), parts.end());
    all.insert(all.end(), further);
    return identifierOf(all);
}

std::optional<MibObject> objectNamed(const MibTable &table, const SuOID &name)
{
    const Parts parts = partsOf(name), entry = partsOf(table.entry);
    if (!isBelow(parts, entry) || parts.size() != entry.size() + 2)
        return std::nullopt;
    const uint32_t column = parts[entry.size()];
    if (std::find(table.columns.begin(), table.columns.end(), column) == table.columns.end())
        return std::nullopt;
    return objectAt(table, column, parts.back());
}

std::optional<MibObject> objectAfter(const MibTable &table, const SuOID &name)
{
    const Parts parts = partsOf(name), entry = partsOf(table.entry);
    if (!isBelow(parts, entry)) {
        const bool isBefore = !std::lexicographical_compare(entry.begin(), entry.end(), parts.begin(), parts.end());
        return isBefore ? firstFromColumn(table, 0) : std::nullopt;
    }
    const uint32_t column = parts[entry.size()];
    const bool isColumn = std::find(table.columns.begin(), table.columns.end(), column) != table.columns.end();
    if (isColumn) {
        // What stands behind the index makes a name longer, and still smaller than that of the next index.
        const uint32_t above = parts.size() > entry.size() + 1 ? parts[entry.size() + 1] : 0;
        if (auto object = nextOfColumn(table, column, above))
            return object;
    }
    return column == UINT32_MAX ? std::nullopt : firstFromColumn(table, column + 1);
}
