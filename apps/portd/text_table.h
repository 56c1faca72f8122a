// text_table.h: rows and columns as aligned text.
#pragma once

#include <string>
#include <vector>

class TextTable
{
public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align;
    };

    explicit TextTable(std::vector<Column> tableColumns);

    // One cell a column; missing cells are empty, cells too many are dropped.
    void addRow(std::vector<std::string> cells);

    // The title line and the rows, two blanks between columns, no blanks at line ends.
    std::string text() const;

private:
    std::string line(const std::vector<std::string> &cells) const;

    std::vector<Column> columns;
    std::vector<size_t> widths; // of the widest cell so far, titles included
    std::vector<std::vector<std::string>> rows;
};

// What a terminal may be shown of a foreign text: control bytes become '?'.
std::string printable(const std::string &text);
