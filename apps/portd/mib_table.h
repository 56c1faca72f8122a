// mib_table.h: tables of a management interface whose rows have one integer as their index: looked up and walked by
// object identifier, whatever serves them.
//
// Policy:  a walk goes column by column, and down a column in the order of the index. A row that is gone when its cell
// is
//          asked for is passed over. An identifier is any that a manager sends: shorter, longer or beside the table.
// Locking: none of its own; the functions of a table lock what they read.
#pragma once

#include "mgmt_types.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <variant>
#include <vector>

// Values as SMIv2 (RFC 2578) has them. BITS and DateAndTime are octet strings there.
struct MibInteger {
    int32_t value;
};
struct MibUnsigned { // Unsigned32 and Gauge32
    uint32_t value;
};
struct MibCounter { // Counter32
    uint32_t value;
};
using MibValue = std::variant<MibInteger, MibUnsigned, MibCounter, SuOctetString, SuOID>;

struct MibTable {
    SuOID entry;                   // of the row object; an instance is entry.column.index
    std::vector<uint32_t> columns; // that can be read, ascending
    // The lowest index above the given one, which may be any number; 0: none.
    std::function<uint32_t(uint32_t above)> nextIndex;
    // The value of one of the columns; nothing when there is no such row, or the row has no such value.
    std::function<std::optional<MibValue>(uint32_t column, uint32_t index)> cell;
};

struct MibObject {
    SuOID name;
    MibValue value;
};

// The object of exactly that name.
std::optional<MibObject> objectNamed(const MibTable &table, const SuOID &name);

// The first object whose name comes after that one.
std::optional<MibObject> objectAfter(const MibTable &table, const SuOID &name);

// The identifier with further sub-identifiers behind it.
SuOID extended(const SuOID &identifier, std::initializer_list<uint32_t> further);

inline std::span<const unsigned int> partsOf(const SuOID &identifier)
{
    return {identifier.oid.ptr, static_cast<size_t>(identifier.oid.len)};
}
