// change_line.h: how a port's change reads.
#pragma once

#include "port_board.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

// One change as it is printed; plain bytes, so that it can travel through a memory pool's block.
struct ChangeRecord {
    timespec time; // wall clock; the same for a whole batch
    uint64_t batch;
    uint32_t systemPort;
    uint32_t ifIndex;
    uint32_t bridgePort; // 0 none
    uint32_t portInstance;
    bool coalesced;
    char name[64];
    char what[96];
};

// What the last line about a system port said.
struct Reported {
    uint32_t word = 0; // 0: there was no line yet
    std::string name;
};

// What changed between the last line and the state of `word`.
std::string whatChanged(const Reported &before, uint32_t word, bool coalesced);

// The line's columns, and a line; both with their ends.
std::string changeTitleLine();
std::string changeLine(const ChangeRecord &record);

// Local time of day with milliseconds.
std::string timeOfDay(const timespec &time);

// Fills a fixed text field, cutting what does not fit.
template <size_t size>
void fillField(char (&field)[size], const std::string &text)
{
    field[text.copy(field, size - 1)] = '\0';
}
