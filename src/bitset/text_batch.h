// text_batch.h: text for standard output, gathered so that a print of many small pieces costs few writes.
#pragma once

#include <charconv>
#include <cstdio>
#include <cstring>

// Belongs to one print on one thread; what is left goes out when it is destroyed.
class TextBatch
{
public:
    TextBatch() = default;
    TextBatch(const TextBatch &) = delete;
    TextBatch &operator=(const TextBatch &) = delete;
    ~TextBatch()
    {
        send();
    }

    void add(char character)
    {
        makeRoom();
        text[used++] = character;
    }

    template <size_t Size>
    void add(const char (&literal)[Size])
    {
        static_assert(Size <= longestPiece);
        makeRoom();
        memcpy(text + used, literal, Size - 1);
        used += Size - 1;
    }

    // As "%u" or "%d".
    template <class Number>
    void addNumber(Number number)
    {
        makeRoom();
        used = static_cast<size_t>(std::to_chars(text + used, text + sizeof text, number).ptr - text);
    }

    // As "%08X ".
    void addWord(unsigned word)
    {
        makeRoom();
        for (int shift = 28; shift >= 0; shift -= 4)
            text[used++] = "0123456789ABCDEF"[word >> shift & 15];
        text[used++] = ' ';
    }

    // Characters added so far.
    size_t length() const
    {
        return sent + used;
    }

private:
    static constexpr size_t longestPiece = 16;

    void makeRoom()
    {
        if (used > sizeof text - longestPiece)
            send();
    }

    void send()
    {
        fwrite(text, 1, used, stdout);
        sent += used;
        used = 0;
    }

    char text[512];
    size_t used = 0;
    size_t sent = 0;
};
