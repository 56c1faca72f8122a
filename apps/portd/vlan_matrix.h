// vlan_matrix.h: which port is in which VLAN, as two bit matrices: a row a VLAN, a column a system port.
//
// A picture of one moment: ports that come or go while it is made are in it or not. Columns are those of the system
// ports that were bound when it was begun.
#pragma once

#include "bitset.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

class VlanMatrix
{
public:
    VlanMatrix();

    // One line a VLAN.
    std::string table() const;
    nlohmann::ordered_json json() const;

    // The VLANs of a system port: "10, 20 (tagged)".
    std::string ofPort(uint32_t systemPort) const;

private:
    std::vector<std::string> names(const CBitMatrix &matrix, uint32_t row) const;

    std::vector<unsigned> vlans;   // by row
    std::vector<std::string> name; // by system port
    CBitMatrix untagged;
    CBitMatrix tagged;
};

// Names in the order given, runs of them with the same text and numbers that follow each other drawn together:
// "ge1/1-24".
std::string nameRanges(const std::vector<std::string> &names);
