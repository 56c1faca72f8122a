// text_table.cpp: rows and columns as aligned text.
#include "text_table.h"

#include <algorithm>

TextTable::TextTable(std::vector<Column> tableColumns) : columns(std::move(tableColumns))
{
    for (const Column &column : columns)
        widths.push_back(column.title.size());
}

void TextTable::addRow(std::vector<std::string> cells)
{
    cells.resize(columns.size());
    for (size_t i = 0; i < cells.size(); ++i)
        widths[i] = std::max(widths[i], cells[i].size());
    rows.push_back(std::move(cells));
}

std::string TextTable::line(const std::vector<std::string> &cells) const
{
    std::string text;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string gap(widths[i] - cells[i].size(), ' ');
        if (i > 0)
            text += "  ";
        text += columns[i].align == Align::left ? cells[i] + gap : gap + cells[i];
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + '\n';
}

std::string TextTable::text() const
{
    std::vector<std::string> titles;
    for (const Column &column : columns)
        titles.push_back(column.title);
    std::string all = line(titles);
    for (const std::vector<std::string> &row : rows)
        all += line(row);
    return all;
}

std::string printable(const std::string &text)
{
    std::string shown = text;
    for (char &byte : shown) {
        const unsigned char value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value == 0x7f)
            byte = '?';
    }
    return shown;
}
