// line_reader.cpp: cuts a byte stream into lines, whatever the sender does.
#include "line_reader.h"

std::optional<LineReader::Line> LineReader::next()
{
    for (;;) {
        const size_t end = buffer.find('\n');
        if (dropping) {
            if (end == std::string::npos) {
                buffer.clear();
                return std::nullopt;
            }
            buffer.erase(0, end + 1);
            dropping = false;
            continue;
        }
        if (end == std::string::npos) {
            if (buffer.size() <= maxLineBytes + 1) // one more for a carriage return
                return std::nullopt;
            buffer.clear();
            dropping = true;
            return Line{"", true};
        }
        Line line{buffer.substr(0, end), false};
        buffer.erase(0, end + 1);
        if (!line.text.empty() && line.text.back() == '\r')
            line.text.pop_back();
        if (line.text.size() > maxLineBytes)
            return Line{"", true};
        return line;
    }
}
