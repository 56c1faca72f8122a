// line_reader.h: cuts a byte stream into lines, whatever the sender does.
//
// Policy: a line ends with "\n" or "\r\n". A line above the limit is reported once, as soon as it is known to be too
//         long, and dropped up to its end; the lines behind it are read again.
// Cost:   at most the limit plus what one feed() brings is kept.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

class LineReader
{
public:
    explicit LineReader(size_t maxBytes) : maxLineBytes(maxBytes) {}

    struct Line {
        std::string text;
        bool tooLong; // text is empty
    };

    void feed(const char *bytes, size_t count)
    {
        buffer.append(bytes, count);
    }

    // The next whole (or over-long) line; nothing until more is fed.
    std::optional<Line> next();

    // Bytes of a line that has begun and not ended.
    bool hasPartialLine() const
    {
        return dropping || !buffer.empty();
    }

private:
    std::string buffer;
    size_t maxLineBytes;   // of a line, its end not counted
    bool dropping = false; // inside a line that was reported as too long
};
